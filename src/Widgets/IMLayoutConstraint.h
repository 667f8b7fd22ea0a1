#pragma once

#include <QObject>
#include <functional>

class QWidget;
class QBoxLayout;

//! One number of a screen's layout (a distance, a width, a height) that the screen's code changes
//! and animates. The layout reads it through the bindings below, so tests read the documented
//! numbers straight from the constraint.
class IMLayoutConstraint : public QObject {
    Q_OBJECT
    Q_PROPERTY(qreal constant READ constant WRITE setConstant)
    Q_PROPERTY(qreal presentedConstant READ presentedConstant WRITE setPresentedConstant NOTIFY constantChanged)
public:
    //! A constraint with `constant`, owned by `parent`.
    explicit IMLayoutConstraint(qreal constant = 0, QObject *parent = nullptr);
    //! The value set last (during an animation: the value it moves to).
    qreal constant() const;
    //! Sets the value; animated when called inside `IMAnimate`, applied to every binding at once otherwise.
    void setConstant(qreal constant);
    //! The value the layout shows now (moves through the animation towards `constant`).
    qreal presentedConstant() const;
    //! Sets the shown value only (the animation's steps).
    void setPresentedConstant(qreal value);

    //! Calls `apply(constant)` now and on every change (for as long as `context` lives, default this).
    void bind(const std::function<void(qreal)> &apply, QObject *context = nullptr);
    //! Binds the view's fixed height to the constant.
    void bindFixedHeight(QWidget *view);
    //! Binds the view's fixed width to the constant.
    void bindFixedWidth(QWidget *view);
    //! Binds the spacing before item `index` of `layout` (an `addSpacing` item) to the constant.
    void bindSpacing(QBoxLayout *layout, int index);
    //! Binds one contents margin of the view's layout (Qt::Edge: Left/Top/Right/Bottom) to the constant.
    void bindMargin(QWidget *view, Qt::Edge edge);

signals:
    //! The shown value changed (also during an animation, once a frame).
    void constantChanged(qreal presentedConstant);

private:
    qreal m_constant = 0;
    qreal m_presented = 0;
};
