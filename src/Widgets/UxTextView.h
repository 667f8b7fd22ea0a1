#pragma once

#include <QPlainTextEdit>

//! The kit's multi-line text view.
class UxTextView : public QPlainTextEdit {
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
    //! Whether the view sizes itself to its text (a message body): no scroll bars, no frame, a size
    //! hint of the text's natural width and a height for any width.
    bool fitsContent() const;
    //! Makes the view size itself to its text (or not).
    void setFitsContent(bool fits);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;

private:
    bool m_fits = false;
};
