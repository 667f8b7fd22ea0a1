#include "UxTextView.h"

#include <QAbstractTextDocumentLayout>
#include <QTextBlock>
#include <QTextLayout>

UxTextView::UxTextView(QWidget *parent) : QPlainTextEdit(parent)
{
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
}

int UxTextView::numberOfLine() const
{
    // Visual lines: each block's laid-out lines at the current width.
    int lines = 0;
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
        const QTextLayout *layout = block.layout();
        lines += (layout && layout->lineCount() > 0) ? layout->lineCount() : 1;
    }
    return qMax(1, lines);
}

QString UxTextView::text() const { return toPlainText(); }

void UxTextView::setText(const QString &text) { setPlainText(text); }
