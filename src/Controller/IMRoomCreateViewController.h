#pragma once

#include <QImage>
#include <QList>
#include <QPointer>
#include <functional>

#include "IMInviteClient.h"
#include "IMViewController.h"

class QLineEdit;
class QLabel;
class UxButton;

//! What the host offers the create and invite screens: candidates to invite, page by page.
class IMRoomInviteDelegate {
public:
    using InviteComplete = std::function<void(const QList<IMInviteClientPtr> &clients)>;
    virtual ~IMRoomInviteDelegate();
    //! Whether the host offers candidates (it implements `inviteClientWithIndex`); default false.
    virtual bool respondsToInviteClientWithIndex() const;
    //! Delivers up to `limit` candidates from `index` on through `complete` (on the main thread).
    virtual void inviteClientWithIndex(quint64 index, quint64 limit, const InviteComplete &complete);
};

//! The room-creation screen's delegate: the same questions as the invite screen's.
class IMRoomCreateDelegate : public IMRoomInviteDelegate {};

//! Asks for a room name and picture, then creates the room (upload, create, join, close), or, when
//! the host offers invite candidates, goes on to the invite list.
class IMRoomCreateViewController : public IMViewController {
    Q_OBJECT
public:
    //! An unloaded screen (normally made by the storyboard "IMMain").
    explicit IMRoomCreateViewController(QWidget *parent = nullptr);
    //! The delegate (not owned).
    IMRoomCreateDelegate *delegate() const;
    //! Sets the delegate.
    void setDelegate(IMRoomCreateDelegate *delegate);
    //! The name field.
    QLineEdit *roomNameTextField() const;
    //! The picture button (its icon is the chosen picture).
    UxButton *roomThumbnailBtn() const;
    //! The chosen picture (null before one is chosen).
    QImage roomThumbnail() const;
    //! Shows `image` as the chosen picture, as a pick does.
    void setRoomThumbnail(const QImage &image);
    //! The upload overlay (created and put on screen at first read).
    QLabel *progressLabel();
    //! The upload overlay's text for `fraction` (" uploading %d %%").
    static QString progressText(double fraction);

    //! Ends editing (keyboard down).
    void dismissKeyboardBtnPressed();
    //! Dismisses the screen (its navigation controller when it has one).
    void cancelItemPressed();
    //! Offers the camera or the photo library, then the platform's picker.
    void roomThumbnailBtnPressed();
    //! Validates (name first, then picture), then creates the room or opens the invite list.
    void doneItemPressed();

protected:
    void loadView() override;
    void viewDidLoad() override;

private:
    void fail(const QString &text);
    IMRoomCreateDelegate *m_delegate = nullptr;
    QLineEdit *m_name = nullptr;
    UxButton *m_thumbnailBtn = nullptr;
    QImage m_thumbnail;
    QPointer<QLabel> m_progressLabel;
    class IMBarButtonItem *m_doneItem = nullptr;
};
