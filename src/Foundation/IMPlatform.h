#pragma once

#include <QString>
#include <QVariantMap>

//! Services of the host platform that the kit uses. A host replaces them by installing a
//! subclass with `setInstance`; the defaults work on a desktop.
class IMPlatform
{
public:
    virtual ~IMPlatform();

    //! The installed platform (a default one until a host installs its own).
    static IMPlatform *instance();
    //! Installs `platform` (the kit takes ownership); null restores the default.
    static void setInstance(IMPlatform *platform);

    //! Shows or hides the network-activity indicator (default: remembers the value).
    virtual void setNetworkActivityIndicatorVisible(bool visible);
    //! Whether the network-activity indicator was last switched on.
    virtual bool isNetworkActivityIndicatorVisible() const;
    //! Sets the application icon's badge number (default: remembers the value).
    virtual void setApplicationIconBadgeNumber(qint64 number);
    //! The application icon's badge number last set.
    virtual qint64 applicationIconBadgeNumber() const;

    //! The app's private data folder (AppLocalDataLocation unless overridden); created on demand.
    virtual QString documentsPath() const;
    //! The app's private cache folder (CacheLocation unless overridden); created on demand.
    virtual QString temporaryPath() const;
    //! Points `documentsPath` at `path` (null restores the default).
    void setDocumentsPath(const QString &path);
    //! Points `temporaryPath` at `path` (null restores the default).
    void setTemporaryPath(const QString &path);

    //! The host's information dictionary: the one set, else the resource ":/Info.json", else empty.
    virtual QVariantMap infoDictionary() const;
    //! Replaces the information dictionary.
    void setInfoDictionary(const QVariantMap &info);

private:
    bool m_activityVisible = false;
    qint64 m_badgeNumber = 0;
    QString m_documentsPath;
    QString m_temporaryPath;
    QVariantMap m_info;
    bool m_infoSet = false;
};
