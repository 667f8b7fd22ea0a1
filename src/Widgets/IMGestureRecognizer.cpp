#include "IMGestureRecognizer.h"

#include <QCoreApplication>
#include <QMouseEvent>
#include <QTimerEvent>
#include <QTouchEvent>

namespace {
const char *kRecognizersKey = "_imGestureRecognizers";
const char *kTouchForRecognizersKey = "_imTouchForRecognizers";
const qreal kTapSlop = 10; // points a tap or long press may wander
const qreal kPanStart = 6; // points a pan must move before it begins

QList<IMGestureRecognizer *> attached(const QWidget *view)
{
    QList<IMGestureRecognizer *> out;
    const QVariantList list = view->property(kRecognizersKey).toList();
    for (const QVariant &v : list)
        if (auto *r = qobject_cast<IMGestureRecognizer *>(v.value<QObject *>()))
            out << r;
    return out;
}

void store(QWidget *view, const QList<IMGestureRecognizer *> &list)
{
    QVariantList vl;
    for (IMGestureRecognizer *r : list)
        vl << QVariant::fromValue<QObject *>(r);
    view->setProperty(kRecognizersKey, vl);
}
} // namespace

// Touches on a view's descendants belong to the view's recognisers too, as on a phone: one filter on
// the application offers each mouse or touch event to the recognisers of the receiver and of its
// ancestors, nearest first.
class IMGestureDispatcher : public QObject {
public:
    static void ensure()
    {
        static IMGestureDispatcher *dispatcher = nullptr;
        if (!dispatcher && QCoreApplication::instance()) {
            dispatcher = new IMGestureDispatcher(QCoreApplication::instance());
            QCoreApplication::instance()->installEventFilter(dispatcher);
        }
    }
    using QObject::QObject;

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseMove:
        case QEvent::MouseButtonRelease:
        case QEvent::TouchBegin:
        case QEvent::TouchUpdate:
        case QEvent::TouchEnd:
        case QEvent::TouchCancel:
            break;
        default:
            return false;
        }
        auto *widget = qobject_cast<QWidget *>(watched);
        if (!widget)
            return false;
        // An event that propagates to a parent reaches this filter again: offer it once.
        auto *pointer = static_cast<QPointerEvent *>(event);
        if (event == m_last && pointer->timestamp() == m_lastTime && event->type() == m_lastType)
            return false;
        m_last = event;
        m_lastTime = pointer->timestamp();
        m_lastType = event->type();
        if (pointer->points().isEmpty())
            return false;
        const QPointF local = pointer->points().first().position();
        bool consumed = false;
        for (QWidget *w = widget; w; w = w->parentWidget()) {
            const QList<IMGestureRecognizer *> list = attached(w);
            if (list.isEmpty())
                continue;
            const QPointF pos = w == widget ? local : widget->mapTo(w, local);
            for (IMGestureRecognizer *r : list)
                if (r && r->isEnabled())
                    consumed = r->handleEvent(event, pos) || consumed;
            if (w->isWindow())
                break;
        }
        // A view that takes touches only for its recognisers takes the whole touch sequence here:
        // left to the widget, the touch would be ignored and its updates never delivered.
        if (event->type() != QEvent::MouseButtonPress && event->type() != QEvent::MouseMove
            && event->type() != QEvent::MouseButtonRelease) {
            if (widget->property(kTouchForRecognizersKey).toBool()) {
                event->accept();
                return true;
            }
        }
        return consumed;
    }

private:
    QEvent *m_last = nullptr;
    quint64 m_lastTime = 0;
    QEvent::Type m_lastType = QEvent::None;
};

IMGestureRecognizer::IMGestureRecognizer(const Action &action, QObject *parent)
    : QObject(parent)
    , m_action(action)
{
    IMGestureDispatcher::ensure();
}

IMGestureRecognizer::~IMGestureRecognizer() { removeFromView(); }

void IMGestureRecognizer::setAction(const Action &action) { m_action = action; }

void IMGestureRecognizer::addToView(QWidget *view)
{
    if (view == m_view)
        return;
    removeFromView();
    if (!view)
        return;
    m_view = view;
    if (!view->testAttribute(Qt::WA_AcceptTouchEvents)) {
        view->setAttribute(Qt::WA_AcceptTouchEvents, true);
        view->setProperty(kTouchForRecognizersKey, true);
    }
    QList<IMGestureRecognizer *> list = attached(view);
    if (!list.contains(this))
        list << this;
    store(view, list);
}

void IMGestureRecognizer::removeFromView()
{
    if (!m_view)
        return;
    QList<IMGestureRecognizer *> list = attached(m_view);
    list.removeAll(this);
    store(m_view, list);
    m_view = nullptr;
}

QWidget *IMGestureRecognizer::view() const { return m_view; }
IMGestureRecognizer::State IMGestureRecognizer::state() const { return m_state; }

QPointF IMGestureRecognizer::locationInView(const QWidget *view) const
{
    if (!view || !m_view || view == m_view)
        return m_location;
    return view->mapFromGlobal(m_view->mapToGlobal(m_location));
}

bool IMGestureRecognizer::isEnabled() const { return m_enabled; }

void IMGestureRecognizer::setEnabled(bool enabled)
{
    m_enabled = enabled;
    if (!enabled && (m_state == Began || m_state == Changed)) {
        handlePointer(3, m_location);
        setState(Cancelled);
    }
}

QList<IMGestureRecognizer *> IMGestureRecognizer::gestureRecognizers(const QWidget *view)
{
    return view ? attached(view) : QList<IMGestureRecognizer *>();
}

void IMGestureRecognizer::setState(State state)
{
    m_state = state;
    if (state == Began || state == Changed || state == Ended || state == Cancelled) {
        QPointer<IMGestureRecognizer> self(this);
        if (m_action)
            m_action(this);
        if (self)
            emit triggered(this);
    }
}

void IMGestureRecognizer::setLocation(const QPointF &pos) { m_location = pos; }

bool IMGestureRecognizer::eventFilter(QObject *watched, QEvent *event) { return QObject::eventFilter(watched, event); }

bool IMGestureRecognizer::handleEvent(QEvent *event, const QPointF &pos)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease: {
        auto *e = static_cast<QMouseEvent *>(event);
        // Touch-synthesised mouse events were handled as touch.
        if (e->source() != Qt::MouseEventNotSynthesized)
            return false;
        if (event->type() != QEvent::MouseMove && e->button() != Qt::LeftButton)
            return false;
        if (event->type() == QEvent::MouseMove && !(e->buttons() & Qt::LeftButton))
            return false;
        const int phase = event->type() == QEvent::MouseButtonPress ? 0 : event->type() == QEvent::MouseMove ? 1 : 2;
        setLocation(pos);
        return handlePointer(phase, pos);
    }
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel: {
        const int phase = event->type() == QEvent::TouchBegin ? 0
            : event->type() == QEvent::TouchUpdate            ? 1
            : event->type() == QEvent::TouchEnd               ? 2
                                                              : 3;
        setLocation(pos);
        return handlePointer(phase, pos);
    }
    default:
        return false;
    }
}

IMTapGestureRecognizer::IMTapGestureRecognizer(const Action &action, QObject *parent)
    : IMGestureRecognizer(action, parent)
{
}

bool IMTapGestureRecognizer::handlePointer(int phase, const QPointF &pos)
{
    switch (phase) {
    case 0:
        m_start = pos;
        m_tracking = true;
        setState(Possible);
        return false; // the view still sees the press (buttons under a tap keep working)
    case 1:
        if (m_tracking && QLineF(m_start, pos).length() > kTapSlop)
            m_tracking = false;
        return false;
    case 2:
        if (m_tracking) {
            m_tracking = false;
            setState(Ended);
            setState(Possible);
        }
        return false;
    default:
        m_tracking = false;
        return false;
    }
}

IMLongPressGestureRecognizer::IMLongPressGestureRecognizer(const Action &action, QObject *parent)
    : IMGestureRecognizer(action, parent)
{
}

double IMLongPressGestureRecognizer::minimumPressDuration() const { return m_minimumPressDuration; }
void IMLongPressGestureRecognizer::setMinimumPressDuration(double seconds)
{
    m_minimumPressDuration = qMax(0.0, seconds);
}

bool IMLongPressGestureRecognizer::handlePointer(int phase, const QPointF &pos)
{
    auto stopTimer = [this] {
        if (m_timer)
            killTimer(m_timer);
        m_timer = 0;
    };
    switch (phase) {
    case 0:
        stopTimer();
        m_start = pos;
        m_timer = startTimer(int(m_minimumPressDuration * 1000));
        return false;
    case 1:
        if (state() == Began || state() == Changed) {
            setState(Changed);
            return true;
        }
        if (m_timer && QLineF(m_start, pos).length() > kTapSlop)
            stopTimer(); // moved too far: not a long press
        return false;
    case 2:
        stopTimer();
        if (state() == Began || state() == Changed) {
            setState(Ended);
            setState(Possible);
            return true;
        }
        return false;
    default:
        stopTimer();
        if (state() == Began || state() == Changed) {
            setState(Cancelled);
            setState(Possible);
        }
        return false;
    }
}

void IMLongPressGestureRecognizer::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != m_timer)
        return;
    killTimer(m_timer);
    m_timer = 0;
    setState(Began);
}

IMPanGestureRecognizer::IMPanGestureRecognizer(const Action &action, QObject *parent)
    : IMGestureRecognizer(action, parent)
{
}

QPointF IMPanGestureRecognizer::translationInView(const QWidget *) const { return locationInView() - m_start; }

bool IMPanGestureRecognizer::handlePointer(int phase, const QPointF &pos)
{
    switch (phase) {
    case 0:
        m_start = pos;
        m_pressed = true;
        return false;
    case 1:
        if (!m_pressed)
            return false;
        if (state() == Began || state() == Changed) {
            setState(Changed);
            return true;
        }
        if (QLineF(m_start, pos).length() >= kPanStart) {
            setState(Began);
            setState(Changed);
            return true;
        }
        return false;
    case 2:
        m_pressed = false;
        if (state() == Began || state() == Changed) {
            setState(Ended);
            setState(Possible);
            return true;
        }
        return false;
    default:
        m_pressed = false;
        if (state() == Began || state() == Changed) {
            setState(Cancelled);
            setState(Possible);
        }
        return false;
    }
}
