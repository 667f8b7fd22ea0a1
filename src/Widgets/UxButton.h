#pragma once

#include <QColor>
#include <QImage>
#include <QPushButton>

//! The kit's button: a flat `QPushButton` whose title and icon take a tint colour.
class UxButton : public QPushButton {
    Q_OBJECT
    Q_PROPERTY(QColor tintColor READ tintColor WRITE setTintColor)
public:
    //! An untitled button.
    explicit UxButton(QWidget *parent = nullptr);
    //! A button titled `title`.
    explicit UxButton(const QString &title, QWidget *parent = nullptr);
    //! The tint colour (invalid: the palette's button text colour).
    QColor tintColor() const;
    //! Tints the title and a monochrome icon.
    void setTintColor(const QColor &color);
    //! Sets the icon from an image (tinted when a tint colour is set).
    void setImage(const QImage &image);

private:
    QColor m_tint;
    QImage m_image;
};
