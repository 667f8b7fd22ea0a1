#pragma once

#include <QPlainTextEdit>

//! The kit's multi-line text view.
class UxTextView : public QPlainTextEdit
{
    Q_OBJECT
public:
    //! An empty text view.
    explicit UxTextView(QWidget *parent = nullptr);
    //! The number of visual lines the text takes at the current width (at least 1).
    int numberOfLine() const;
    //! The text (same as toPlainText).
    QString text() const;
    //! Replaces the text.
    void setText(const QString &text);
};
