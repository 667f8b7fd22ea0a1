#include "IMMessageViewController.h"

#include <QPainter>
#include <QPointer>
#include <QToolButton>
#include <cmath>
#include <limits>

#include "IMAnimation.h"
#include "IMBarButtonItem.h"
#include "IMBubbleView.h"
#include "IMClient.h"
#include "IMColor.h"
#include "IMDispatch.h"
#include "IMGestureRecognizer.h"
#include "IMImage.h"
#include "IMLayoutConstraint.h"
#include "IMLog.h"
#include "IMMessageContainerViewController.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMStoryboard.h"
#include "IMWindow.h"
#include "Parlo.h"
#include "UxButton.h"
#include "UxLabel.h"
#include "UxTextView.h"
#include "ui_IMMessageViewController.h"

IM_STORYBOARD_SCREEN(IMMessageViewController);

const QString kIMLaunchOptionsRemoteNotificationKey = QStringLiteral("UIApplicationLaunchOptionsRemoteNotificationKey");

namespace {
// The share symbol of the more panel: a tray with an arrow leaving it.
QImage shareIcon(const QColor &color)
{
    QImage image(56, 56, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(color, 4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPolyline(QPolygonF {{18, 22}, {10, 22}, {10, 50}, {46, 50}, {46, 22}, {38, 22}});
    p.drawLine(QPointF(28, 34), QPointF(28, 6));
    p.drawPolyline(QPolygonF {{19, 14}, {28, 5}, {37, 14}});
    return image;
}

QString currentClientID()
{
    const IMClientPtr me = IMClient::currentClient();
    return me ? me->clientID() : QString();
}
} // namespace

IMMessageViewController::IMMessageViewController(QWidget *parent)
    : IMViewController(parent)
{
    setObjectName(QStringLiteral("IMMessageViewController"));
}

IMMessageViewController::~IMMessageViewController()
{
    if (Parlo::shareInstance()->delegate() == static_cast<ParloDelegate *>(this))
        Parlo::shareInstance()->setDelegate(nullptr);
}

IMRoomPtr IMMessageViewController::room() const { return m_room; }
QList<IMMessagePtr> IMMessageViewController::dataSource() const { return m_dataSource; }

void IMMessageViewController::setDataSource(const QList<IMMessagePtr> &messages)
{
    m_dataSource = messages;
    if (tableview())
        tableview()->reloadData();
}

QString IMMessageViewController::titleForRoom(const IMRoomPtr &room, const QString &me)
{
    if (!room)
        return QString();
    const QVariantList members = room->client();
    if (members.size() != 2)
        return QStringLiteral("%1 (%2)").arg(room->name()).arg(members.size());
    for (const QVariant &entry : members) {
        const IMClientPtr client = IMClient::fromDictionary(entry.toMap());
        if (client && client->clientID() != me)
            return !client->username().isEmpty() ? client->username() : client->clientID();
    }
    return QString();
}

void IMMessageViewController::setRoom(const IMRoomPtr &room)
{
    m_room = room;
    if (isCustomizedChatroomTitle || !room)
        return;
    const QString title = titleForRoom(room, currentClientID());
    if (title.isNull())
        return;
    if (room->client().size() != 2)
        qDebug().noquote() << IM_LOG_LINE() << title;
    setTitle(title);
}

void IMMessageViewController::setTitle(const QString &title)
{
    IMViewController::setTitle(title);
    if (auto *label = qobject_cast<QLabel *>(navigationItem()->titleView())) {
        label->setText(title);
        label->setAlignment(Qt::AlignCenter);
    }
}

IMTapGestureRecognizer *IMMessageViewController::tapOnTableView()
{
    if (!m_tap)
        m_tap = new IMTapGestureRecognizer([this](IMGestureRecognizer *) { tapOnTableViewEvent(); }, this);
    return m_tap;
}

IMLongPressGestureRecognizer *IMMessageViewController::longPressGesturer()
{
    if (!m_longPress) {
        m_longPress = new IMLongPressGestureRecognizer([this](IMGestureRecognizer *r) { longPress(r); }, this);
        m_longPress->setMinimumPressDuration(1.0);
    }
    return m_longPress;
}

void IMMessageViewController::loadView()
{
    Ui::IMMessageViewController ui;
    ui.setupUi(this);
    setTableview(ui.tableview);
    m_inputBar = ui.inputBar;
    // The list takes the height; the bar and the panel under it only what they need.
    ui.inputBar->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);
    ui.moreActionContenterView->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    ui.screenLayout->setStretchFactor(ui.tableview, 1);
    inputTextView = ui.inputTextView;
    sendMessageBtn = ui.sendMessageBtn;
    moreOptionBtn = ui.moreOptionBtn;
    pictureBtn = ui.pictureBtn;
    cancelBtn = ui.cancelBtn;
    moreActionContenterView = ui.moreActionContenterView;
    pictureBtn->setImage(IMImage::named(QStringLiteral("camera")));
    pictureBtn->setIconSize(QSize(26, 22));
    inputTextView->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    inputTextViewHeight = new IMLayoutConstraint(30, this);
    inputTextViewHeight->bindFixedHeight(inputTextView);
    inputTextViewLeadingDistance = new IMLayoutConstraint(8, this);
    inputTextViewLeadingDistance->bind([this](qreal c) { moreOptionBtn->setVisible(c < 60); }, this);
    // The space under the bar is the keyboard's or the more panel's; the panel sits at its top.
    inputViewToBottomDistance = new IMLayoutConstraint(0, this);
    inputViewToBottomDistance->bindFixedHeight(ui.inputBarBottomSpace);
    cancelBtnWidth = new IMLayoutConstraint(cancelBtn->sizeHint().width(), this);
    cancelBtnWidth->bindFixedWidth(cancelBtn);
    pictureBtnWidth = new IMLayoutConstraint(30, this);
    pictureBtnWidth->bindFixedWidth(pictureBtn);
    optionViewWidth = new IMLayoutConstraint(30, this);
    optionViewWidth->bindFixedWidth(moreOptionBtn);
    cancelBtnLeadingDistance = new IMLayoutConstraint(cancelBtnWidth->constant() + 8 + 8, this);
    cancelBtnLeadingDistance->bind([this](qreal c) { cancelBtn->setVisible(c <= 8); }, this);
    connect(sendMessageBtn, &QPushButton::clicked, this, [this] { sendMessageBtnPressed(); });
    connect(moreOptionBtn, &QPushButton::clicked, this, [this] { moreButtonDidPressed(); });
    connect(pictureBtn, &QPushButton::clicked, this, [this] { cameraBtnPressed(); });
    connect(cancelBtn, &QPushButton::clicked, this, [this] { cancelBtnPressed(); });
    connect(ui.morePictureBtn, &QPushButton::clicked, this, [this] { cameraBtnPressed(); });
    connect(ui.moreShareBtn, &QPushButton::clicked, this, [this] { shareRoomWithURLSchemeLastObjectBtnPressed(); });
    ui.morePictureBtn->setIcon(QIcon(QPixmap::fromImage(IMImage::named(QStringLiteral("camera")))));
    ui.moreShareBtn->setIcon(QIcon(QPixmap::fromImage(shareIcon(QColor(0x3a, 0x3a, 0x3c)))));
    inputTextView->document()->setDocumentMargin(4); // with the frame and padding: 13 points around the lines
    connect(inputTextView, &QPlainTextEdit::textChanged, this, [this] { textViewDidChange(inputTextView); });
    inputTextView->installEventFilter(this);
    // Every row is measured, so the content height after a page is exact for the offset arithmetic.
    ui.tableview->setEstimatedRowHeight(0);
    ui.tableview->setShowsSeparators(false);
    for (const QString &id : {CellRight, CellLeft, CellRightImage, CellLeftImage}) {
        ui.tableview->registerCell(id, [this, id] {
            auto *cell = new IMMessageTableViewCell(id);
            if (UxButton *error = cell->errorButton())
                connect(error, &QPushButton::clicked, this, [this, error] { resendBtnPressed(error); });
            return cell;
        });
    }
}

void IMMessageViewController::viewDidLoad()
{
    IMViewController::viewDidLoad();
    editingIndex = -1;
    isCustomizedChatroomTitle = false;
    tableview()->setDelegate(this);
    tableview()->setDataSource(this);
    tapOnTableView()->addToView(tableview());
    longPressGesturer()->addToView(tableview());
    tableview()->viewport()->installEventFilter(this);
    Parlo::shareInstance()->updateReadTimeWithRoom(m_room, echoReadToRoom);
    ParloDidChatIn();
    // The input bar's buttons take the bar's tint, or its background when the tint is white.
    if (navigationController() && !disableTintColor) {
        navigationController()->layout()->activate();
        IMNavigationBar *bar = navigationController()->navigationBar();
        QColor tint = bar->tintColor();
        if (IMColorIsEqualToColor(tint, Qt::white))
            tint = bar->barTintColor();
        for (UxButton *button : {sendMessageBtn, moreOptionBtn, pictureBtn, cancelBtn})
            button->setTintColor(tint);
    }
    if (!showMoreOptionBtn)
        inputTextViewLeadingDistance->setConstant(60);
}

void IMMessageViewController::viewWillAppear(bool animated)
{
    IMViewController::viewWillAppear(animated);
    Parlo::shareInstance()->setDelegate(this);
    inputViewToBottomDistance->setConstant(0);
    layout()->activate();
}

void IMMessageViewController::keyboardWillChangeToFrame(const QRect &frame, float duration)
{
    moveInputBar(frame.top(), frame.height(), duration);
}

void IMMessageViewController::moveInputBar(qreal keyboardTop, qreal keyboardHeight, double duration)
{
    const bool atBottom = isTableViewAtBottom();
    QPointer<IMMessageViewController> self(this);
    IMAnimate(
        duration,
        [this, keyboardTop, keyboardHeight] {
            const qreal overlap = height() - keyboardTop;
            if (overlap < keyboardHeight)
                inputViewToBottomDistance->setConstant(keyboardHeight);
            else if (overlap <= 0)
                inputViewToBottomDistance->setConstant(0);
            else
                inputViewToBottomDistance->setConstant(overlap);
            layout()->activate();
        },
        [self, atBottom](bool) {
            if (self && atBottom)
                self->scrollToBottomWithAnimate(true);
        });
}

void IMMessageViewController::ParloDidChatIn()
{
    if (Parlo::shareInstance()->connectStatus() != ParloConnectStatusConnected)
        return;
    setRoom(m_room);
    QPointer<IMMessageViewController> self(this);
    loadMessageComplete([self] {
        if (!self)
            return;
        self->tableview()->layoutIfNeeded();
        self->scrollToBottomWithAnimate(false);
    });
}

void IMMessageViewController::loadMessageComplete(const std::function<void()> &complete)
{
    QPointer<IMMessageViewController> self(this);
    Parlo::shareInstance()->messageWithRoom(
        m_room, 0, kPageSize,
        [self, complete](const QList<IMMessagePtr> &messages) {
            if (!self)
                return;
            if (messages.size() < kPageSize)
                self->isLoadEnd = true;
            // Messages written here while the page was on its way, and not stored yet, stay at the bottom.
            QList<IMMessagePtr> rows = messages;
            for (const IMMessagePtr &m : std::as_const(self->m_dataSource))
                if (m && m->objectID().isEmpty())
                    rows << m;
            self->setDataSource(rows);
            self->isLoadingMore = false;
            Parlo::shareInstance()->updateReadTimeWithRoom(self->m_room, self->echoReadToRoom);
            if (complete)
                complete();
        },
        [self, complete](const IMError &) {
            if (!self)
                return;
            self->isLoadingMore = false;
            // Retried each second for as long as someone is signed in.
            IMDispatchAfter(1.0, [self, complete] {
                if (self && !currentClientID().isEmpty())
                    self->loadMessageComplete(complete);
            });
        });
}

void IMMessageViewController::loadOlderPage()
{
    isLoadingMore = true;
    QPointer<IMMessageViewController> self(this);
    const qint64 offset = m_dataSource.size();
    Parlo::shareInstance()->messageWithRoom(
        m_room, offset, kPageSize,
        [self](const QList<IMMessagePtr> &messages) {
            IMDispatchMainAsync([self, messages] {
                if (!self)
                    return;
                self->m_dataSource = messages + self->m_dataSource;
                // The rows that were on screen stay in view: the offset becomes the height added above
                // them (the current offset is deliberately not added).
                IMTableView *table = self->tableview();
                const qreal oldHeight = table->contentSize().height();
                const qreal oldX = table->contentOffset().x();
                table->reloadData();
                table->setContentOffset(QPointF(oldX, table->contentSize().height() - oldHeight));
                self->isLoadingMore = false;
                if (messages.size() < kPageSize)
                    self->isLoadEnd = true;
            });
        },
        [self](const IMError &) {
            if (self)
                self->isLoadingMore = false;
        });
}

void IMMessageViewController::scrollToBottomWithAnimate(bool animated)
{
    if (m_dataSource.isEmpty() || !tableview())
        return;
    // (The phone screen also switched view animations back on here; in this kit that switch belongs
    // to the host and the tests, so the screen leaves it alone.)
    tableview()->scrollToRowAtIndexPath(
        IMIndexPath::indexPathForRow(m_dataSource.size() - 1), IMTableView::ScrollPositionBottom, animated);
}

bool IMMessageViewController::isTableViewAtBottom() const
{
    const IMTableView *table = tableview();
    if (!table)
        return true;
    return std::abs(table->height() - (table->contentSize().height() - table->contentOffset().y())) < 120;
}

void IMMessageViewController::tapOnTableViewEvent()
{
    endEditing();
    // As for a keyboard gone below the screen: its top at the largest float, no height.
    if (inputViewToBottomDistance && inputViewToBottomDistance->constant() > 1)
        moveInputBar(std::numeric_limits<float>::max(), 0, 0.3);
}

bool IMMessageViewController::isThisRoom(const IMRoomPtr &room) const
{
    return room && m_room && room->objectID() == m_room->objectID();
}

void IMMessageViewController::ParloDidReceiveMessage(const IMMessagePtr &message)
{
    if (!message || !isThisRoom(message->room()))
        return;
    if (message->sender() && message->sender()->clientID() != currentClientID())
        Parlo::shareInstance()->updateReadTimeWithRoom(m_room, echoReadToRoom);
}

void IMMessageViewController::ParloDidReceiveMessageFromOthers(const IMMessagePtr &message)
{
    if (!message || !isThisRoom(message->room()))
        return;
    const bool atBottom = isTableViewAtBottom();
    m_dataSource.append(message);
    tableview()->insertRowsAtIndexPaths(
        {IMIndexPath::indexPathForRow(m_dataSource.size() - 1)}, IMTableView::RowAnimationNone);
    if (atBottom)
        scrollToBottomWithAnimate(true);
}

void IMMessageViewController::ParloDidUpdateMessage(const IMMessagePtr &message)
{
    if (!message || !isThisRoom(message->room()))
        return;
    // The scan stops at index 1: an update to the oldest loaded message shows only after a reload.
    for (int i = m_dataSource.size() - 1; i >= 1; --i) {
        if (m_dataSource[i] && m_dataSource[i]->objectID() == message->objectID()) {
            m_dataSource[i] = message;
            tableview()->reloadRowsAtIndexPaths({IMIndexPath::indexPathForRow(i)}, IMTableView::RowAnimationFade);
            return;
        }
    }
}

void IMMessageViewController::ParloDidChangeMessageSendingType(const IMMessagePtr &message)
{
    const int index = m_dataSource.indexOf(message);
    if (index < 0)
        return;
    if (auto *cell = qobject_cast<IMMessageTableViewCell *>(
            tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(index))))
        cell->setMessage(message);
}

void IMMessageViewController::ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &room)
{
    if (!isThisRoom(room))
        return;
    // The screen takes the new room once per visible row, inside the walk, as it always has.
    for (IMTableViewCell *cell : tableview()->visibleCells()) {
        setRoom(room);
        if (echoReadToRoom)
            if (auto *row = qobject_cast<IMMessageTableViewCell *>(cell))
                row->setRoom(room);
    }
}

void IMMessageViewController::ParloDidUpdateRoom(const IMRoomPtr &room)
{
    if (!isThisRoom(room))
        return;
    setRoom(room);
    IM_LOG(QStringLiteral("title : %1").arg(room->name()));
}

void IMMessageViewController::ParloDidUpdateBadge(const IMBadgePtr &) {}

QString IMMessageViewController::cellIDForMessage(const IMMessagePtr &message)
{
    return IMMessageTableViewCell::cellIDForMessage(message, currentClientID());
}

IMMessageTableViewCell *IMMessageViewController::customCellWithIdentifier(
    const QString &identifier, const IMMessagePtr &message, IMMessageTableViewCell *cell, const IMIndexPath &indexPath)
{
    if (!cell)
        return cell;
    cell->setMessage(message);
    if (echoReadToRoom)
        cell->setRoom(m_room);
    cell->setDelegate(this);
    if (identifier == CellRight && cell->bubbleView() && navigationController()) {
        // The layout's default blue takes the bar's colour.
        if (cell->bubbleView()->bubbleColor().name(QColor::HexArgb)
            == QColor::fromRgbF(0, 122 / 255.0, 1, 1).name(QColor::HexArgb)) {
            IMNavigationBar *bar = navigationController()->navigationBar();
            cell->bubbleView()->setBubbleColor(bar->barTintColor().isValid() ? bar->barTintColor() : bar->tintColor());
        }
    }
    if (indexPath.row == 0)
        cell->setShowDate(false); // the first message carries no date header
    else if (message && !message->createdAt().isEmpty())
        cell->setShowDate(message->isDifferentDateWithMessage(m_dataSource.value(indexPath.row - 1)));
    return cell;
}

int IMMessageViewController::numberOfRowsInSection(IMTableView *, int) { return m_dataSource.size(); }

IMTableViewCell *IMMessageViewController::cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath)
{
    const IMMessagePtr message = m_dataSource.value(indexPath.row);
    const QString id = cellIDForMessage(message);
    auto *cell = qobject_cast<IMMessageTableViewCell *>(tableView->dequeueReusableCellWithIdentifier(id, indexPath));
    return customCellWithIdentifier(id, message, cell, indexPath);
}

qreal IMMessageViewController::heightForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath)
{
    const IMMessagePtr message = m_dataSource.value(indexPath.row);
    if (!message || message->messageType() == kMessageTypeDelete)
        return 0;
    const QString id = cellIDForMessage(message);
    const QString key
        = QStringLiteral("%1%2").arg(message->message(), message->sender() ? message->sender()->clientID() : QString());
    return tableView->heightForCellWithIdentifier(id, key, [&](IMTableViewCell *cell) {
        customCellWithIdentifier(id, message, qobject_cast<IMMessageTableViewCell *>(cell), indexPath);
    });
}

void IMMessageViewController::willDisplayCell(IMTableView *, IMTableViewCell *, const IMIndexPath &indexPath)
{
    if (indexPath.row != 3 || isLoadEnd || isLoadingMore)
        return;
    // The first time row 3 shows is the initial layout's scroll to the bottom: ignored on purpose.
    if (!stopOnce) {
        stopOnce = true;
        return;
    }
    loadOlderPage();
}

void IMMessageViewController::prepareForSegue(const QString &identifier, IMUIViewController *destination)
{
    IMViewController::prepareForSegue(identifier, destination);
    if (identifier == QLatin1String("IMMessageContainerViewController")) {
        contrinaer = qobject_cast<IMMessageContainerViewController *>(destination);
        if (contrinaer)
            contrinaer->setRoom(m_room);
    }
}

bool IMMessageViewController::handleRemoteNotificationAppdelegateWindow(
    IMWindow *window, const QVariantMap &launchOptions)
{
    const QVariantMap payload = launchOptions.value(kIMLaunchOptionsRemoteNotificationKey).toMap();
    if (!window || payload.isEmpty() || !payload.contains(QStringLiteral("IMRoom")))
        return false;
    const IMRoomPtr room = IMRoom::fromDictionary(payload.value(QStringLiteral("IMRoom")).toMap());
    IMStoryboard *board = IMStoryboard::storyboardWithName(QStringLiteral("IMMain"));
    auto *screen = board ? qobject_cast<IMMessageViewController *>(
                       board->instantiateViewControllerWithIdentifier(QStringLiteral("IMMessageViewController")))
                         : nullptr;
    if (!room || !screen) {
        delete screen;
        return false;
    }
    screen->setRoom(room);
    auto *nav = new IMNavigationController(screen);
    nav->navigationBar()->setBarStyle(IMNavigationBar::BarStyleBlack);
    screen->tempViewController = window->rootViewController();
    screen->window = window;
    window->setRootViewController(nav);
    QPointer<IMMessageViewController> guard(screen);
    screen->navigationItem()->setLeftBarButtonItem(
        new IMBarButtonItem(IMImage::named(QStringLiteral("expand_arrow")), IMBarButtonItem::Plain, [guard] {
            if (guard)
                guard->dismissFromRemoteNotification();
        }));
    return true;
}

void IMMessageViewController::dismissFromRemoteNotification()
{
    if (auto *host = qobject_cast<IMWindow *>(window); host && tempViewController)
        host->setRootViewController(tempViewController);
}
