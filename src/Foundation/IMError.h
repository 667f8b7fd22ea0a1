#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

//! The error domain of every error record the kit makes.
inline const QString kParlo = QStringLiteral("Parlo");

//! An error record: a domain, an integer code and a user-info dictionary. A value type.
class IMError {
public:
    //! A null error (no domain, code 0); `isNull()` is true.
    IMError() = default;
    //! An error with the given domain, code and user info.
    IMError(QString domain, int code, QVariantMap userInfo = {});
    //! An error in the "Parlo" domain.
    static IMError parlo(int code, QVariantMap userInfo = {});
    //! An error in the "Parlo" domain whose user info holds "info" = `info`.
    static IMError parlo(int code, const QString &info);

    //! The error domain ("Parlo" for the kit's own errors).
    QString domain() const { return m_domain; }
    //! The code: 400 bad input or not connected, 404, 999 no acknowledgement, else a server status.
    int code() const { return m_code; }
    //! The user info; the kit's errors carry their text under "info".
    QVariantMap userInfo() const { return m_userInfo; }
    //! The user info's "info" entry as text (empty when absent).
    QString info() const;
    //! True for a default-constructed error.
    bool isNull() const { return m_domain.isNull() && m_code == 0 && m_userInfo.isEmpty(); }
    //! A one-line description: "Parlo 404: <info>".
    QString description() const;

    friend bool operator==(const IMError &a, const IMError &b)
    {
        return a.m_domain == b.m_domain && a.m_code == b.m_code && a.m_userInfo == b.m_userInfo;
    }
    friend bool operator!=(const IMError &a, const IMError &b) { return !(a == b); }

private:
    QString m_domain;
    int m_code = 0;
    QVariantMap m_userInfo;
};

Q_DECLARE_METATYPE(IMError)
