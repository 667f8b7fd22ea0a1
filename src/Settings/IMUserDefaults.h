#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>
#include <memory>

//! The kit's persisted settings: typed properties over QSettings, each stored under
//! "OruChat" + the property name with its first letter upper-cased (`transformKey`), so
//! `clientID` lives under "OruChatClientID". Setters do not write to disk by themselves; `write`
//! does. Thread-safe: every member may be called from any thread.
class IMUserDefaults {
public:
    //! The process-wide settings object (the application's standard QSettings unless a host
    //! pointed it at its own file with `setSettingsFile`).
    static IMUserDefaults *standardUserDefaults();

    //! Keeps the settings in the INI file at `path` from now on (null: the application's
    //! standard settings). Pending changes are written to the previous file first.
    void setSettingsFile(const QString &path);
    //! The file the settings are kept in.
    QString settingsFile() const;

    //! The storage key of a property: "OruChat" + `property` with its first letter upper-cased.
    static QString transformKey(const QString &property);
    //! Writes pending changes to disk (QSettings::sync()); false when the file could not be written.
    bool write();

    //! The signed-in client's id ("OruChatClientID"); null when unset.
    QString clientID() const;
    //! Sets `clientID`; null removes it.
    void setClientID(const QString &clientID);
    //! Whether the kit has run before ("OruChatFirstTimeLaunch"); false when unset.
    bool firstTimeLaunch() const;
    //! Sets `firstTimeLaunch`.
    void setFirstTimeLaunch(bool firstTimeLaunch);
    //! The signed-in client record as a dictionary ("OruChatCurrentUser"); empty when unset.
    QVariantMap currentUser() const;
    //! Sets `currentUser` (logout stores an empty dictionary).
    void setCurrentUser(const QVariantMap &currentUser);
    //! The session token ("OruChatToken"); null when unset.
    QString token() const;
    //! Sets `token`; null removes it.
    void setToken(const QString &token);
    //! Cached messages ("OruChatMessageCache"); empty when unset.
    QVariantList messageCache() const;
    //! Sets `messageCache`.
    void setMessageCache(const QVariantList &messageCache);
    //! The kit's persisted log records, newest first ("OruChatLog"); empty when unset.
    QVariantList log() const;
    //! Sets `log`.
    void setLog(const QVariantList &log);
    //! True when `log` is stored (even as an empty list).
    bool hasLog() const;

    //! The raw value stored for `property` (under its transformed key); invalid when unset.
    QVariant value(const QString &property) const;
    //! True when a value (even an empty list) is stored for `property`.
    bool contains(const QString &property) const;
    //! Stores `value` for `property`; an invalid value or a null text removes it.
    void setValue(const QString &property, const QVariant &value);

    IMUserDefaults(const IMUserDefaults &) = delete;
    IMUserDefaults &operator=(const IMUserDefaults &) = delete;
    ~IMUserDefaults();

private:
    IMUserDefaults();
    struct Private;
    std::unique_ptr<Private> d;
};
