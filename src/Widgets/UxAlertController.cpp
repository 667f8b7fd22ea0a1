#include "UxAlertController.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "IMAnimation.h"

namespace {
QPointer<UxAlertController> g_current;
const int kMargin = 10;
} // namespace

struct UxAlertController::Private {
    QWidget *panel = nullptr;
    QWidget *group = nullptr;
    QStringList titles; // the buttons', cancel last
    Completion complete;
    bool done = false;
};

UxAlertController *UxAlertController::showWithController(QWidget *controller, const QString &cancelTitle, int,
    const QString &title, const QString &message, const QStringList &buttons, const Completion &complete)
{
    QWidget *window = controller ? controller->window() : QApplication::activeWindow();
    if (!window) {
        const auto tops = QApplication::topLevelWidgets();
        for (QWidget *w : tops)
            if (w->isVisible()) {
                window = w;
                break;
            }
    }
    // One sheet at a time: a sheet still up counts as cancelled.
    if (g_current)
        g_current->choose(-1);
    auto *sheet = new UxAlertController(window, cancelTitle, title, message, buttons, complete);
    g_current = sheet;
    return sheet;
}

UxAlertController *UxAlertController::current() { return g_current; }

UxAlertController::UxAlertController(QWidget *window, const QString &cancelTitle, const QString &title,
    const QString &message, const QStringList &buttons, const Completion &complete)
    : QWidget(window)
    , d(new Private)
{
    d->complete = complete;
    d->titles = buttons;
    d->titles << cancelTitle;
    setObjectName(QStringLiteral("UxAlertController"));
    setAttribute(Qt::WA_DeleteOnClose, false);
    setFocusPolicy(Qt::StrongFocus);
    if (!window)
        setWindowFlags(Qt::Window | Qt::FramelessWindowHint);

    d->panel = new QWidget(this);
    d->panel->setObjectName(QStringLiteral("UxAlertPanel"));
    auto *outer = new QVBoxLayout(d->panel);
    outer->setContentsMargins(kMargin, 0, kMargin, kMargin);
    outer->setSpacing(8);
    d->group = new QWidget(d->panel);
    d->group->setObjectName(QStringLiteral("UxAlertGroup"));
    d->group->setStyleSheet(QStringLiteral(
        "QWidget#UxAlertGroup, QWidget#UxAlertCancel { background: rgba(250,250,252,0.98); border-radius: 13px; }"
        "QPushButton { background: transparent; border: none; color: #007aff; font-size: 18px; padding: 14px; }"
        "QPushButton:pressed { background: rgba(0,0,0,0.08); }"
        "QLabel#UxAlertTitle { color: #8e8e93; font-size: 13px; font-weight: 600; }"
        "QLabel#UxAlertMessage { color: #8e8e93; font-size: 13px; }"
        "QFrame#UxAlertLine { background: rgba(60,60,67,0.18); max-height: 1px; min-height: 1px; }"));
    auto *groupLayout = new QVBoxLayout(d->group);
    groupLayout->setContentsMargins(0, 0, 0, 0);
    groupLayout->setSpacing(0);
    auto addLine = [this, groupLayout] {
        auto *line = new QFrame(d->group);
        line->setObjectName(QStringLiteral("UxAlertLine"));
        groupLayout->addWidget(line);
    };
    if (!title.isEmpty() || !message.isEmpty()) {
        auto *header = new QWidget(d->group);
        auto *hl = new QVBoxLayout(header);
        hl->setContentsMargins(16, 14, 16, 14);
        hl->setSpacing(4);
        if (!title.isEmpty()) {
            auto *t = new QLabel(title, header);
            t->setObjectName(QStringLiteral("UxAlertTitle"));
            t->setAlignment(Qt::AlignCenter);
            t->setWordWrap(true);
            hl->addWidget(t);
        }
        if (!message.isEmpty()) {
            auto *m = new QLabel(message, header);
            m->setObjectName(QStringLiteral("UxAlertMessage"));
            m->setAlignment(Qt::AlignCenter);
            m->setWordWrap(true);
            hl->addWidget(m);
        }
        groupLayout->addWidget(header);
    }
    for (int i = 0; i < buttons.size(); ++i) {
        if (i > 0 || !title.isEmpty() || !message.isEmpty())
            addLine();
        auto *b = new QPushButton(buttons[i], d->group);
        b->setCursor(Qt::PointingHandCursor);
        connect(b, &QPushButton::clicked, this, [this, i] { choose(i); });
        groupLayout->addWidget(b);
    }
    if (!buttons.isEmpty() || !title.isEmpty() || !message.isEmpty())
        outer->addWidget(d->group);
    else
        d->group->hide();
    auto *cancelBox = new QWidget(d->panel);
    cancelBox->setObjectName(QStringLiteral("UxAlertCancel"));
    cancelBox->setStyleSheet(d->group->styleSheet());
    auto *cl = new QVBoxLayout(cancelBox);
    cl->setContentsMargins(0, 0, 0, 0);
    auto *cancel = new QPushButton(cancelTitle, cancelBox);
    cancel->setObjectName(QStringLiteral("UxAlertCancelButton"));
    cancel->setCursor(Qt::PointingHandCursor);
    QFont f = cancel->font();
    f.setBold(true);
    cancel->setFont(f);
    connect(cancel, &QPushButton::clicked, this, [this] { choose(-1); });
    cl->addWidget(cancel);
    outer->addWidget(cancelBox);

    if (window) {
        setGeometry(window->rect());
        window->installEventFilter(this);
    } else {
        resize(390, 400);
    }
    const int w = qMin(width(), 500);
    const int h = d->panel->sizeHint().height();
    const QRect final((width() - w) / 2, height() - h, w, h);
    d->panel->setGeometry(final.translated(0, h));
    show();
    raise();
    setFocus();
    IMAnimate(0.25, [this, final] { IMViewSetGeometry(d->panel, final); });
    if (!IMAnimationsEnabled())
        d->panel->setGeometry(final);
}

UxAlertController::~UxAlertController()
{
    if (!d->done) {
        d->done = true;
        if (g_current == this)
            g_current = nullptr;
        if (d->complete)
            d->complete(-1);
    }
    delete d;
}

QStringList UxAlertController::buttonTitles() const { return d->titles; }

void UxAlertController::choose(int index)
{
    if (d->done)
        return;
    d->done = true;
    if (parentWidget())
        parentWidget()->removeEventFilter(this);
    hide();
    deleteLater();
    if (g_current == this)
        g_current = nullptr;
    if (index < -1 || index >= d->titles.size() - 1)
        index = -1;
    // The sheet is gone before the completion runs, so the completion may show another.
    const Completion complete = d->complete;
    if (complete)
        complete(index);
}

bool UxAlertController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize) {
        setGeometry(parentWidget()->rect());
        const int w = qMin(width(), 500);
        const int h = d->panel->sizeHint().height();
        d->panel->setGeometry((width() - w) / 2, height() - h, w, h);
    }
    return QWidget::eventFilter(watched, event);
}

void UxAlertController::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        choose(-1);
        return;
    }
    QWidget::keyPressEvent(event);
}

void UxAlertController::mousePressEvent(QMouseEvent *event)
{
    // A click on the dimmed area outside the panel cancels.
    if (!d->panel->geometry().contains(event->position().toPoint()))
        choose(-1);
}

void UxAlertController::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(0, 0, 0, 90));
}
