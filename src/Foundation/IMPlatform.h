#pragma once

#include <QImage>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <functional>

class QObject;

//! Services of the host platform that the kit uses. A host replaces them by installing a
//! subclass with `setInstance`; the defaults work on a desktop.
class IMPlatform {
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

    //! Puts `text` on the general pasteboard (default: the system clipboard).
    virtual void setPasteboardString(const QString &text);
    //! The general pasteboard's text (default: the system clipboard's).
    virtual QString pasteboardString() const;
    //! Saves `image` to the photo album (default: a PNG in the user's Pictures folder); returns
    //! where it went, empty on failure.
    virtual QString saveImageToPhotoAlbum(const QImage &image);
    //! Presents the share sheet for `items` (texts, URLs, images) over `window` (may be null);
    //! default: the screens' share dialog (items shown with a copy button), or a log line without it.
    virtual void presentShareSheet(const QVariantList &items, QObject *window);
    //! Whether a camera can take pictures (default false: the camera source uses the file chooser).
    virtual bool isCameraAvailable() const;
    //! Lets the user pick a picture from `sourceType` (0 camera, 1 photo library) over `window`;
    //! `done` runs once on the main thread with the image, null when cancelled or unreadable.
    //! Default: the screens' file chooser on images, or a null image without it.
    virtual void pickImage(int sourceType, QObject *window, const std::function<void(const QImage &)> &done);

    //! The desktop dialogs behind the default share sheet and picker (the screens' library installs them).
    struct Dialogs {
        std::function<void(const QVariantList &items, QObject *window)> share; //!< the share dialog
        std::function<void(int sourceType, QObject *window, const std::function<void(const QImage &)> &done)>
            pick; //!< the picker
    };
    //! Installs the desktop dialogs used by the default `presentShareSheet` and `pickImage`.
    static void setDialogs(const Dialogs &dialogs);

private:
    bool m_activityVisible = false;
    qint64 m_badgeNumber = 0;
    QString m_documentsPath;
    QString m_temporaryPath;
    QVariantMap m_info;
    bool m_infoSet = false;
};
