// The conversation's input bar: typing, sending, editing, re-sending, pictures and the share link.
#include <QBuffer>
#include <QKeyEvent>
#include <QLayout>
#include <QPointer>
#include <QResizeEvent>
#include <QUrl>
#include <cmath>

#include "IMAnimation.h"
#include "IMClient.h"
#include "IMDispatch.h"
#include "IMFile.h"
#include "IMLayoutConstraint.h"
#include "IMLog.h"
#include "IMMessageOption.h"
#include "IMMessageSend.h"
#include "IMMessageViewController.h"
#include "IMPlatform.h"
#include "Parlo.h"
#include "UxAlertController.h"
#include "UxButton.h"
#include "UxLabel.h"
#include "UxTextView.h"

namespace {
constexpr qreal kLineHeight = 17;
constexpr qreal kTextInsets = 13;
constexpr int kMaxLines = 5;

QString currentUsername()
{
    const IMClientPtr me = IMClient::currentClient();
    return me ? me->username() : QString();
}

// A message of `type` from the signed-in user to `room`. The sender is set here too, so the row is
// drawn on the user's side from the start rather than after the server's echo.
IMMessagePtr outgoingMessage(const IMRoomPtr &room, const QString &type, const QString &text)
{
    IMMessagePtr message = IMMessage::initWithRoom(room);
    message->setSender(IMClient::currentClient());
    message->setMessageType(type);
    message->setMessage(text);
    return message;
}

void setPushPreview(const IMMessagePtr &message, const QString &preview)
{
    if (message->option())
        message->option()->setPushMessage(preview);
}
} // namespace

IMMessageTableViewCell *IMMessageViewController::rowAt(int row) const
{
    return tableview()
        ? qobject_cast<IMMessageTableViewCell *>(tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(row)))
        : nullptr;
}

void IMMessageViewController::redrawRow(int row)
{
    if (row >= 0 && row < m_dataSource.size())
        tableview()->reloadRowsAtIndexPaths({IMIndexPath::indexPathForRow(row)}, IMTableView::RowAnimationNone);
}

void IMMessageViewController::textViewDidChange(UxTextView *textView)
{
    QPointer<IMMessageViewController> self(this);
    QPointer<UxTextView> view(textView);
    IMDispatchMainAsync([self, view] {
        if (!self || !view || !self->inputTextViewHeight)
            return;
        const int lines = qMin(view->numberOfLine(), kMaxLines);
        self->inputTextViewHeight->setConstant(kLineHeight * lines + kTextInsets);
        self->layout()->activate();
    });
}

bool IMMessageViewController::eventFilter(QObject *watched, QEvent *event)
{
    // A list at its bottom stays there when it gets shorter (the bar grows) or narrower (rows grow).
    if (tableview() && watched == tableview()->viewport() && event->type() == QEvent::Resize) {
        const QSize old = static_cast<QResizeEvent *>(event)->oldSize();
        const IMTableView *table = tableview();
        if (old.isValid()
            && std::abs(old.height() - (table->contentSize().height() - table->contentOffset().y())) < 120) {
            QPointer<IMMessageViewController> self(this);
            IMDispatchMainAsync([self] {
                if (self)
                    self->scrollToBottomWithAnimate(false);
            });
        }
    }
    // Return sends, Shift+Return (or Alt/Ctrl) starts a new line, as in desktop chat programs.
    if (sendsOnReturn && watched == inputTextView && event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) && key->modifiers() == Qt::NoModifier) {
            sendMessageBtnPressed();
            return true;
        }
    }
    return IMViewController::eventFilter(watched, event);
}

void IMMessageViewController::appendSentRow(const IMMessagePtr &message, IMTableView::RowAnimation animation)
{
    m_dataSource.append(message);
    const int row = m_dataSource.size() - 1;
    tableview()->insertRowsAtIndexPaths({IMIndexPath::indexPathForRow(row)}, animation);
    if (IMMessageTableViewCell *cell = rowAt(row))
        cell->setCellType(message->sendingType());
    tableview()->layoutIfNeeded();
    scrollToBottomWithAnimate(true);
}

void IMMessageViewController::sendMessageBtnPressed()
{
    if (!inputTextView)
        return;
    const QString text = inputTextView->text();
    if (editingIndex != -1) {
        // Finishing an edit updates the message in place, even with an empty text; no row is added.
        const int row = editingIndex;
        editingIndex = -1;
        if (const IMMessagePtr message = m_dataSource.value(row)) {
            message->setMessage(text);
            message->setSendingType(IMMessageSendingTypeSettled);
            IMMessageUpdate(message);
            redrawRow(row);
        }
        endEditing();
        IMAnimate(0.3, [this] {
            inputViewToBottomDistance->setConstant(0);
            cancelBtnLeadingDistance->setConstant(cancelBtn->x() + cancelBtn->width());
            layout()->activate();
        });
    } else {
        if (text.isEmpty())
            return;
        if (text.size() > kMaxTextLength) {
            // Kept in the text view: the server would refuse a packet this large and drop the connection.
            IM_LOG(QStringLiteral("text too long: %1 characters, at most %2").arg(text.size()).arg(kMaxTextLength));
            UxAlertController::showWithController(
                this, tr("好"), 1, tr("訊息太長"), tr("一則訊息最多 %1 個字").arg(kMaxTextLength), {}, {});
            return;
        }
        const IMMessagePtr message = outgoingMessage(m_room, kMessageTypeText, text);
        setPushPreview(message, QStringLiteral("%1:%2").arg(currentUsername(), text));
        appendSentRow(message, IMTableView::RowAnimationBottom);
        IMMessageSend(message);
    }
    inputTextView->setText(QString());
    inputTextViewHeight->setConstant(30);
}

void IMMessageViewController::resendBtnPressed(QWidget *button)
{
    QWidget *view = button;
    while (view && !qobject_cast<IMTableViewCell *>(view))
        view = view->parentWidget();
    auto *cell = qobject_cast<IMTableViewCell *>(view);
    if (!cell || !tableview())
        return;
    const int row = tableview()->indexPathForCell(cell).row;
    const IMMessagePtr message = m_dataSource.value(row);
    if (!message)
        return;
    if (message->messageType() == kMessageTypeImage) {
        // A picture row in error failed to download (or to upload): dressing it again retries the download.
        redrawRow(row);
        return;
    }
    if (auto *messageRow = qobject_cast<IMMessageTableViewCell *>(cell))
        messageRow->setCellType(1);
    Parlo::shareInstance()->sendMessage(
        message, [](const IMMessagePtr &) {}, [](const IMError &error) { IM_LOG(error.description()); });
}

void IMMessageViewController::moreButtonDidPressed()
{
    endEditing();
    const bool atBottom = isTableViewAtBottom();
    QPointer<IMMessageViewController> self(this);
    IMAnimate(
        0.3,
        [this] {
            const qreal panel = moreActionContenterView->height();
            inputViewToBottomDistance->setConstant(inputViewToBottomDistance->constant() != panel ? panel : 0);
            layout()->activate();
        },
        [self, atBottom](bool) {
            if (self && atBottom)
                self->scrollToBottomWithAnimate(true);
        });
}

IMImagePickerController *IMMessageViewController::imagePickerController()
{
    if (!m_picker) {
        m_picker = new IMImagePickerController(this);
        m_picker->setDelegate(this);
    }
    return m_picker;
}

void IMMessageViewController::cameraBtnPressed()
{
    QPointer<IMMessageViewController> self(this);
    UxAlertController::showWithController(
        this, tr("取消"), 0, tr("照片來自"), QString(), {tr("照相機"), tr("相片圖庫")}, [self](int index) {
            if (!self || (index != 0 && index != 1))
                return;
            IMImagePickerController *picker = self->imagePickerController();
            picker->setSourceType(index == 0 ? IMImagePickerController::SourceTypeCamera
                                             : IMImagePickerController::SourceTypePhotoLibrary);
            picker->presentOver(self);
        });
}

void IMMessageViewController::imagePickerController(IMImagePickerController *picker, const QVariantMap &info)
{
    const QImage image = info.value(kIMImagePickerControllerOriginalImage).value<QImage>();
    if (!image.isNull()) {
        const IMMessagePtr message = outgoingMessage(m_room, kMessageTypeImage, QStringLiteral("sending image"));
        message->setTemp(QVariant::fromValue(image));
        appendSentRow(message, IMTableView::RowAnimationNone);
        uploadPicture(message, image);
    } else {
        IM_LOG(QStringLiteral("the picker gave no picture"));
    }
    if (picker)
        picker->dismissAnimated(true);
}

void IMMessageViewController::uploadPicture(const IMMessagePtr &message, const QImage &image)
{
    QPointer<IMMessageViewController> self(this);
    const IMRoomPtr room = m_room;
    const auto failed = [self, message](const QString &why) {
        IM_LOG(why);
        message->setSendingType(IMMessageSendingTypeFailed);
        if (self)
            if (IMMessageTableViewCell *cell = self->rowAt(self->m_dataSource.indexOf(message)))
                cell->setCellType(IMMessageSendingTypeFailed);
    };
    // Scaling and encoding a large picture takes long enough to stall typing: done off the main thread.
    IMDispatchQueue::globalQueue()->async([self, message, image, room, failed] {
        const QImage sent = qMax(image.width(), image.height()) > kMaxPictureSide
            ? image.scaled(kMaxPictureSide, kMaxPictureSide, Qt::KeepAspectRatio, Qt::SmoothTransformation)
            : image;
        QByteArray jpeg;
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        sent.save(&buffer, "JPEG", 50);
        IMDispatchMainAsync([self, message, room, jpeg, failed] {
            if (jpeg.isEmpty()) {
                failed(QStringLiteral("the picture could not be encoded"));
                return;
            }
            Parlo::shareInstance()->uploadFileWithData(
                jpeg, kMessageTypeImage, room, false,
                [self, message](double fraction) {
                    // The row is found afresh at each report; one scrolled out of view is not updated.
                    if (!self)
                        return;
                    if (IMMessageTableViewCell *cell = self->rowAt(self->m_dataSource.indexOf(message));
                        cell && cell->timeLabel())
                        cell->timeLabel()->setText(QStringLiteral("%1 %").arg(int(fraction * 100)));
                },
                [message](const IMFilePtr &file) {
                    message->setMessage(file ? file->fileName() : QString());
                    setPushPreview(message, QStringLiteral("%1 %2").arg(currentUsername(), tr("傳送一張照片")));
                    Parlo::shareInstance()->sendMessage(
                        message, [message](const IMMessagePtr &) { message->setTemp(QVariant()); },
                        [](const IMError &error) { IM_LOG(error.description()); });
                },
                [failed](const IMError &error) { failed(error.description()); });
        });
    });
}

void IMMessageViewController::didChooseEditMessage(const IMMessagePtr &message, const IMIndexPath &indexPath)
{
    if (!message || !inputTextView)
        return;
    message->setSendingType(IMMessageSendingTypeEdited);
    redrawRow(indexPath.row);
    inputTextView->setText(message->message());
    inputTextView->setFocus();
    inputTextView->moveCursor(QTextCursor::End);
    textViewDidChange(inputTextView);
    IMAnimate(0.2, [this] { cancelBtnLeadingDistance->setConstant(8); });
    editingIndex = indexPath.row;
}

void IMMessageViewController::cancelBtnPressed()
{
    if (editingIndex == -1)
        return;
    if (const IMMessagePtr message = m_dataSource.value(editingIndex)) {
        message->setSendingType(IMMessageSendingTypeSettled);
        redrawRow(editingIndex);
    }
    inputTextView->setText(QStringLiteral(""));
    endEditing();
    IMAnimate(0.3, [this] {
        cancelBtnLeadingDistance->setConstant(cancelBtn->width() + 8 + 8);
        inputViewToBottomDistance->setConstant(0);
        layout()->activate();
    });
    editingIndex = -1;
}

void IMMessageViewController::shareRoomWithURLSchemeLastObjectBtnPressed()
{
    Parlo *parlo = Parlo::shareInstance();
    const QString type = parlo->urlType();
    if (type.isNull()) {
        IM_LOG(QStringLiteral("url type not found"));
        return;
    }
    const QString link
        = QStringLiteral("%1/%2?urlType=%3&appID=%4&action=joinRoom")
              .arg(parlo->urlStringForScheme(), m_room ? m_room->objectID() : QString(), type, parlo->appIDOnStore());
    IMPlatform::instance()->presentShareSheet({QUrl(link)}, this);
}
