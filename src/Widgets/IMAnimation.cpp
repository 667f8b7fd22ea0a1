#include "IMAnimation.h"

#include <QCoreApplication>
#include <QGraphicsOpacityEffect>
#include <QHash>
#include <QParallelAnimationGroup>
#include <QPointer>
#include <QPropertyAnimation>
#include <QWidget>
#include <memory>

// Animations are a main-thread affair, like the widgets they move: no locks here.
namespace {
bool g_enabled = true;

// The block being run by IMAnimate: animatable setters called inside it add their animation here.
struct Context {
    int durationMs = 0;
    QParallelAnimationGroup *group = nullptr;
};
Context *g_context = nullptr;

// The running animation of each (object, property), so a newer one replaces it, as on a phone.
QHash<QPair<QObject *, QByteArray>, QPointer<QPropertyAnimation>> &running()
{
    static QHash<QPair<QObject *, QByteArray>, QPointer<QPropertyAnimation>> table;
    return table;
}

void post(const std::function<void()> &fn)
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), fn, Qt::QueuedConnection);
}

const char *kAlphaKey = "_imAlpha";

QGraphicsOpacityEffect *opacityEffect(QWidget *view, bool create)
{
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(view->graphicsEffect());
    if (!effect && create) {
        effect = new QGraphicsOpacityEffect(view);
        effect->setOpacity(1.0);
        view->setGraphicsEffect(effect);
    }
    return effect;
}
} // namespace

void IMAnimate(double duration, const std::function<void()> &changes, const std::function<void(bool)> &completion)
{
    const bool animate = g_enabled && duration > 0;
    Context context;
    Context *outer = g_context;
    if (animate) {
        context.durationMs = int(duration * 1000);
        context.group = new QParallelAnimationGroup(QCoreApplication::instance());
        g_context = &context;
    } else {
        g_context = nullptr; // changes inside a non-animated block apply at once, even when nested
    }
    if (changes)
        changes();
    g_context = outer;

    if (!context.group || context.group->animationCount() == 0) {
        delete context.group;
        if (completion)
            post([completion] { completion(true); });
        return;
    }
    // Exactly one completion: the group either finishes or is destroyed (its targets went away).
    auto done = std::make_shared<bool>(false);
    auto finish = [done, completion](bool finished) {
        if (*done)
            return;
        *done = true;
        if (completion)
            post([completion, finished] { completion(finished); });
    };
    QParallelAnimationGroup *group = context.group;
    QObject::connect(group, &QAbstractAnimation::finished, group, [finish, group] {
        bool all = true;
        for (int i = 0; i < group->animationCount(); ++i) {
            auto *a = group->animationAt(i);
            if (a->property("_imStopped").toBool())
                all = false;
        }
        finish(all);
    });
    QObject::connect(group, &QObject::destroyed, [finish] { finish(false); });
    group->start(QAbstractAnimation::DeleteWhenStopped);
}

bool IMAnimateProperty(QObject *target, const QByteArray &property, const QVariant &from, const QVariant &to)
{
    if (!g_context || !target)
        return false;
    const auto key = qMakePair(target, property);
    if (QPointer<QPropertyAnimation> old = running().value(key)) {
        old->setProperty("_imStopped", true);
        old->stop();
    }
    auto *animation = new QPropertyAnimation(target, property);
    animation->setDuration(g_context->durationMs);
    animation->setStartValue(from);
    animation->setEndValue(to);
    animation->setEasingCurve(QEasingCurve::InOutQuad);
    g_context->group->addAnimation(animation);
    running().insert(key, animation);
    QObject::connect(animation, &QObject::destroyed, [key] {
        auto it = running().find(key);
        if (it != running().end() && it.value().isNull())
            running().erase(it);
    });
    return true;
}

bool IMAnimationsEnabled() { return g_enabled; }

void IMSetAnimationsEnabled(bool enabled) { g_enabled = enabled; }

qreal IMViewAlpha(const QWidget *view)
{
    if (!view)
        return 0;
    const QVariant alpha = view->property(kAlphaKey);
    return alpha.isValid() ? alpha.toReal() : 1.0;
}

void IMViewSetAlpha(QWidget *view, qreal alpha)
{
    if (!view)
        return;
    alpha = qBound<qreal>(0, alpha, 1);
    view->setProperty(kAlphaKey, alpha);
    if (g_context) {
        QGraphicsOpacityEffect *effect = opacityEffect(view, true);
        if (IMAnimateProperty(effect, "opacity", effect->opacity(), alpha)) {
            // A fully opaque view draws without an effect: cheaper, and crisp text.
            if (alpha >= 1) {
                QPointer<QWidget> guard(view);
                QObject::connect(g_context->group, &QAbstractAnimation::finished, view, [guard] {
                    if (guard && IMViewAlpha(guard) >= 1)
                        guard->setGraphicsEffect(nullptr);
                });
            }
            return;
        }
    }
    if (alpha >= 1) {
        if (opacityEffect(view, false))
            view->setGraphicsEffect(nullptr);
    } else {
        opacityEffect(view, true)->setOpacity(alpha);
    }
}

void IMViewSetGeometry(QWidget *view, const QRect &geometry)
{
    if (!view)
        return;
    if (IMAnimateProperty(view, "geometry", view->geometry(), geometry))
        return;
    view->setGeometry(geometry);
}

void IMViewSetCenter(QWidget *view, const QPointF &center)
{
    if (!view)
        return;
    QRect r = view->geometry();
    r.moveCenter(center.toPoint());
    // QRect's centre rounds down; placing by the top-left keeps the requested centre exact for even sizes.
    r.moveTopLeft(QPointF(center.x() - r.width() / 2.0, center.y() - r.height() / 2.0).toPoint());
    IMViewSetGeometry(view, r);
}

QPointF IMViewCenter(const QWidget *view)
{
    if (!view)
        return {};
    const QRect r = view->geometry();
    return QPointF(r.x() + r.width() / 2.0, r.y() + r.height() / 2.0);
}
