// Screenshots of the toolkit: an action sheet, a table of mixed rows with one swiped open, and
// the small widgets.
#include <QCoreApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

#include "IMActivityIndicator.h"
#include "IMImage.h"
#include "IMNavigationController.h"
#include "IMTableView.h"
#include "IMTableViewCell.h"
#include "IMTableViewRowAction.h"
#include "IMViewController.h"
#include "IMWindow.h"
#include "Screenshots.h"
#include "UxAlertController.h"
#include "UxButton.h"
#include "UxImageView.h"
#include "UxLabel.h"

namespace {
class MixedCell : public IMTableViewCell {
public:
    MixedCell()
        : IMTableViewCell(QStringLiteral("Mixed"))
    {
        auto *row = new QHBoxLayout(contentView());
        row->setContentsMargins(16, 10, 16, 10);
        row->setSpacing(12);
        auto *photo = new UxImageView(contentView());
        photo->setFixedSize(44, 44);
        photo->setCornerRadius(22);
        auto *texts = new QVBoxLayout;
        texts->setSpacing(2);
        auto *title = new UxLabel(contentView());
        title->setStyleSheet(QStringLiteral("font-size: 16px; font-weight: 600; color: #1c1c1e;"));
        subtitle = new UxLabel(contentView());
        subtitle->setWordWrap(true);
        subtitle->setStyleSheet(QStringLiteral("font-size: 14px; color: #8e8e93;"));
        texts->addWidget(title);
        texts->addWidget(subtitle);
        auto *time = new UxLabel(contentView());
        time->setStyleSheet(QStringLiteral("font-size: 12px; color: #8e8e93;"));
        time->setAlignment(Qt::AlignRight | Qt::AlignTop);
        row->addWidget(photo, 0, Qt::AlignTop);
        row->addLayout(texts, 1);
        row->addWidget(time, 0, Qt::AlignTop);
        setPhotoImageView(photo);
        setTitleLabel(title);
        setTimeLabel(time);
    }
    UxLabel *subtitle;
};

struct Row {
    QString title, subtitle, time;
    QColor color;
};

class MixedRows : public IMViewController, public IMTableViewDataSource, public IMTableViewDelegate {
public:
    QList<Row> rows {
        {QStringLiteral("Alice"), QStringLiteral("Noodles at noon?"), QStringLiteral("12:04"), QColor(52, 120, 246)},
        {QStringLiteral("設計小組"),
            QStringLiteral("Bob: 我把新的版面放在共享資料夾裡了，大家有空可以看一下，明天早上開會再討論細節。"),
            QStringLiteral("昨天"), QColor(255, 149, 0)},
        {QStringLiteral("Carol"), QStringLiteral("[圖片]"), QStringLiteral("星期二"), QColor(52, 199, 89)},
        {QStringLiteral("Support"), QStringLiteral("Your order has shipped."), QStringLiteral("11/18"),
            QColor(175, 82, 222)},
        {QStringLiteral("Dan"),
            QStringLiteral("A much longer message that wraps over several lines so that this row is taller than the "
                           "others and shows the heights measured from a template row."),
            QStringLiteral("11/02"), QColor(255, 59, 48)},
        {QStringLiteral("Eve"), QStringLiteral("👍"), QStringLiteral("10/30"), QColor(90, 200, 250)},
    };
    IMTableView *table = nullptr;

protected:
    void loadView() override
    {
        auto *layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        table = new IMTableView(this);
        layout->addWidget(table);
        setTableview(table);
        table->registerCell(QStringLiteral("Mixed"), [] { return new MixedCell; });
        table->setDelegate(this);
        table->setDataSource(this);
    }
    int numberOfRowsInSection(IMTableView *, int) override { return rows.size(); }
    IMTableViewCell *cellForRowAtIndexPath(IMTableView *t, const IMIndexPath &p) override
    {
        auto *cell = static_cast<MixedCell *>(t->dequeueReusableCellWithIdentifier(QStringLiteral("Mixed"), p));
        dress(cell, rows[p.row]);
        return cell;
    }
    qreal heightForRowAtIndexPath(IMTableView *t, const IMIndexPath &p) override
    {
        return t->heightForCellWithIdentifier(QStringLiteral("Mixed"), rows[p.row].subtitle,
            [&](IMTableViewCell *c) { dress(static_cast<MixedCell *>(c), rows[p.row]); });
    }
    bool canEditRowAtIndexPath(IMTableView *, const IMIndexPath &) override { return true; }
    QList<IMTableViewRowAction *> editActionsForRowAtIndexPath(IMTableView *, const IMIndexPath &) override
    {
        return {new IMTableViewRowAction(IMTableViewRowAction::Default, QStringLiteral("隱藏"), {})};
    }

private:
    static void dress(MixedCell *cell, const Row &row)
    {
        cell->titleLabel()->setText(row.title);
        cell->subtitle->setText(row.subtitle);
        cell->timeLabel()->setText(row.time);
        cell->photoImageView()->setImage(parloLetterImage(row.color, row.title.left(1)));
    }
};
} // namespace

PARLO_SCREENSHOT({"toolkit-table-mixed-rows",
    [] {
        auto *screen = new MixedRows;
        screen->setTitle(QStringLiteral("聊天室"));
        auto *window = new IMWindow;
        window->setRootViewController(new IMNavigationController(screen));
        window->resize(390, 720);
        window->show();
        // Swipe the third row open, as a user's drag would.
        QTimer::singleShot(50, screen, [screen] {
            screen->table->layoutIfNeeded();
            if (IMTableViewCell *cell = screen->table->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(2))) {
                const QPoint c = cell->geometry().center();
                QMetaObject::invokeMethod(screen->table, [table = screen->table, c] {
                    QMouseEvent press(QEvent::MouseButtonPress, c, table->viewport()->mapToGlobal(c), Qt::LeftButton,
                        Qt::LeftButton, {});
                    QCoreApplication::sendEvent(table->viewport(), &press);
                    for (int dx = 10; dx <= 90; dx += 10) {
                        const QPointF p = c - QPoint(dx, 0);
                        QMouseEvent move(
                            QEvent::MouseMove, p, table->viewport()->mapToGlobal(p), Qt::NoButton, Qt::LeftButton, {});
                        QCoreApplication::sendEvent(table->viewport(), &move);
                    }
                    const QPointF end = c - QPoint(90, 0);
                    QMouseEvent release(QEvent::MouseButtonRelease, end, table->viewport()->mapToGlobal(end),
                        Qt::LeftButton, Qt::NoButton, {});
                    QCoreApplication::sendEvent(table->viewport(), &release);
                });
            }
        });
        return static_cast<QWidget *>(window);
    },
    {390, 720}, 300});

PARLO_SCREENSHOT({"toolkit-action-sheet", [] {
                      auto *screen = new MixedRows;
                      screen->setTitle(QStringLiteral("聊天室"));
                      auto *window = new IMWindow;
                      window->setRootViewController(new IMNavigationController(screen));
                      window->resize(390, 720);
                      window->show();
                      UxAlertController::showWithController(screen, QStringLiteral("取消"), 0,
                          QStringLiteral("照片來自"), QString(), {QStringLiteral("照相機"), QStringLiteral("相片圖庫")},
                          [](int) {});
                      return static_cast<QWidget *>(window);
                  }});

PARLO_SCREENSHOT({"toolkit-widgets", [] {
                      auto *w = new QWidget;
                      w->setStyleSheet(QStringLiteral("background: white;"));
                      auto *grid = new QGridLayout(w);
                      grid->setContentsMargins(24, 24, 24, 24);
                      grid->setSpacing(16);
                      auto *label = new UxLabel(QStringLiteral("UxLabel 標籤"), w);
                      label->setTextColor(QColor(36, 113, 163));
                      grid->addWidget(label, 0, 0, 1, 2);
                      auto *button = new UxButton(QStringLiteral("傳送"), w);
                      button->setTintColor(QColor(0, 122, 255));
                      grid->addWidget(button, 1, 0);
                      auto *camera = new UxButton(w);
                      camera->setImage(IMImage::named(QStringLiteral("camera")));
                      camera->setTintColor(QColor(255, 149, 0));
                      camera->setIconSize(QSize(28, 24));
                      grid->addWidget(camera, 1, 1);
                      auto *round = new UxImageView(w);
                      round->setFixedSize(80, 80);
                      round->setCornerRadius(40);
                      round->setImage(parloLetterImage(QColor(52, 120, 246), QStringLiteral("A")));
                      grid->addWidget(round, 2, 0);
                      auto *square = new UxImageView(w);
                      square->setFixedSize(120, 80);
                      square->setContentMode(UxImageView::AspectFit);
                      square->setImage(parloLetterImage(QColor(52, 199, 89), QStringLiteral("B")));
                      square->setStyleSheet(QStringLiteral("background: #f2f2f7;"));
                      grid->addWidget(square, 2, 1);
                      auto *spinner = new IMActivityIndicator(w);
                      spinner->setFixedSize(28, 28);
                      spinner->startAnimating();
                      grid->addWidget(spinner, 3, 0);
                      int col = 0;
                      auto *images = new QHBoxLayout;
                      for (const char *name : {"expand_arrow", "placeholder", "camera", "Combined Shape"}) {
                          auto *v = new UxImageView(w);
                          v->setFixedSize(48, 48);
                          v->setContentMode(UxImageView::AspectFit);
                          v->setImage(IMImage::named(QString::fromLatin1(name)));
                          images->addWidget(v);
                          ++col;
                      }
                      grid->addLayout(images, 4, 0, 1, 2);
                      grid->setRowStretch(5, 1);
                      return w;
                  }});
