#include "UxTextView.h"

#include <QAbstractTextDocumentLayout>
#include <QTextBlock>
#include <QTextLayout>
#include <QtMath>

UxTextView::UxTextView(QWidget *parent)
    : QPlainTextEdit(parent)
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

bool UxTextView::fitsContent() const { return m_fits; }

void UxTextView::setFitsContent(bool fits)
{
    m_fits = fits;
    if (fits) {
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setFrameShape(QFrame::NoFrame);
        document()->setDocumentMargin(0);
        QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
        policy.setHeightForWidth(true);
        setSizePolicy(policy);
        connect(this, &QPlainTextEdit::textChanged, this, &QWidget::updateGeometry, Qt::UniqueConnection);
    }
    updateGeometry();
}

namespace {
// The text laid out at `width` in the view's font, as the view would lay it out.
QSizeF textSize(const UxTextView *view, qreal width)
{
    QTextDocument doc;
    doc.setDefaultFont(view->font());
    doc.setDocumentMargin(view->document()->documentMargin());
    doc.setPlainText(view->toPlainText());
    if (width > 0)
        doc.setTextWidth(width);
    return QSizeF(doc.idealWidth(), doc.size().height());
}
} // namespace

QSize UxTextView::sizeHint() const
{
    if (!m_fits)
        return QPlainTextEdit::sizeHint();
    const QSizeF s = textSize(this, -1);
    return QSize(qCeil(s.width()) + 2 * frameWidth() + 2, qCeil(s.height()) + 2 * frameWidth());
}

QSize UxTextView::minimumSizeHint() const
{
    return m_fits ? QSize(20, fontMetrics().height()) : QPlainTextEdit::minimumSizeHint();
}

bool UxTextView::hasHeightForWidth() const { return m_fits; }

int UxTextView::heightForWidth(int width) const
{
    if (!m_fits)
        return QPlainTextEdit::heightForWidth(width);
    return qCeil(textSize(this, width - 2 * frameWidth() - 2).height()) + 2 * frameWidth() + 2;
}
