#include "IMUINavigationController.h"

#include <QPointer>
#include <QResizeEvent>
#include <QVBoxLayout>

#include "IMAnimation.h"
#include "IMNavigationBar.h"
#include "IMNavigationItem.h"

namespace {
// The area under the bar: keeps the top screen filling it.
class Content : public QWidget {
public:
    using QWidget::QWidget;
    QPointer<QWidget> top;

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QWidget::resizeEvent(event);
        if (top)
            top->setGeometry(rect());
    }
};
} // namespace

struct IMUINavigationController::Private {
    IMNavigationBar *bar = nullptr;
    Content *content = nullptr;
    QList<QPointer<IMUIViewController>> stack;

    QList<IMUIViewController *> live() const
    {
        QList<IMUIViewController *> out;
        for (const auto &vc : stack)
            if (vc)
                out << vc;
        return out;
    }
};

IMUINavigationController::IMUINavigationController(IMUIViewController *root, QWidget *parent)
    : IMUIViewController(parent)
    , n(new Private)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    n->bar = new IMNavigationBar(this);
    n->content = new Content(this);
    layout->addWidget(n->bar);
    layout->addWidget(n->content, 1);
    connect(n->bar, &IMNavigationBar::backRequested, this, [this] { popViewControllerAnimated(true); });
    if (root)
        setViewControllers({root}, false);
}

IMUINavigationController::~IMUINavigationController() { delete n; }

void IMUINavigationController::pushViewController(IMUIViewController *vc, bool animated)
{
    if (!vc || n->live().contains(vc))
        return;
    IMUIViewController *old = topViewController();
    n->stack << vc;
    vc->setParent(n->content);
    showTop(old, animated, true);
}

IMUIViewController *IMUINavigationController::popViewControllerAnimated(bool animated)
{
    QList<IMUIViewController *> stack = n->live();
    if (stack.size() < 2)
        return nullptr;
    IMUIViewController *old = stack.last();
    n->stack.removeAll(old);
    showTop(old, animated, false);
    return old;
}

void IMUINavigationController::popToRootViewControllerAnimated(bool animated)
{
    QList<IMUIViewController *> stack = n->live();
    if (stack.size() < 2)
        return;
    IMUIViewController *old = stack.last();
    for (int i = 1; i < stack.size() - 1; ++i) {
        n->stack.removeAll(stack[i]);
        stack[i]->deleteLater();
    }
    n->stack.removeAll(old);
    showTop(old, animated, false);
}

void IMUINavigationController::showDetailViewController(IMUIViewController *vc, bool animated)
{
    pushViewController(vc, animated);
}

QList<IMUIViewController *> IMUINavigationController::viewControllers() const { return n->live(); }

void IMUINavigationController::setViewControllers(const QList<IMUIViewController *> &vcs, bool animated)
{
    IMUIViewController *old = topViewController();
    for (IMUIViewController *vc : n->live()) {
        if (!vcs.contains(vc) && vc != old)
            vc->deleteLater();
    }
    n->stack.clear();
    for (IMUIViewController *vc : vcs) {
        if (!vc)
            continue;
        n->stack << vc;
        vc->setParent(n->content);
        vc->hide();
    }
    const bool oldStays = vcs.contains(old);
    showTop(oldStays ? nullptr : old, animated, true);
}

IMUIViewController *IMUINavigationController::topViewController() const
{
    const QList<IMUIViewController *> stack = n->live();
    return stack.isEmpty() ? nullptr : stack.last();
}

IMNavigationBar *IMUINavigationController::navigationBar() const { return n->bar; }

bool IMUINavigationController::isNavigationBarHidden() const { return n->bar->isHidden(); }

void IMUINavigationController::setNavigationBarHidden(bool hidden) { n->bar->setHidden(hidden); }

// Puts the stack's top on screen after a push (forward) or a pop; `old` leaves (and, after a pop,
// is deleted once it is off screen).
void IMUINavigationController::showTop(IMUIViewController *old, bool animated, bool forward)
{
    IMUIViewController *top = topViewController();
    const QList<IMUIViewController *> stack = n->live();
    n->bar->setItems(
        top ? top->navigationItem() : nullptr, stack.size() > 1 ? stack[stack.size() - 2]->navigationItem() : nullptr);
    n->content->top = top;
    const bool popped = old && !stack.contains(old);
    QPointer<IMUIViewController> leaving(old);
    auto finishOld = [leaving, popped](bool) {
        if (!leaving)
            return;
        leaving->hide();
        if (popped)
            leaving->deleteLater();
    };
    if (top) {
        // A container not yet loaded loads its top when it loads or appears, after its own set-up.
        if (isViewLoaded() || isVisible())
            top->loadViewIfNeeded();
        const QRect full = n->content->rect();
        // Only a shown container puts its top on screen; a hidden one does at its own appearance.
        top->setGeometry(full);
        top->raise();
        if (isVisible())
            top->show();
        if (animated && old && isVisible() && IMAnimationsEnabled()) {
            const int w = full.width();
            top->setGeometry(full.translated(forward ? w : -w / 3, 0));
            if (!forward)
                top->stackUnder(old);
            IMAnimate(
                0.3,
                [&] {
                    IMViewSetGeometry(top, full);
                    IMViewSetGeometry(old, full.translated(forward ? -w / 3 : w, 0));
                },
                finishOld);
            return;
        }
    }
    finishOld(true);
}

void IMUINavigationController::viewWillAppear(bool animated)
{
    IMUIViewController::viewWillAppear(animated);
    if (IMUIViewController *top = topViewController()) {
        top->loadViewIfNeeded();
        top->setGeometry(n->content->rect());
        top->show();
    }
}

void IMUINavigationController::viewDidDisappear(bool animated) { IMUIViewController::viewDidDisappear(animated); }
