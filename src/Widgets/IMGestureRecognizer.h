#pragma once

#include <QList>
#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QWidget>
#include <functional>

//! A gesture recogniser over mouse and touch events of one view (an event filter). Recognisers
//! of the same kind on one view never stack: adding one twice keeps one.
class IMGestureRecognizer : public QObject {
    Q_OBJECT
public:
    //! Where the gesture is.
    enum State { Possible, Began, Changed, Ended, Cancelled, Failed };
    Q_ENUM(State)
    using Action = std::function<void(IMGestureRecognizer *)>;

    ~IMGestureRecognizer() override;

    //! Sets the target action, called on the main thread at each reported state.
    void setAction(const Action &action);
    //! Attaches to `view` (detaching from an earlier one); adding it to the same view again does nothing.
    void addToView(QWidget *view);
    //! Detaches from its view.
    void removeFromView();
    //! The view it watches (null when detached).
    QWidget *view() const;
    //! The recogniser's state.
    State state() const;
    //! The last touch or pointer location in `view`'s coordinates (its own view's when null).
    QPointF locationInView(const QWidget *view = nullptr) const;
    //! Whether it recognises (default true).
    bool isEnabled() const;
    //! Turns recognising on or off; turning it off during a gesture cancels it.
    void setEnabled(bool enabled);
    //! The recognisers attached to `view`, oldest first.
    static QList<IMGestureRecognizer *> gestureRecognizers(const QWidget *view);

signals:
    //! Emitted at each reported state, after the action ran.
    void triggered(IMGestureRecognizer *recognizer);

protected:
    explicit IMGestureRecognizer(const Action &action, QObject *parent);
    bool eventFilter(QObject *watched, QEvent *event) override;
    //! Kind-specific handling of a press (`phase` 0), move (1), release (2) or cancel (3) at `pos`
    //! (view coordinates); returns whether the event is consumed.
    virtual bool handlePointer(int phase, const QPointF &pos) = 0;
    //! Sets the state and, for reported states, calls the action and emits `triggered`.
    void setState(State state);
    //! Remembers the pointer location (view coordinates).
    void setLocation(const QPointF &pos);

private:
    friend class IMGestureDispatcher;
    //! Offers a mouse or touch event that reached the view or one of its descendants; `pos` is in
    //! the view's coordinates. Returns whether the event is consumed.
    bool handleEvent(QEvent *event, const QPointF &pos);
    QPointer<QWidget> m_view;
    Action m_action;
    State m_state = Possible;
    QPointF m_location;
    bool m_enabled = true;
};

//! Recognises a tap: press and release within a small distance. Reports Ended once per tap.
class IMTapGestureRecognizer : public IMGestureRecognizer {
    Q_OBJECT
public:
    //! A tap recogniser calling `action`.
    explicit IMTapGestureRecognizer(const Action &action = {}, QObject *parent = nullptr);

protected:
    bool handlePointer(int phase, const QPointF &pos) override;

private:
    QPointF m_start;
    bool m_tracking = false;
};

//! Recognises a press held for `minimumPressDuration` seconds without moving far: Began when the
//! time is up, Changed on moves, Ended on release.
class IMLongPressGestureRecognizer : public IMGestureRecognizer {
    Q_OBJECT
public:
    //! A long-press recogniser calling `action`.
    explicit IMLongPressGestureRecognizer(const Action &action = {}, QObject *parent = nullptr);
    //! Seconds the press must last (default 0.5).
    double minimumPressDuration() const;
    //! Sets the seconds the press must last.
    void setMinimumPressDuration(double seconds);

protected:
    bool handlePointer(int phase, const QPointF &pos) override;
    void timerEvent(QTimerEvent *event) override;

private:
    double m_minimumPressDuration = 0.5;
    int m_timer = 0;
    QPointF m_start;
};

//! Recognises a drag: Began once the pointer moved a few points while pressed, Changed on each
//! move, Ended on release.
class IMPanGestureRecognizer : public IMGestureRecognizer {
    Q_OBJECT
public:
    //! A pan recogniser calling `action`.
    explicit IMPanGestureRecognizer(const Action &action = {}, QObject *parent = nullptr);
    //! The movement since the gesture began, in `view`'s coordinates (its own view's when null).
    QPointF translationInView(const QWidget *view = nullptr) const;

protected:
    bool handlePointer(int phase, const QPointF &pos) override;

private:
    QPointF m_start;
    bool m_pressed = false;
};
