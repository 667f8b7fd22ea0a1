#pragma once

#include <QColor>
#include <QPointer>
#include <QWidget>

class IMNavigationItem;
class QLabel;

//! The bar over a navigation stack: back button, left item, title (or title view), right item,
//! on a background of `barTintColor`, with buttons and the default title in `tintColor`.
class IMNavigationBar : public QWidget {
    Q_OBJECT
public:
    //! Bar styles: 0 default (light), 1 black.
    enum BarStyle { BarStyleDefault = 0, BarStyleBlack = 1 };

    //! An empty bar.
    explicit IMNavigationBar(QWidget *parent = nullptr);
    //! The bar's background colour (invalid: the style's default).
    QColor barTintColor() const;
    //! Sets the background colour.
    void setBarTintColor(const QColor &color);
    //! The colour of buttons and titles (default a system blue).
    QColor tintColor() const;
    //! Sets the colour of buttons and titles.
    void setTintColor(const QColor &color);
    //! The bar style.
    int barStyle() const;
    //! Sets the bar style (black: dark background, white title unless tinted).
    void setBarStyle(int style);
    //! Shows `item`, with a back button copying `backItem` when not null.
    void setItems(IMNavigationItem *item, IMNavigationItem *backItem);
    //! The item shown.
    IMNavigationItem *topItem() const;
    //! The back button's widget (null when none is shown).
    QWidget *backButton() const;
    QSize sizeHint() const override;

signals:
    //! The back button was clicked.
    void backRequested();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void rebuild();
    QColor m_barTint;
    QColor m_tint;
    int m_barStyle = BarStyleDefault;
    QPointer<IMNavigationItem> m_item;
    QPointer<IMNavigationItem> m_backItem;
    QPointer<QWidget> m_backButton;
    QLabel *m_titleLabel = nullptr;
};
