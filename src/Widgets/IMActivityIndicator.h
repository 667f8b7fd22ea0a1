#pragma once

#include <QWidget>

//! A small spinning activity indicator, hidden while stopped.
class IMActivityIndicator : public QWidget {
    Q_OBJECT
public:
    //! A stopped, hidden indicator.
    explicit IMActivityIndicator(QWidget *parent = nullptr);
    //! Shows and spins.
    void startAnimating();
    //! Stops and hides.
    void stopAnimating();
    //! Whether it spins.
    bool isAnimating() const;
    //! The colour of the spokes.
    void setColor(const QColor &color);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void timerEvent(QTimerEvent *event) override;

private:
    int m_timer = 0;
    int m_step = 0;
    QColor m_color;
};
