#pragma once

#include <QStringList>
#include <QWidget>
#include <functional>

//! An action sheet: a panel of real buttons over a dimmed window, with a cancel button.
class UxAlertController : public QWidget {
    Q_OBJECT
public:
    //! Called once with the chosen button's index, or -1 for cancel (the cancel button, Escape or a
    //! click outside the panel).
    using Completion = std::function<void(int index)>;

    //! Shows a sheet over `controller`'s window (or the active window when null) with `title` and
    //! `message` (either may be empty), `buttons` in order and `cancelTitle` last; `type` is kept for
    //! hosts (0 action sheet, 1 alert). Returns the sheet, which deletes itself after `complete` ran.
    static UxAlertController *showWithController(QWidget *controller, const QString &cancelTitle, int type,
        const QString &title, const QString &message, const QStringList &buttons, const Completion &complete);
    //! A sheet destroyed before a choice (its window closed, say) completes with -1.
    ~UxAlertController() override;
    //! The sheet on screen, or null.
    static UxAlertController *current();
    //! The titles of the buttons (cancel last).
    QStringList buttonTitles() const;
    //! Chooses the button at `index` (-1 cancels), as a click would.
    void choose(int index);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    UxAlertController(QWidget *window, const QString &cancelTitle, const QString &title, const QString &message,
        const QStringList &buttons, const Completion &complete);
    struct Private;
    Private *d;
};
