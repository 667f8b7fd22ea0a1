#include "IMTableViewCell.h"

#include <QLayout>
#include <QPainter>
#include <QResizeEvent>

#include "IMAnimation.h"
#include "IMTableView.h"
#include "UxImageView.h"
#include "UxLabel.h"

IMTableViewCell::IMTableViewCell(const QString &reuseIdentifier, QWidget *parent)
    : QWidget(parent)
    , m_reuseIdentifier(reuseIdentifier)
{
    setAttribute(Qt::WA_StyledBackground, true);
    setAutoFillBackground(true);
    QPalette pal = palette();
    pal.setColor(QPalette::Window, Qt::white);
    setPalette(pal);
    m_contentView = new QWidget(this);
    m_contentView->setObjectName(QStringLiteral("contentView"));
    m_contentView->setAutoFillBackground(true);
    m_contentView->setPalette(pal);
    // A hairline under the row, inset like a phone's list; the table says when to draw it.
    m_separator = new QWidget(this);
    m_separator->setObjectName(QStringLiteral("separator"));
    m_separator->setStyleSheet(QStringLiteral("background: #e0e0e5;"));
    m_separator->hide();
}

IMTableViewCell::~IMTableViewCell() = default;

bool IMTableViewCell::event(QEvent *event)
{
    if (event->type() == QEvent::DynamicPropertyChange) {
        const bool shown = property("imSeparator").toBool();
        m_separator->setVisible(shown);
        if (shown)
            m_separator->raise();
    }
    return QWidget::event(event);
}

QString IMTableViewCell::reuseIdentifier() const { return m_reuseIdentifier; }
void IMTableViewCell::prepareForReuse() {}
QWidget *IMTableViewCell::contentView() const { return m_contentView; }

IMTableView *IMTableViewCell::tableView() const
{
    for (QWidget *w = parentWidget(); w; w = w->parentWidget())
        if (auto *table = qobject_cast<IMTableView *>(w))
            return table;
    return nullptr;
}

bool IMTableViewCell::isSelected() const { return m_selected; }

void IMTableViewCell::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    QPalette pal = m_contentView->palette();
    pal.setColor(QPalette::Window, selected ? QColor(229, 229, 234) : palette().color(QPalette::Window));
    m_contentView->setPalette(pal);
    update();
}

UxImageView *IMTableViewCell::photoImageView() const { return m_photoImageView; }
void IMTableViewCell::setPhotoImageView(UxImageView *view) { m_photoImageView = view; }
UxLabel *IMTableViewCell::titleLabel() const { return m_titleLabel; }
void IMTableViewCell::setTitleLabel(UxLabel *label) { m_titleLabel = label; }
UxLabel *IMTableViewCell::timeLabel() const { return m_timeLabel; }
void IMTableViewCell::setTimeLabel(UxLabel *label) { m_timeLabel = label; }

qreal IMTableViewCell::contentOffsetX() const { return m_contentOffsetX; }

void IMTableViewCell::setContentOffsetX(qreal offset)
{
    if (IMAnimateProperty(this, "contentOffsetX", m_contentOffsetX, offset))
        return;
    m_contentOffsetX = offset;
    m_contentView->move(-qRound(offset), 0);
}

void IMTableViewCell::connectOutlets()
{
    if (!m_photoImageView)
        m_photoImageView = findChild<UxImageView *>(QStringLiteral("photoImageView"));
    if (!m_titleLabel)
        m_titleLabel = findChild<UxLabel *>(QStringLiteral("titleLabel"));
    if (!m_timeLabel)
        m_timeLabel = findChild<UxLabel *>(QStringLiteral("timeLabel"));
}

namespace {
const QLayout *contentLayout(const IMTableViewCell *cell)
{
    if (cell->contentView()->layout())
        return cell->contentView()->layout();
    return cell->layout();
}
} // namespace

int IMTableViewCell::heightForWidth(int width) const
{
    const QLayout *l = contentLayout(this);
    if (!l)
        return sizeHint().height();
    if (l->hasHeightForWidth())
        return l->totalHeightForWidth(width);
    return l->totalSizeHint().height();
}

bool IMTableViewCell::hasHeightForWidth() const { return true; }

void IMTableViewCell::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    // The content fills the row; it slides aside while row actions show.
    m_contentView->setGeometry(-qRound(m_contentOffsetX), 0, width(), height());
    const int inset = property("imSeparatorInset").isValid() ? property("imSeparatorInset").toInt() : 16;
    m_separator->setGeometry(inset, height() - 1, qMax(0, width() - inset), 1);
}

void IMTableViewCell::paintEvent(QPaintEvent *event) { QWidget::paintEvent(event); }
