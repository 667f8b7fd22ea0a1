#include "IMRoomTableViewCell.h"

#include <QEvent>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QPointer>

#include "IMClient.h"
#include "IMDate.h"
#include "IMDispatch.h"
#include "IMImage.h"
#include "IMMessage.h"
#include "IMRelativeDate.h"
#include "Parlo.h"
#include "UxImageView.h"
#include "UxLabel.h"
#include "ui_IMRoomTableViewCell.h"

namespace {
// Paints a one-line label's text with an ellipsis when it does not fit, leaving its text whole.
class ElideFilter : public QObject {
public:
    using QObject::QObject;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *label = qobject_cast<QLabel *>(watched);
        if (!label || event->type() != QEvent::Paint)
            return false;
        const QRect area = label->contentsRect();
        if (label->fontMetrics().horizontalAdvance(label->text()) <= area.width())
            return false;
        QPainter p(label);
        p.setFont(label->font());
        p.setPen(label->palette().color(label->foregroundRole()));
        p.drawText(area, int(label->alignment()),
            label->fontMetrics().elidedText(label->text(), Qt::ElideRight, area.width()));
        return true;
    }
};
} // namespace

IMRoomTableViewCell::IMRoomTableViewCell(const QString &reuseIdentifier, QWidget *parent)
    : IMTableViewCell(reuseIdentifier, parent)
{
    Ui::IMRoomTableViewCell ui;
    ui.setupUi(contentView());
    connectOutlets();
    m_subTitleLabel = ui.subTitleLabel;
    m_badgeLabel = ui.badgeLabel;
    // A long last message or title ends in "…" instead of being cut at the time column.
    auto *elide = new ElideFilter(this);
    m_subTitleLabel->installEventFilter(elide);
    titleLabel()->installEventFilter(elide);
    // The designed default colours; the room list restyles them from its bar.
    m_badgeLabel->setTextColor(QColor::fromRgbF(0, 128 / 255.0, 1, 1));
    m_badgeLabel->setProperty("backgroundColor", QColor(0, 0, 0, 0));
    m_badgeLabel->hide();
    photoImageView()->setImage(IMImage::named(QStringLiteral("placeholder")));
    setProperty("imSeparatorInset", 80);
}

IMRoomPtr IMRoomTableViewCell::room() const { return m_room; }
UxLabel *IMRoomTableViewCell::subTitleLabel() const { return m_subTitleLabel; }
UxLabel *IMRoomTableViewCell::badgeLabel() const { return m_badgeLabel; }

bool IMRoomTableViewCell::isRoomHasTwoClient() const { return m_room && m_room->client().size() == 2; }

QString IMRoomTableViewCell::subtitleForMessage(const QVariantMap &message)
{
    const QString type = message.value(QStringLiteral("messageType")).toString();
    if (type == kMessageTypeText)
        return message.value(QStringLiteral("message")).toString();
    if (type == kMessageTypeImage)
        return tr("傳送了一張照片");
    if (type == kMessageTypeAudio)
        return tr("傳送了一個聲音訊息");
    if (type == kMessageTypeVideo)
        return tr("傳送了一個影片");
    if (type == kMessageTypeGeo)
        return tr("傳送了一個位置");
    if (type == kMessageTypeSticker)
        return tr("傳送了一個貼圖");
    return QStringLiteral("");
}

QString IMRoomTableViewCell::badgeText(qint32 badge) { return QString::number(badge > 99 ? 99 : badge); }

QString IMRoomTableViewCell::timeText(const QString &lastMessageTime)
{
    return IMRelativeDateString(IMDate::toDate(lastMessageTime), true);
}

void IMRoomTableViewCell::setRoom(const IMRoomPtr &room)
{
    m_room = room;
    if (!room)
        return;
    const QString me = IMClient::currentClient() ? IMClient::currentClient()->clientID() : QString();
    if (!isRoomHasTwoClient()) {
        const QString thumbnail = room->thumbnail();
        if (thumbnail.contains(QLatin1String("http"))) {
            photoImageView()->setImageWithURL(QUrl(thumbnail), QImage(), UxImageOptionSetImageWithFadeAnimation);
        } else if (!thumbnail.isEmpty()) {
            // A file on the server: fetched through the kit's cache, shown at a tenth of its size.
            QPointer<UxImageView> photo = photoImageView();
            Parlo::shareInstance()->getFileWithNameProgress(
                thumbnail, [](double) {},
                [photo](const QByteArray &data) {
                    // Scaled on a serial queue labelled "queue" (one for the process, living as long as it).
                    static IMDispatchQueue *queue = new IMDispatchQueue(QStringLiteral("queue"));
                    queue->async([photo, data] {
                        QImage image = QImage::fromData(data);
                        QImage small;
                        if (!image.isNull()) {
                            small = QImage(qMax(1, image.width() / 10), qMax(1, image.height() / 10),
                                QImage::Format_ARGB32_Premultiplied);
                            small.fill(Qt::transparent);
                            QPainter p(&small);
                            p.setRenderHint(QPainter::SmoothPixmapTransform);
                            p.drawImage(small.rect(), image);
                        }
                        IMDispatchMainAsync([photo, small] {
                            if (photo && !small.isNull())
                                photo->setImage(small);
                        });
                    });
                },
                [](const IMError &) {});
        }
        titleLabel()->setText(room->name());
    } else {
        for (const QVariant &entry : room->client()) {
            IMClientPtr client = IMClient::fromDictionary(entry.toMap());
            if (!client || client->clientID() == me)
                continue;
            photoImageView()->setImageWithURL(QUrl(client->photo()), IMImage::named(QStringLiteral("placeholder")),
                UxImageOptionSetImageWithFadeAnimation);
            titleLabel()->setText(!client->username().isEmpty() ? client->username() : client->clientID());
            if (titleLabel()->text().isEmpty())
                titleLabel()->setText(room->name());
            break;
        }
    }
    const QVariantList messages = room->message();
    m_subTitleLabel->setText(messages.isEmpty() ? QStringLiteral("") : subtitleForMessage(messages.first().toMap()));
    m_badgeLabel->setText(badgeText(room->badge()));
    m_badgeLabel->setVisible(room->badge() != 0);
    timeLabel()->setText(timeText(room->lastMessageTime()));
}
