#include "IMUIViewController.h"

#include <QApplication>
#include <QCoreApplication>
#include <QPointer>
#include <QShowEvent>
#include <QVBoxLayout>

#include "IMAnimation.h"
#include "IMNavigationItem.h"
#include "IMUINavigationController.h"

struct IMUIViewController::Private {
    bool loaded = false;
    bool loading = false;
    bool appeared = false;
    IMNavigationItem *navigationItem = nullptr;
    QPointer<IMUIViewController> presented;
    QPointer<IMUIViewController> presenting;
    QString title;
};

namespace {
void post(const std::function<void()> &fn)
{
    if (fn)
        QMetaObject::invokeMethod(QCoreApplication::instance(), fn, Qt::QueuedConnection);
}

// Keeps a presented screen filling its window as the window resizes.
class FillParent : public QObject {
public:
    FillParent(QWidget *child)
        : QObject(child)
        , m_child(child)
    {
        child->parentWidget()->installEventFilter(this);
    }
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Resize && m_child && watched == m_child->parentWidget())
            m_child->setGeometry(m_child->parentWidget()->rect());
        return false;
    }

private:
    QPointer<QWidget> m_child;
};
} // namespace

// The outermost screen under this one in its window: what a full-window presentation covers.
static IMUIViewController *coveredScreen(IMUIViewController *vc)
{
    IMUIViewController *top = vc;
    for (QWidget *w = vc->parentWidget(); w; w = w->parentWidget())
        if (auto *outer = qobject_cast<IMUIViewController *>(w))
            top = outer;
    return top;
}

IMUIViewController::IMUIViewController(QWidget *parent)
    : QWidget(parent)
    , d(new Private)
{
    setAttribute(Qt::WA_StyledBackground, true);
    setAutoFillBackground(true);
}

IMUIViewController::~IMUIViewController() { delete d; }

void IMUIViewController::loadViewIfNeeded()
{
    if (d->loaded || d->loading)
        return;
    d->loading = true;
    loadView();
    d->loaded = true;
    d->loading = false;
    viewDidLoad();
}

bool IMUIViewController::isViewLoaded() const { return d->loaded; }

QString IMUIViewController::title() const { return d->title; }

void IMUIViewController::setTitle(const QString &title)
{
    d->title = title;
    navigationItem()->setTitle(title);
    setWindowTitle(title);
}

IMNavigationItem *IMUIViewController::navigationItem()
{
    if (!d->navigationItem)
        d->navigationItem = new IMNavigationItem(this);
    return d->navigationItem;
}

IMUINavigationController *IMUIViewController::navigationController() const
{
    for (QWidget *w = parentWidget(); w; w = w->parentWidget()) {
        // A screen in the stack, or embedded in one that is, belongs to that navigation controller.
        if (auto *nav = qobject_cast<IMUINavigationController *>(w)) {
            for (IMUIViewController *vc : nav->viewControllers())
                if (vc == this || vc->isAncestorOf(this))
                    return nav;
        }
    }
    return nullptr;
}

void IMUIViewController::presentViewController(
    IMUIViewController *vc, bool animated, const std::function<void()> &completion)
{
    if (!vc || vc == this) {
        post(completion);
        return;
    }
    if (d->presented) {
        // One screen at a time, as on a phone: present from the top of the chain.
        d->presented->presentViewController(vc, animated, completion);
        return;
    }
    QWidget *host = window();
    vc->d->presenting = this;
    d->presented = vc;
    vc->setParent(host);
    vc->setWindowFlags(Qt::Widget);
    new FillParent(vc);
    vc->loadViewIfNeeded();
    const QRect full = host->rect();
    vc->setGeometry(full);
    // The covered screens go off screen, as a full-window presentation does; they come back at dismissal.
    coveredScreen(this)->setAppearing(false, animated);
    vc->setAppearing(true, animated);
    vc->show();
    vc->raise();
    if (animated && IMAnimationsEnabled()) {
        vc->setGeometry(full.translated(0, full.height()));
        IMAnimate(
            0.3, [vc, full] { IMViewSetGeometry(vc, full); },
            [completion](bool) {
                if (completion)
                    completion();
            });
    } else {
        post(completion);
    }
}

void IMUIViewController::dismissViewControllerAnimated(bool animated, const std::function<void()> &completion)
{
    IMUIViewController *target = d->presented;
    if (!target) {
        // A presented screen (or one inside a presented container) dismisses itself.
        for (QWidget *w = this; w; w = w->parentWidget()) {
            auto *vc = qobject_cast<IMUIViewController *>(w);
            if (vc && vc->d->presenting) {
                target = vc;
                break;
            }
        }
    }
    if (!target) {
        post(completion);
        return;
    }
    if (target->d->presented)
        target->dismissViewControllerAnimated(false);
    IMUIViewController *presenter = target->d->presenting;
    if (presenter)
        presenter->d->presented = nullptr;
    target->d->presenting = nullptr;
    target->setAppearing(false, animated);
    if (presenter)
        coveredScreen(presenter)->setAppearing(true, animated);
    QPointer<IMUIViewController> guard(target);
    auto finish = [guard, completion](bool) {
        if (guard) {
            guard->hide();
            guard->deleteLater();
        }
        if (completion)
            completion();
    };
    if (animated && IMAnimationsEnabled() && target->parentWidget()) {
        const QRect off = target->geometry().translated(0, target->height());
        IMAnimate(
            0.3, [target, off] { IMViewSetGeometry(target, off); }, finish);
    } else {
        post([finish] { finish(true); });
    }
}

IMUIViewController *IMUIViewController::presentedViewController() const { return d->presented; }

IMUIViewController *IMUIViewController::presentingViewController() const
{
    for (const QWidget *w = this; w; w = w->parentWidget()) {
        if (auto *vc = qobject_cast<const IMUIViewController *>(w); vc && vc->d->presenting)
            return vc->d->presenting;
    }
    return nullptr;
}

void IMUIViewController::embedViewController(const QString &identifier, IMUIViewController *child, QWidget *container)
{
    if (!child)
        return;
    prepareForSegue(identifier, child);
    QWidget *host = container ? container : this;
    if (!host->layout()) {
        auto *layout = new QVBoxLayout(host);
        layout->setContentsMargins(0, 0, 0, 0);
    }
    host->layout()->addWidget(child);
    child->loadViewIfNeeded();
    if (isVisible())
        child->show();
}

void IMUIViewController::prepareForSegue(const QString &, IMUIViewController *) {}

void IMUIViewController::endEditing()
{
    QWidget *focus = QApplication::focusWidget();
    if (focus && (focus == this || isAncestorOf(focus)))
        focus->clearFocus();
}

void IMUIViewController::setAppearing(bool appearing, bool animated)
{
    if (appearing == d->appeared)
        return;
    if (appearing) {
        loadViewIfNeeded();
        d->appeared = true;
        viewWillAppear(animated);
        viewDidAppear(animated);
    } else {
        d->appeared = false;
        viewWillDisappear(animated);
        viewDidDisappear(animated);
    }
    // Screens shown inside this one (a stack's top, embedded screens) come and go with it.
    for (IMUIViewController *child : findChildren<IMUIViewController *>()) {
        if (child->d->presenting)
            continue; // presented over the window: it has its own appearance
        IMUIViewController *owner = nullptr;
        for (QWidget *w = child->parentWidget(); w && !owner; w = w->parentWidget())
            owner = qobject_cast<IMUIViewController *>(w);
        if (owner == this && child->isVisibleTo(this))
            child->setAppearing(appearing, animated);
    }
}

bool IMUIViewController::isAppeared() const { return d->appeared; }

void IMUIViewController::loadView() {}
void IMUIViewController::viewDidLoad() {}
void IMUIViewController::viewWillAppear(bool) {}
void IMUIViewController::viewDidAppear(bool) {}
void IMUIViewController::viewWillDisappear(bool) {}
void IMUIViewController::viewDidDisappear(bool) {}

void IMUIViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!event->spontaneous())
        setAppearing(true, false);
}

void IMUIViewController::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (!event->spontaneous())
        setAppearing(false, false);
}
