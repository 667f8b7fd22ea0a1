#include "IMMessageTableViewCell.h"

#include <QPointer>
#include <algorithm>

#include "IMActivityIndicator.h"
#include "IMBubbleView.h"
#include "IMClient.h"
#include "IMDate.h"
#include "IMDispatch.h"
#include "IMGestureRecognizer.h"
#include "IMImage.h"
#include "IMLayoutConstraint.h"
#include "IMLog.h"
#include "IMRelativeDate.h"
#include "Parlo.h"
#include "UxButton.h"
#include "UxImageView.h"
#include "UxLabel.h"
#include "UxTextView.h"
#include "ui_IMMessageTableViewCellLeft.h"
#include "ui_IMMessageTableViewCellLeftImage.h"
#include "ui_IMMessageTableViewCellRight.h"
#include "ui_IMMessageTableViewCellRightImage.h"

const QString CellRight = QStringLiteral("CellRight");
const QString CellLeft = QStringLiteral("CellLeft");
const QString CellRightImage = QStringLiteral("CellRightImage");
const QString CellLeftImage = QStringLiteral("CellLeftImage");

IMMessageTableViewCellDelegate::~IMMessageTableViewCellDelegate() = default;

namespace {
const int kMaxShownCharacters = 4000;
} // namespace
void IMMessageTableViewCellDelegate::IMMessageTableViewCellImageViewDidPressed(IMMessageTableViewCell *) {}

namespace {
template <typename Ui> void setUp(QWidget *content, Ui &ui) { ui.setupUi(content); }
} // namespace

IMMessageTableViewCell::IMMessageTableViewCell(const QString &reuseIdentifier, QWidget *parent)
    : IMTableViewCell(reuseIdentifier, parent)
{
    // One Designer layout per row kind; the views are found by their names.
    if (reuseIdentifier == CellLeftImage) {
        Ui::IMMessageTableViewCellLeftImage ui;
        setUp(contentView(), ui);
    } else if (reuseIdentifier == CellRightImage) {
        Ui::IMMessageTableViewCellRightImage ui;
        setUp(contentView(), ui);
    } else if (reuseIdentifier == CellLeft) {
        Ui::IMMessageTableViewCellLeft ui;
        setUp(contentView(), ui);
    } else {
        Ui::IMMessageTableViewCellRight ui;
        setUp(contentView(), ui);
    }
    connectOutlets();
    m_indicator = findChild<IMActivityIndicator *>(QStringLiteral("indicator"));
    m_subTextView = findChild<UxTextView *>(QStringLiteral("subTextView"));
    m_pictureImageView = findChild<UxImageView *>(QStringLiteral("pictureImageView"));
    m_readLabel = findChild<UxLabel *>(QStringLiteral("readLabel"));
    m_errorButton = findChild<UxButton *>(QStringLiteral("errorButton"));
    m_bubbleView = findChild<IMBubbleView *>(QStringLiteral("bubbleView"));
    m_dateLabel = findChild<UxLabel *>(QStringLiteral("dateLabel"));
    if (m_subTextView) {
        m_subTextView->setFitsContent(true);
        m_subTextView->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
        m_subTextView->viewport()->setAutoFillBackground(false);
    }
    if (m_errorButton)
        m_errorButton->hide();
    m_dateLabelHeight = new IMLayoutConstraint(0, this);
    if (m_dateLabel)
        m_dateLabelHeight->bindFixedHeight(m_dateLabel);
    m_photoHeight = new IMLayoutConstraint(36, this);
    m_photoWidth = new IMLayoutConstraint(36, this);
    if (photoImageView()) {
        m_photoHeight->bindFixedHeight(photoImageView());
        m_photoWidth->bindFixedWidth(photoImageView());
    }
    // Added once, at load: reuse never stacks a second recogniser on the picture.
    if (m_pictureImageView && IMGestureRecognizer::gestureRecognizers(m_pictureImageView).isEmpty())
        tapPhotoImageViewGesture()->addToView(m_pictureImageView);
    setProperty("imSeparator", false);
}

IMMessagePtr IMMessageTableViewCell::message() const { return m_message; }
IMRoomPtr IMMessageTableViewCell::room() const { return m_room; }
quint64 IMMessageTableViewCell::cellType() const { return m_cellType; }
bool IMMessageTableViewCell::showDate() const { return m_showDate; }
IMMessageTableViewCellDelegate *IMMessageTableViewCell::delegate() const { return m_delegate; }
void IMMessageTableViewCell::setDelegate(IMMessageTableViewCellDelegate *delegate) { m_delegate = delegate; }
IMActivityIndicator *IMMessageTableViewCell::indicator() const { return m_indicator; }
UxTextView *IMMessageTableViewCell::subTextView() const { return m_subTextView; }
UxImageView *IMMessageTableViewCell::pictureImageView() const { return m_pictureImageView; }
UxLabel *IMMessageTableViewCell::readLabel() const { return m_readLabel; }
UxButton *IMMessageTableViewCell::errorButton() const { return m_errorButton; }
IMBubbleView *IMMessageTableViewCell::bubbleView() const { return m_bubbleView; }
UxLabel *IMMessageTableViewCell::dateLabel() const { return m_dateLabel; }
IMLayoutConstraint *IMMessageTableViewCell::dateLabelHeight() const { return m_dateLabelHeight; }
IMLayoutConstraint *IMMessageTableViewCell::photoImageViewWidth() const { return m_photoWidth; }
IMLayoutConstraint *IMMessageTableViewCell::photoImageViewHeight() const { return m_photoHeight; }

IMTapGestureRecognizer *IMMessageTableViewCell::tapPhotoImageViewGesture()
{
    if (!m_tap) {
        m_tap = new IMTapGestureRecognizer(
            [this](IMGestureRecognizer *r) {
                if (r->state() == IMGestureRecognizer::Ended && m_delegate)
                    m_delegate->IMMessageTableViewCellImageViewDidPressed(this);
            },
            this);
    }
    return m_tap;
}

void IMMessageTableViewCell::setShowDate(bool show)
{
    m_showDate = show;
    m_dateLabelHeight->setConstant(show ? 21 : 0);
}

void IMMessageTableViewCell::setMessage(const IMMessagePtr &message)
{
    m_message = message;
    if (!message)
        return;
    const IMClientPtr sender = message->sender();
    // Avatar: square from the sender's photo, or a collapsed column without one.
    if (photoImageView() && sender && !sender->photo().isEmpty()) {
        m_photoWidth->setConstant(m_photoHeight->constant());
        photoImageView()->setImageWithURL(QUrl(sender->photo()), IMImage::named(QStringLiteral("placeholder")),
            UxImageOptionSetImageWithFadeAnimation);
    } else {
        m_photoWidth->setConstant(0);
    }
    if (titleLabel())
        titleLabel()->setText(
            sender ? (!sender->username().isEmpty() ? sender->username() : sender->clientID()) : QString());
    if (message->messageType() == kMessageTypeText && m_subTextView) {
        // A row shows the start of a very long text (the message keeps all of it): laying out a
        // megabyte in a bubble would freeze the list.
        const QString text = message->message();
        m_subTextView->setText(
            text.size() > kMaxShownCharacters ? text.left(kMaxShownCharacters) + QChar(0x2026) : text);
    } else if (message->messageType() == kMessageTypeImage && m_pictureImageView) {
        const QImage local = message->temp().value<QImage>();
        if (!local.isNull()) {
            m_pictureImageView->setImage(local);
        } else {
            m_pictureImageView->setImage(QImage());
            QPointer<IMMessageTableViewCell> self(this);
            // The result lands on whatever the row shows by then, as rows are reused without cancelling.
            Parlo::shareInstance()->getFileWithName(
                message->message(), true, [](double) {},
                [self](const QByteArray &data) {
                    if (!self)
                        return;
                    const QImage image = QImage::fromData(data);
                    if (self->m_pictureImageView)
                        self->m_pictureImageView->setImage(
                            image.isNull() ? IMImage::named(QStringLiteral("placeholder")) : image);
                    self->setCellType(0);
                },
                [self](const IMError &error) {
                    IM_LOG(error.description());
                    if (self)
                        self->setCellType(2);
                });
        }
    }
    setCellType(message->sendingType());
    const QDateTime created = IMDate::toDate(message->createdAt());
    if (m_dateLabel)
        m_dateLabel->setText(IMRelativeDateString(created, false));
    if (timeLabel())
        timeLabel()->setText(created.isValid() ? created.toLocalTime().toString(QStringLiteral("HH:mm")) : QString());
}

void IMMessageTableViewCell::setCellType(quint64 type)
{
    // Applied one main-loop turn later, always; the value itself is not stored.
    QPointer<IMMessageTableViewCell> self(this);
    IMDispatchMainAsync([self, type] {
        if (self)
            self->applyCellType(type);
    });
}

QColor IMMessageTableViewCell::backgroundForSendingType(quint64 type)
{
    return type == 3 ? QColor::fromRgbF(1.0, 0.95, 0.73, 1.0) : QColor();
}

void IMMessageTableViewCell::applyCellType(quint64 type)
{
    if (type > 3)
        return;
    if (m_errorButton)
        m_errorButton->setVisible(type == 2);
    if (m_indicator) {
        if (type == 1)
            m_indicator->startAnimating();
        else
            m_indicator->stopAnimating();
    }
    const QColor background = backgroundForSendingType(type);
    contentView()->setStyleSheet(background.isValid()
            ? QStringLiteral("QWidget#contentView { background: %1; }").arg(background.name())
            : QString());
}

void IMMessageTableViewCell::setRoom(const IMRoomPtr &room)
{
    m_room = room;
    const IMClientPtr me = IMClient::currentClient();
    const QString myID = me ? me->clientID() : QString();
    // Plain copies travel to the other thread: the records themselves change on the main thread.
    const QVariantMap readTime = room ? room->readTime() : QVariantMap();
    const QString createdAt = m_message ? m_message->createdAt() : QString();
    const bool known = room && m_message;
    QPointer<IMMessageTableViewCell> self(this);
    // Off the main thread on a serial queue labelled "queue" (one for the process, which lives as
    // long as it: a queue per call would have to be ended by someone after its block).
    static IMDispatchQueue *queue = new IMDispatchQueue(QStringLiteral("queue"));
    queue->async([self, readTime, createdAt, known, myID] {
        const QString text = known ? readStringFor(readTime, createdAt, myID) : QString();
        IMDispatchMainAsync([self, text] {
            if (self && self->m_readLabel)
                self->m_readLabel->setText(text);
        });
    });
}

QString IMMessageTableViewCell::cellIDForMessage(const IMMessagePtr &message, const QString &currentClientID)
{
    if (!message)
        return CellRight;
    const bool own = message->sender() && message->sender()->clientID() == currentClientID;
    if (message->messageType() == kMessageTypeText)
        return own ? CellRight : CellLeft;
    if (message->messageType() == kMessageTypeImage)
        return own ? CellRightImage : CellLeftImage;
    return CellRight;
}

namespace {
bool isReadFor(const QVariantMap &times, const QString &createdAt, const QString &me)
{
    for (auto it = times.constBegin(); it != times.constEnd(); ++it) {
        if (it.key() == me)
            continue;
        const QDateTime read = IMDate::toDate(it.value().toString());
        const QDateTime created = IMDate::toDate(createdAt);
        return read.isValid() && created.isValid() && read > created;
    }
    return false;
}

int readCountFor(QVariantMap times, const QString &createdAt, const QString &me)
{
    if (createdAt.isEmpty())
        return 0;
    times.remove(me);
    QStringList list;
    for (const QVariant &v : times)
        list << v.toString();
    list << createdAt;
    std::sort(list.begin(), list.end());
    std::reverse(list.begin(), list.end());
    return int(list.indexOf(createdAt));
}
} // namespace

QString IMMessageTableViewCell::readStringFor(const QVariantMap &readTime, const QString &createdAt, const QString &me)
{
    const int n = readTime.size();
    if (n < 2 || n >= 10000)
        return QStringLiteral("");
    if (n == 2)
        return isReadFor(readTime, createdAt, me) ? tr("已讀") : QStringLiteral("");
    const int k = readCountFor(readTime, createdAt, me);
    return k ? QStringLiteral("%1 %2").arg(k).arg(tr("已讀")) : QStringLiteral("");
}

QString IMMessageTableViewCell::readString(const IMRoomPtr &room, const IMMessagePtr &message, const QString &me)
{
    if (!room || !message)
        return QString();
    return readStringFor(room->readTime(), message->createdAt(), me);
}

bool IMMessageTableViewCell::isRead(const IMRoomPtr &room, const IMMessagePtr &message, const QString &me)
{
    return room && message && isReadFor(room->readTime(), message->createdAt(), me);
}

int IMMessageTableViewCell::readCount(const IMRoomPtr &room, const IMMessagePtr &message, const QString &me)
{
    return room && message ? readCountFor(room->readTime(), message->createdAt(), me) : 0;
}
