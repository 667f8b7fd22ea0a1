#pragma once

#include <QColor>
#include <QLabel>

//! The kit's label: a `QLabel` with a text colour property.
class UxLabel : public QLabel {
    Q_OBJECT
    Q_PROPERTY(QColor textColor READ textColor WRITE setTextColor)
public:
    //! An empty label.
    explicit UxLabel(QWidget *parent = nullptr);
    //! A label showing `text`.
    explicit UxLabel(const QString &text, QWidget *parent = nullptr);
    //! The text colour (invalid: the palette's).
    QColor textColor() const;
    //! Sets the text colour (invalid restores the palette's).
    void setTextColor(const QColor &color);
};
