#pragma once

#include <QColor>
#include <QPainterPath>
#include <QWidget>

//! The coloured shape behind a message body: a rectangle with three corners rounded (15 points);
//! the square corner is the tail, top-left for others' messages, bottom-right for the user's own.
class IMBubbleView : public QWidget {
    Q_OBJECT
    Q_PROPERTY(bool positionLeft READ positionLeft WRITE setPositionLeft)
    Q_PROPERTY(QColor bubbleColor READ bubbleColor WRITE setBubbleColor)
public:
    //! A right-hand bubble in the default blue.
    explicit IMBubbleView(QWidget *parent = nullptr);
    //! Whether the bubble is on the left (another sender's message).
    bool positionLeft() const;
    //! Puts the tail for a left or right bubble.
    void setPositionLeft(bool left);
    //! The fill colour.
    QColor bubbleColor() const;
    //! Sets the fill colour.
    void setBubbleColor(const QColor &color);
    //! The shape for `rect`, with the tail corner square.
    static QPainterPath bubblePath(const QRectF &rect, bool positionLeft);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    bool m_left = false;
    QColor m_color {0, 122, 255};
};
