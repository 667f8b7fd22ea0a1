#pragma once

#include <QObject>
#include <QVariant>
#include <functional>

class QWidget;

//! Runs `changes` at once and animates, over `duration` seconds, every animatable value it sets
//! through `IMAnimateProperty` (layout constraints, `IMViewSetAlpha`, `IMViewSetGeometry`, ...).
//! `completion(finished)` is always called exactly once, on the main thread, asynchronously (posted),
//! after the last animation ended (`finished` false when one was stopped early). With animations
//! disabled or a duration of 0, every value is set at once and `completion(true)` is still posted.
void IMAnimate(
    double duration, const std::function<void()> &changes, const std::function<void(bool finished)> &completion = {});

//! Inside an `IMAnimate` block: animates `property` of `target` from `from` to `to` and returns true
//! (the animation then writes the property through its setter, step by step). Outside a block, or with
//! animations off: returns false and the caller sets the value itself. Animatable setters use it as
//! `if (IMAnimateProperty(this, "constant", m_constant, value)) return;`.
bool IMAnimateProperty(QObject *target, const QByteArray &property, const QVariant &from, const QVariant &to);

//! Whether animations run (default true). With false every `IMAnimate` applies its changes at once.
bool IMAnimationsEnabled();
//! Turns animations on or off for the whole process (tests turn them off).
void IMSetAnimationsEnabled(bool enabled);

//! The view's opacity, 0 to 1 (1 for a view whose opacity was never set).
qreal IMViewAlpha(const QWidget *view);
//! Sets the view's opacity (animatable inside `IMAnimate`); 0 keeps the view shown but invisible.
void IMViewSetAlpha(QWidget *view, qreal alpha);
//! Sets the view's geometry in its parent (animatable inside `IMAnimate`).
void IMViewSetGeometry(QWidget *view, const QRect &geometry);
//! Moves the view so its centre is `center` in its parent (animatable inside `IMAnimate`).
void IMViewSetCenter(QWidget *view, const QPointF &center);
//! The view's centre in its parent's coordinates.
QPointF IMViewCenter(const QWidget *view);
