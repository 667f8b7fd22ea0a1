#include "IMRoomCreateViewController.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

#include "IMActivityIndicator.h"
#include "IMAnimation.h"
#include "IMBarButtonItem.h"
#include "IMFile.h"
#include "IMImage.h"
#include "IMLog.h"
#include "IMMessage.h"
#include "IMNavigationItem.h"
#include "IMPlatform.h"
#include "IMRoom.h"
#include "IMRoomInviteViewController.h"
#include "IMStoryboard.h"
#include "IMUINavigationController.h"
#include "Parlo.h"
#include "UxAlertController.h"
#include "UxButton.h"
#include "ui_IMRoomCreateViewController.h"

IM_STORYBOARD_SCREEN(IMRoomCreateViewController);

IMRoomInviteDelegate::~IMRoomInviteDelegate() = default;
bool IMRoomInviteDelegate::respondsToInviteClientWithIndex() const { return false; }
void IMRoomInviteDelegate::inviteClientWithIndex(quint64, quint64, const InviteComplete &complete)
{
    if (complete)
        complete({});
}

namespace {
const char *kBorderless
    = "border: 1px solid transparent; border-radius: 10px; background: white; padding: 0 12px; font-size: 16px;";
const char *kRedBorder
    = "border: 1px solid red; border-radius: 10px; background: white; padding: 0 12px; font-size: 16px;";
} // namespace

IMRoomCreateViewController::IMRoomCreateViewController(QWidget *parent)
    : IMViewController(parent)
{
    setObjectName(QStringLiteral("IMRoomCreateViewController"));
}

IMRoomCreateDelegate *IMRoomCreateViewController::delegate() const { return m_delegate; }
void IMRoomCreateViewController::setDelegate(IMRoomCreateDelegate *delegate) { m_delegate = delegate; }
QLineEdit *IMRoomCreateViewController::roomNameTextField() const { return m_name; }
UxButton *IMRoomCreateViewController::roomThumbnailBtn() const { return m_thumbnailBtn; }
QImage IMRoomCreateViewController::roomThumbnail() const { return m_thumbnail; }

void IMRoomCreateViewController::loadView()
{
    Ui::IMRoomCreateViewController ui;
    ui.setupUi(this);
    m_name = ui.roomNameTextField;
    m_thumbnailBtn = ui.roomThumbnailBtn;
    m_name->setStyleSheet(QLatin1String(kBorderless));
    connect(m_thumbnailBtn, &QPushButton::clicked, this, &IMRoomCreateViewController::roomThumbnailBtnPressed);
}

void IMRoomCreateViewController::viewDidLoad()
{
    IMViewController::viewDidLoad();
    if (title().isEmpty())
        setTitle(tr("建立聊天室"));
    setRoomThumbnail(QImage());
    navigationItem()->setLeftBarButtonItem(
        new IMBarButtonItem(tr("取消"), IMBarButtonItem::Plain, [this] { cancelItemPressed(); }));
    m_doneItem = new IMBarButtonItem(tr("完成"), IMBarButtonItem::Done, [this] { doneItemPressed(); });
    navigationItem()->setRightBarButtonItem(m_doneItem);
}

void IMRoomCreateViewController::setRoomThumbnail(const QImage &image)
{
    m_thumbnail = image;
    // Aspect-fill into a rounded square; the camera glyph while there is no picture.
    const int side = 120;
    QImage shown(side * 2, side * 2, QImage::Format_ARGB32_Premultiplied);
    shown.setDevicePixelRatio(2);
    shown.fill(Qt::transparent);
    QPainter p(&shown);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(0, 0, side, side), 24, 24);
    p.setClipPath(clip);
    if (image.isNull()) {
        p.fillRect(QRectF(0, 0, side, side), QColor(229, 229, 234));
        const QImage camera = IMImage::named(QStringLiteral("camera"));
        const QSizeF c = QSizeF(camera.size()) / camera.devicePixelRatio() * 1.6;
        p.drawImage(QRectF((side - c.width()) / 2, (side - c.height()) / 2, c.width(), c.height()), camera);
    } else {
        const QSizeF s = QSizeF(side, side).scaled(QSizeF(image.size()), Qt::KeepAspectRatio);
        p.drawImage(QRectF(0, 0, side, side), image,
            QRectF((image.width() - s.width()) / 2, (image.height() - s.height()) / 2, s.width(), s.height()));
    }
    p.end();
    m_thumbnailBtn->setIcon(QIcon(QPixmap::fromImage(shown)));
}

QString IMRoomCreateViewController::progressText(double fraction)
{
    return QStringLiteral(" uploading %1 %").arg(int(fraction * 100));
}

QLabel *IMRoomCreateViewController::progressLabel()
{
    if (!m_progressLabel) {
        auto *label = new QLabel(this);
        label->setObjectName(QStringLiteral("progressLabel"));
        label->setAlignment(Qt::AlignCenter);
        label->setStyleSheet(QStringLiteral("background: rgba(0,0,0,0.6); color: white; font-size: 16px;"));
        auto *indicator = new IMActivityIndicator(label);
        indicator->setObjectName(QStringLiteral("indicator"));
        indicator->setColor(Qt::white);
        indicator->resize(30, 30);
        indicator->startAnimating();
        m_progressLabel = label;
    }
    if (!m_progressLabel->isVisible() || m_progressLabel->parentWidget() != this) {
        m_progressLabel->setParent(this);
        m_progressLabel->setGeometry(rect());
        if (auto *indicator = m_progressLabel->findChild<IMActivityIndicator *>())
            indicator->move(width() / 2 - 15, height() / 2 + 30 - 15);
        m_progressLabel->show();
        m_progressLabel->raise();
        IMViewSetAlpha(m_progressLabel, 0);
        QPointer<QLabel> label = m_progressLabel;
        IMAnimate(0.2, [label] { IMViewSetAlpha(label, 1); });
    }
    return m_progressLabel;
}

void IMRoomCreateViewController::dismissKeyboardBtnPressed() { endEditing(); }

void IMRoomCreateViewController::cancelItemPressed()
{
    if (navigationController())
        navigationController()->dismissViewControllerAnimated(true);
    else
        dismissViewControllerAnimated(true);
}

void IMRoomCreateViewController::roomThumbnailBtnPressed()
{
    QPointer<IMRoomCreateViewController> self(this);
    UxAlertController::showWithController(
        this, tr("取消"), 0, QString(), tr("照片來自"), {tr("照相機"), tr("照片圖庫")}, [self](int index) {
            if (!self || (index != 0 && index != 1))
                return;
            IMPlatform::instance()->pickImage(index == 0 ? 0 : 1, self, [self](const QImage &image) {
                if (self && !image.isNull())
                    self->setRoomThumbnail(image);
            });
        });
}

void IMRoomCreateViewController::doneItemPressed()
{
    m_name->setStyleSheet(QLatin1String(kBorderless));
    m_thumbnailBtn->setStyleSheet(QString());
    if (m_name->text().isEmpty()) {
        m_name->setStyleSheet(QLatin1String(kRedBorder));
        return;
    }
    if (m_thumbnail.isNull()) {
        m_thumbnailBtn->setStyleSheet(QStringLiteral("border: 1px solid red; border-radius: 24px;"));
        return;
    }
    if (m_delegate && m_delegate->respondsToInviteClientWithIndex()) {
        IMStoryboard *board = IMStoryboard::storyboardWithName(QStringLiteral("IMMain"));
        auto *invite = board ? qobject_cast<IMRoomInviteViewController *>(
                           board->instantiateViewControllerWithIdentifier(QStringLiteral("IMRoomInviteViewController")))
                             : nullptr;
        if (!invite)
            return;
        invite->roomName = m_name->text();
        invite->roomThumbnail = m_thumbnail;
        invite->setDelegate(m_delegate);
        if (navigationController())
            navigationController()->pushViewController(invite, true);
        else
            delete invite;
        return;
    }

    auto room = std::make_shared<IMRoom>();
    room->setName(m_name->text());
    room->setIsPublic(true);
    if (m_doneItem)
        m_doneItem->setEnabled(false);
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    m_thumbnail.save(&buffer, "JPEG", 40);
    QPointer<IMRoomCreateViewController> self(this);
    Parlo *parlo = Parlo::shareInstance();
    parlo->uploadFileWithData(
        jpeg, kMessageTypeImage, nullptr, true,
        [self](double fraction) {
            if (self)
                self->progressLabel()->setText(progressText(fraction));
        },
        [self, room, parlo](const IMFilePtr &file) {
            IM_LOG(QString::fromUtf8(QJsonDocument::fromVariant(file->toDictionary()).toJson(QJsonDocument::Compact)));
            room->setThumbnail(file->fileName());
            parlo->createRoom(
                room,
                [self, parlo](const IMRoomPtr &created) {
                    parlo->joinRoom(
                        created,
                        [self](const IMRoomPtr &) {
                            if (!self)
                                return;
                            if (self->m_doneItem)
                                self->m_doneItem->setEnabled(true);
                            if (self->navigationController())
                                self->navigationController()->dismissViewControllerAnimated(true);
                            else
                                self->dismissViewControllerAnimated(true);
                        },
                        [self](const IMError &e) {
                            if (self)
                                self->fail(e.description());
                        });
                },
                [self](const IMError &e) {
                    if (self)
                        self->fail(e.description());
                });
        },
        [self](const IMError &e) {
            if (self)
                self->fail(e.description());
        });
}

void IMRoomCreateViewController::fail(const QString &text)
{
    if (m_doneItem)
        m_doneItem->setEnabled(true);
    IM_LOG(text);
    if (m_progressLabel) {
        m_progressLabel->hide();
        m_progressLabel->setParent(nullptr);
        m_progressLabel->deleteLater();
    }
}
