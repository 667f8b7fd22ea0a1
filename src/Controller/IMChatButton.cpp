#include "IMChatButton.h"

#include <QPainter>
#include <QPainterPath>
#include <QResizeEvent>

#include "IMBadge.h"
#include "IMBarButtonItem.h"
#include "IMClient.h"
#include "IMDispatch.h"
#include "IMImage.h"
#include "IMLog.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMRoomViewController.h"
#include "IMStoryboard.h"
#include "Parlo.h"
#include "ParloNotifications.h"
#include "UxLabel.h"

IMChatButton::IMChatButton(QWidget *parent)
    : UxButton(parent)
{
    setObjectName(QStringLiteral("IMChatButton"));
    setMinimumSize(44, 44);
    set();
}

IMChatButton::~IMChatButton()
{
    for (IMNotificationCenter::Token token : m_tokens)
        IMNotificationCenter::defaultCenter()->removeObserver(token);
}

void IMChatButton::set()
{
    // Notifications may come from other threads; the button changes on the main thread only.
    QPointer<IMChatButton> self(this);
    auto onMain = [self](const std::function<void(IMChatButton *)> &fn) {
        IMDispatchMainAsync([self, fn] {
            if (self)
                fn(self);
        });
    };
    if (m_tokens.isEmpty()) {
        IMNotificationCenter *center = IMNotificationCenter::defaultCenter();
        m_tokens << center->addObserver(kParloDidUpdateBadge, [onMain](const IMNotification &n) {
            const IMBadgePtr badge = n.object.value<IMBadgePtr>();
            const quint64 total = badge ? quint64(qMax(0, badge->total())) : 0;
            onMain([total](IMChatButton *b) { b->setBadgeNumber(total); });
        });
        m_tokens << center->addObserver(kParloDidChangeConnectStatus, [onMain](const IMNotification &n) {
            const int status = n.userInfo.value(QStringLiteral("status")).toInt();
            onMain([status](IMChatButton *b) {
                if (b->m_disableWhenDisconnect)
                    b->setEnabled(status == ParloConnectStatusConnected);
            });
        });
        m_tokens << center->addObserver(kParloDidChatIn, [onMain](const IMNotification &n) {
            const IMClientPtr client = n.object.value<IMClientPtr>();
            const quint64 total = client ? client->totalBadge() : 0;
            onMain([total](IMChatButton *b) { b->setBadgeNumber(total); });
        });
    }
    connect(this, &QPushButton::clicked, this, &IMChatButton::pressed, Qt::UniqueConnection);
    const IMBadgePtr badge = Parlo::shareInstance()->badge();
    setBadgeNumber(badge ? quint64(qMax(0, badge->total())) : 0);
}

IMUIViewController *IMChatButton::viewController() const
{
    for (QWidget *w = parentWidget(); w; w = w->parentWidget())
        if (auto *vc = qobject_cast<IMUIViewController *>(w))
            return vc;
    return nullptr;
}

IMRoomViewController *IMChatButton::roomController() const { return m_roomController; }
bool IMChatButton::stausBarLight() const { return m_light; }
void IMChatButton::setStausBarLight(bool light) { m_light = light; }
QColor IMChatButton::primaryColor() const { return m_primary; }
void IMChatButton::setPrimaryColor(const QColor &color)
{
    m_primary = color;
    update();
}
QColor IMChatButton::secondColor() const { return m_second; }
void IMChatButton::setSecondColor(const QColor &color)
{
    m_second = color;
    update();
}
bool IMChatButton::disableWhenDisconnect() const { return m_disableWhenDisconnect; }
void IMChatButton::setDisableWhenDisconnect(bool disable) { m_disableWhenDisconnect = disable; }
quint64 IMChatButton::badgeNumber() const { return m_badgeNumber; }

void IMChatButton::setBadgeNumber(quint64 number)
{
    m_badgeNumber = number;
    UxLabel *label = badgeLabel();
    label->setText(QString::number(number));
    label->setVisible(number != 0);
    layoutBadge();
}

UxLabel *IMChatButton::badgeLabel()
{
    if (!m_badgeLabel) {
        auto *label = new UxLabel(this);
        label->setObjectName(QStringLiteral("badgeLabel"));
        label->setAlignment(Qt::AlignCenter);
        label->setTextColor(Qt::white);
        // A red pill: 21 high, at least 21 wide, flush with the top-right corner.
        label->setStyleSheet(
            QStringLiteral("background: #ff3b30; color: white; border-radius: 10px; padding: 0 5px; font-size: 13px;"));
        label->hide();
        m_badgeLabel = label;
        layoutBadge();
    }
    return m_badgeLabel;
}

void IMChatButton::layoutBadge()
{
    if (!m_badgeLabel)
        return;
    const int w = qMax(21, m_badgeLabel->sizeHint().width());
    m_badgeLabel->setGeometry(width() - w, 0, w, 21);
    m_badgeLabel->raise();
}

void IMChatButton::resizeEvent(QResizeEvent *event)
{
    UxButton::resizeEvent(event);
    layoutBadge();
}

void IMChatButton::pressed()
{
    IMUIViewController *presenter = viewController();
    if (!presenter) {
        IM_LOG(QStringLiteral("self.viewController is nil"));
        return;
    }
    if (presenter->presentedViewController()) {
        IM_LOG(QStringLiteral("presentedViewController"));
        return;
    }
    const IMClientPtr me = IMClient::currentClient();
    if (!me || me->clientID().isEmpty()) {
        IM_LOG(QStringLiteral("plz sign & chatin first"));
        return;
    }
    IMStoryboard *board = IMStoryboard::storyboardWithName(QStringLiteral("IMMain"));
    auto *rooms = board ? qobject_cast<IMRoomViewController *>(
                      board->instantiateViewControllerWithIdentifier(QStringLiteral("IMRoomViewController")))
                        : nullptr;
    if (!rooms) {
        IM_LOG(QStringLiteral("IMMain.storyboard or IMRoomViewController is not exists"));
        return;
    }
    m_roomController = rooms;
    auto *nav = new IMNavigationController(rooms);
    rooms->navigationItem()->setLeftBarButtonItem(new IMBarButtonItem(
        IMImage::named(QStringLiteral("expand_arrow")), IMBarButtonItem::Plain, [this] { dismiss(); }));
    if (m_light)
        nav->setUIStatusBarStyleLight(true);
    if (m_primary.isValid())
        nav->navigationBar()->setBarTintColor(m_primary);
    if (m_second.isValid())
        nav->navigationBar()->setTintColor(m_second);
    presenter->presentViewController(nav, true);
}

void IMChatButton::dismiss()
{
    if (m_roomController && m_roomController->navigationController())
        m_roomController->navigationController()->dismissViewControllerAnimated(true);
}

void IMChatButton::paintEvent(QPaintEvent *event)
{
    if (!text().isEmpty() || !icon().isNull()) {
        UxButton::paintEvent(event);
        return;
    }
    // The default face: a round button in the primary colour with a speech bubble.
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal side = qMin(width(), height()) - 4;
    const QRectF circle((width() - side) / 2, (height() - side) / 2 + 1, side, side);
    QColor fill = m_primary.isValid() ? m_primary : QColor(0, 122, 255);
    if (!isEnabled())
        fill = QColor(174, 174, 178);
    else if (isDown())
        fill = fill.darker(115);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 40));
    p.drawEllipse(circle.translated(0, 2));
    p.setBrush(fill);
    p.drawEllipse(circle);
    QImage glyph
        = IMImage::named(QStringLiteral("Combined Shape")).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    {
        QPainter g(&glyph);
        g.setCompositionMode(QPainter::CompositionMode_SourceIn);
        g.fillRect(glyph.rect(), m_second.isValid() ? m_second : QColor(Qt::white));
    }
    const qreal gw = side * 0.46;
    const qreal gh = gw * glyph.height() / qMax(1, glyph.width());
    p.drawImage(QRectF(circle.center().x() - gw / 2, circle.center().y() - gh / 2, gw, gh), glyph);
}
