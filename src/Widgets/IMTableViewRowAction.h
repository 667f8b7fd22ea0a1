#pragma once

#include <QColor>
#include <QObject>
#include <functional>

#include "IMIndexPath.h"

//! An action revealed by dragging a row sideways (or offered in the row's context menu).
class IMTableViewRowAction : public QObject {
    Q_OBJECT
public:
    //! Default: a destructive (red) action; Normal: a grey one.
    enum Style { Default, Normal };
    Q_ENUM(Style)
    //! Called on the main thread with the action and the row's index path.
    using Handler = std::function<void(IMTableViewRowAction *action, const IMIndexPath &indexPath)>;

    //! An action titled `title`.
    IMTableViewRowAction(Style style, const QString &title, const Handler &handler, QObject *parent = nullptr);
    //! The style.
    Style style() const;
    //! The title.
    QString title() const;
    //! The background colour (red for Default, grey for Normal unless set).
    QColor backgroundColor() const;
    //! Sets the background colour.
    void setBackgroundColor(const QColor &color);
    //! Runs the handler for `indexPath`.
    void trigger(const IMIndexPath &indexPath);

private:
    Style m_style;
    QString m_title;
    Handler m_handler;
    QColor m_color;
};
