#include "IMViewController.h"

#include "IMBarButtonItem.h"
#include "IMKeyboard.h"
#include "IMNavigationBar.h"
#include "IMNavigationItem.h"
#include "IMTableView.h"
#include "IMUINavigationController.h"
#include "UxLabel.h"

IMViewController::IMViewController(QWidget *parent)
    : IMUIViewController(parent)
{
    IMKeyboard::install();
}

IMViewController::~IMViewController()
{
    // The registrations outlive each disappearance on purpose; they end with the screen.
    for (const auto &entry : m_keyboardTokens)
        IMNotificationCenter::defaultCenter()->removeObserver(entry.second);
}

IMTableView *IMViewController::tableview() const { return m_tableview; }

void IMViewController::setTableview(IMTableView *tableView) { m_tableview = tableView; }

void IMViewController::viewDidLoad()
{
    IMUIViewController::viewDidLoad();
    if (m_tableview) {
        // An empty footer: no separator lines under the last row.
        auto *footer = new QWidget;
        footer->setFixedSize(0, 0);
        m_tableview->setTableFooterView(footer);
    }
    if (navigationController()) {
        // The next screen shows a bare back arrow.
        IMBarButtonItem *old = navigationItem()->backBarButtonItem();
        const IMBarButtonItem::Style style = old ? old->style() : IMBarButtonItem::Plain;
        navigationItem()->setBackBarButtonItem(new IMBarButtonItem(QStringLiteral(""), style));
    }
}

void IMViewController::viewWillAppear(bool animated)
{
    IMUIViewController::viewWillAppear(animated);
    const auto token = IMNotificationCenter::defaultCenter()->addObserver(
        kIMKeyboardWillChangeFrameNotification, [this](const IMNotification &n) { keyboardChangeFrame(n); });
    m_keyboardTokens.append({kIMKeyboardWillChangeFrameNotification, token});
    setNavigationBarTitle(QString());
}

void IMViewController::viewDidDisappear(bool animated)
{
    IMUIViewController::viewDidDisappear(animated);
    // Only the did-change name is removed, and the screen never observes it: the will-change
    // registrations stay, and a new one is added at each appearance (subclasses tolerate repeats).
    for (int i = m_keyboardTokens.size() - 1; i >= 0; --i) {
        if (m_keyboardTokens[i].first == kIMKeyboardDidChangeFrameNotification) {
            IMNotificationCenter::defaultCenter()->removeObserver(m_keyboardTokens[i].second);
            m_keyboardTokens.removeAt(i);
        }
    }
}

int IMViewController::keyboardObserverCount() const { return m_keyboardTokens.size(); }

void IMViewController::setNavigationBarTitle(const QString &title)
{
    if (!title.isEmpty())
        setTitle(title);
    IMUINavigationController *nav = navigationController();
    if (!nav)
        return;
    auto *label = new UxLabel;
    label->setGeometry(10, 10, 20, 40);
    label->setTextColor(nav->navigationBar()->tintColor());
    const QString current = navigationItem()->title();
    if (current.isEmpty()) {
        delete label;
        return;
    }
    label->setObjectName(QStringLiteral("IMNavigationTitleLabel"));
    QFont f = label->font();
    f.setPointSizeF(f.pointSizeF() * 1.15);
    f.setBold(true);
    label->setFont(f);
    label->setAlignment(Qt::AlignCenter);
    label->setText(current);
    navigationItem()->setTitleView(label);
}

void IMViewController::keyboardChangeFrame(const IMNotification &notification)
{
    const QRect frame = notification.userInfo.value(QStringLiteral("frameEnd")).toRect();
    const float duration = notification.userInfo.value(QStringLiteral("duration")).toFloat();
    keyboardWillChangeToFrame(frame, duration);
}

void IMViewController::keyboardWillChangeToFrame(const QRect &, float) {}
