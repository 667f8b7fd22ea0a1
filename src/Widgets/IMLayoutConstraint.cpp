#include "IMLayoutConstraint.h"

#include <QBoxLayout>
#include <QLayout>
#include <QPointer>
#include <QSpacerItem>
#include <QWidget>
#include <cmath>

#include "IMAnimation.h"

IMLayoutConstraint::IMLayoutConstraint(qreal constant, QObject *parent)
    : QObject(parent)
    , m_constant(constant)
    , m_presented(constant)
{
}

qreal IMLayoutConstraint::constant() const { return m_constant; }

void IMLayoutConstraint::setConstant(qreal constant)
{
    if (!std::isfinite(constant))
        constant = 0;
    m_constant = constant;
    if (IMAnimateProperty(this, "presentedConstant", m_presented, constant))
        return;
    setPresentedConstant(constant);
}

qreal IMLayoutConstraint::presentedConstant() const { return m_presented; }

void IMLayoutConstraint::setPresentedConstant(qreal value)
{
    if (value == m_presented)
        return;
    m_presented = value;
    emit constantChanged(value);
}

void IMLayoutConstraint::bind(const std::function<void(qreal)> &apply, QObject *context)
{
    if (!apply)
        return;
    apply(m_presented);
    connect(this, &IMLayoutConstraint::constantChanged, context ? context : this, apply);
}

void IMLayoutConstraint::bindFixedHeight(QWidget *view)
{
    if (!view)
        return;
    QPointer<QWidget> v(view);
    bind(
        [v](qreal c) {
            if (v)
                v->setFixedHeight(qMax(0, qRound(c)));
        },
        view);
}

void IMLayoutConstraint::bindFixedWidth(QWidget *view)
{
    if (!view)
        return;
    QPointer<QWidget> v(view);
    bind(
        [v](qreal c) {
            if (v)
                v->setFixedWidth(qMax(0, qRound(c)));
        },
        view);
}

void IMLayoutConstraint::bindSpacing(QBoxLayout *layout, int index)
{
    if (!layout || index < 0 || index >= layout->count() || !layout->itemAt(index)->spacerItem())
        return;
    QPointer<QBoxLayout> l(layout);
    bind(
        [l, index](qreal c) {
            if (!l || index >= l->count())
                return;
            QSpacerItem *spacer = l->itemAt(index)->spacerItem();
            if (!spacer)
                return;
            const int v = qMax(0, qRound(c));
            const bool vertical
                = l->direction() == QBoxLayout::TopToBottom || l->direction() == QBoxLayout::BottomToTop;
            if (vertical)
                spacer->changeSize(0, v, QSizePolicy::Minimum, QSizePolicy::Fixed);
            else
                spacer->changeSize(v, 0, QSizePolicy::Fixed, QSizePolicy::Minimum);
            l->invalidate();
        },
        layout);
}

void IMLayoutConstraint::bindMargin(QWidget *view, Qt::Edge edge)
{
    if (!view || !view->layout())
        return;
    QPointer<QWidget> v(view);
    bind(
        [v, edge](qreal c) {
            if (!v || !v->layout())
                return;
            QMargins m = v->layout()->contentsMargins();
            const int px = qRound(c);
            switch (edge) {
            case Qt::LeftEdge:
                m.setLeft(px);
                break;
            case Qt::TopEdge:
                m.setTop(px);
                break;
            case Qt::RightEdge:
                m.setRight(px);
                break;
            case Qt::BottomEdge:
                m.setBottom(px);
                break;
            }
            v->layout()->setContentsMargins(m);
        },
        view);
}
