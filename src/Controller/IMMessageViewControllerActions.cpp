// The conversation's message actions (the long-press menus) and the full-screen picture viewer.
#include <QLayout>
#include <QPointer>
#include <cmath>

#include "IMAnimation.h"
#include "IMClient.h"
#include "IMGestureRecognizer.h"
#include "IMLayoutConstraint.h"
#include "IMLog.h"
#include "IMMessageViewController.h"
#include "IMPlatform.h"
#include "IMWindow.h"
#include "Parlo.h"
#include "UxAlertController.h"
#include "UxImageView.h"

namespace {
bool isOwnMessage(const IMMessagePtr &message)
{
    const IMClientPtr me = IMClient::currentClient();
    return me && message->sender() && message->sender()->clientID() == me->clientID();
}

// Shows a menu of `buttons` with only a cancel title, and hands the chosen index on while the screen lives.
void showMenu(IMMessageViewController *screen, const QStringList &buttons, const std::function<void(int)> &chosen)
{
    QPointer<IMMessageViewController> self(screen);
    UxAlertController::showWithController(
        screen, IMMessageViewController::tr("取消"), 0, QString(), QString(), buttons, [self, chosen](int index) {
            if (self)
                chosen(index);
        });
}
} // namespace

void IMMessageViewController::longPress(IMGestureRecognizer *recognizer)
{
    const IMIndexPath indexPath = tableview()->indexPathForRowAtPoint(recognizer->locationInView(tableview()));
    if (recognizer->state() == IMGestureRecognizer::Began)
        longPressForMessageAtRowOfIndexPath(indexPath);
}

void IMMessageViewController::longPressForMessageAtRowOfIndexPath(const IMIndexPath &indexPath)
{
    const IMMessagePtr message = m_dataSource.value(indexPath.row);
    if (!message || indexPath.row < 0)
        return;
    if (message->messageType() == kMessageTypeText)
        didLongPressOnTextMessage(message, indexPath);
    else if (message->messageType() == kMessageTypeImage)
        didLongPressOnImageMessage(message, indexPath);
}

void IMMessageViewController::didLongPressOnTextMessage(const IMMessagePtr &message, const IMIndexPath &indexPath)
{
    QStringList buttons {tr("複製文字")};
    if (isOwnMessage(message))
        buttons << tr("編輯訊息") << tr("刪除訊息");
    showMenu(this, buttons, [this, message, indexPath](int index) {
        if (index == 0)
            didChooseCopyMessageText(message, indexPath);
        else if (index == 1)
            didChooseEditMessage(message, indexPath);
        else if (index == 2)
            didChooseDeleteMessage(message, indexPath);
    });
}

void IMMessageViewController::didLongPressOnImageMessage(const IMMessagePtr &message, const IMIndexPath &indexPath)
{
    QStringList buttons {tr("存到相簿"), tr("分享照片")};
    if (isOwnMessage(message))
        buttons << tr("刪除訊息");
    showMenu(this, buttons, [this, message, indexPath](int index) {
        if (index == 0) {
            // Saved as downloaded; a failure is silent.
            Parlo::shareInstance()->getFileWithNameProgress(
                message->message(), {},
                [](const QByteArray &data) {
                    const QImage image = QImage::fromData(data);
                    if (!image.isNull())
                        IMPlatform::instance()->saveImageToPhotoAlbum(image);
                },
                [](const IMError &) {});
        } else if (index == 1) {
            IMMessageTableViewCell *cell = rowAt(indexPath.row);
            const QImage image = cell && cell->pictureImageView() ? cell->pictureImageView()->image() : QImage();
            IMPlatform::instance()->presentShareSheet({image}, this);
        } else if (index == 2) {
            didChooseDeleteMessage(message, indexPath);
        }
    });
}

void IMMessageViewController::didChooseCopyMessageText(const IMMessagePtr &message, const IMIndexPath &)
{
    if (message)
        IMPlatform::instance()->setPasteboardString(message->message());
}

void IMMessageViewController::didChooseDeleteMessage(const IMMessagePtr &message, const IMIndexPath &)
{
    if (!message)
        return;
    // The row stays: it collapses when the server's update comes back through the delegate.
    message->setMessageWithType(7);
    Parlo::shareInstance()->updateMessage(
        message,
        [](const IMMessagePtr &done) {
            IM_LOG(QStringLiteral("success  %1").arg(done ? done->objectID() : QString()));
        },
        [](const IMError &error) { IM_LOG(QStringLiteral("err  %1").arg(error.description())); });
}

void IMMessageViewController::IMMessageTableViewCellImageViewDidPressed(IMMessageTableViewCell *cell)
{
    window = IMWindow::firstWindow();
    if (!window || !cell || !cell->pictureImageView())
        return;
    endEditing();
    closePictureViewer();
    auto *backdrop = new QWidget(window);
    backdrop->setObjectName(QStringLiteral("imageViewBackgroundView"));
    backdrop->setAttribute(Qt::WA_StyledBackground);
    backdrop->setStyleSheet(QStringLiteral("QWidget#imageViewBackgroundView { background: rgba(0, 0, 0, 204); }"));
    backdrop->setGeometry(window->rect());
    auto *picture = new UxImageView(backdrop);
    picture->setObjectName(QStringLiteral("imageView"));
    picture->setContentMode(UxImageView::AspectFit);
    picture->setImage(cell->pictureImageView()->image());
    picture->setGeometry(backdrop->rect());
    auto *pan = new IMPanGestureRecognizer([this](IMGestureRecognizer *r) { didPan(r); }, picture);
    pan->addToView(picture);
    imageView = picture;
    imageViewBackgroundView = backdrop;
    IMViewSetAlpha(backdrop, 0);
    backdrop->show();
    backdrop->raise();
    IMAnimate(0.2, [this, backdrop] {
        IMViewSetAlpha(backdrop, 1);
        inputViewToBottomDistance->setConstant(0);
        layout()->activate();
    });
}

bool IMMessageViewController::isPictureNearHome(const QSizeF &size, const QPointF &center)
{
    // Compared in single precision, so exactly 50 points away counts as moved.
    const float dx = std::fabs(float(size.width()) / 2 - float(center.x()));
    const float dy = std::fabs(float(size.height()) / 2 - float(center.y()));
    return dx < 50.0f && dy < 50.0f;
}

void IMMessageViewController::didPan(IMGestureRecognizer *recognizer)
{
    if (!imageView || !imageViewBackgroundView)
        return;
    const QPointF location = recognizer->locationInView(imageViewBackgroundView);
    switch (recognizer->state()) {
    case IMGestureRecognizer::Began:
        panPoint = location;
        break;
    case IMGestureRecognizer::Changed:
        IMViewSetCenter(imageView, IMViewCenter(imageView) + (location - panPoint));
        panPoint = location;
        break;
    case IMGestureRecognizer::Ended: {
        const QSizeF size = imageView->size();
        if (isPictureNearHome(size, IMViewCenter(imageView))) {
            QPointer<UxImageView> picture(imageView);
            IMAnimate(0.3, [picture, size] {
                if (picture)
                    IMViewSetCenter(picture, QPointF(size.width() / 2, size.height() / 2));
            });
        } else {
            closePictureViewer();
        }
        break;
    }
    default:
        break;
    }
}

void IMMessageViewController::closePictureViewer()
{
    QPointer<QWidget> backdrop = imageViewBackgroundView;
    if (!backdrop)
        return;
    imageViewBackgroundView = nullptr;
    imageView = nullptr;
    IMAnimate(
        0.2,
        [backdrop] {
            if (backdrop)
                IMViewSetAlpha(backdrop, 0);
        },
        [backdrop](bool) {
            if (backdrop)
                backdrop->deleteLater();
        });
}
