#pragma once

#include <QColor>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QWidget>
#include <functional>

//! A button of a navigation bar: a title or an image, or a custom view, with a target action.
//! Hosts may hang extra state on it as dynamic properties (the badge does).
class IMBarButtonItem : public QObject {
    Q_OBJECT
public:
    //! Plain or bold (done) title.
    enum Style { Plain, Bordered, Done };
    Q_ENUM(Style)
    using Action = std::function<void()>;

    //! An item titled `title` (may be empty) calling `action` on click.
    IMBarButtonItem(const QString &title, Style style, const Action &action = {}, QObject *parent = nullptr);
    //! An item showing `image` calling `action` on click.
    IMBarButtonItem(const QImage &image, Style style, const Action &action = {}, QObject *parent = nullptr);
    //! An item showing `customView` (the item takes it).
    explicit IMBarButtonItem(QWidget *customView, QObject *parent = nullptr);
    ~IMBarButtonItem() override;

    //! The title.
    QString title() const;
    //! Sets the title.
    void setTitle(const QString &title);
    //! The image (null for none).
    QImage image() const;
    //! Sets the image.
    void setImage(const QImage &image);
    //! The style.
    Style style() const;
    //! Sets the style.
    void setStyle(Style style);
    //! Sets the action called on click (empty: none).
    void setAction(const Action &action);
    //! Whether the item has an action.
    bool hasAction() const;
    //! The tint colour (invalid: the bar's).
    QColor tintColor() const;
    //! Sets the tint colour.
    void setTintColor(const QColor &color);
    //! Whether the item can be clicked.
    bool isEnabled() const;
    //! Enables or disables the item.
    void setEnabled(bool enabled);
    //! The custom view (null for a title or image item).
    QWidget *customView() const;
    //! The item's widget: its custom view, or the button made for it (created on first call; the bar
    //! shows it). Never null.
    QWidget *view();
    //! Calls the action and emits `triggered`, as a click does.
    void trigger();
    //! The bar's tint, used when the item has none of its own (the bar calls it).
    void applyBarTint(const QColor &color);

signals:
    //! The item was clicked.
    void triggered();
    //! Title, image, style, tint or enabled state changed.
    void changed();

private:
    QString m_title;
    QImage m_image;
    Style m_style = Plain;
    Action m_action;
    QColor m_tint;
    bool m_enabled = true;
    QPointer<QWidget> m_customView;
    QPointer<QWidget> m_button;
    QColor m_barTint;
    std::function<void()> m_apply;
};
