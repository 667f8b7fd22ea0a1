#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>

class IMTableView;
class UxImageView;
class UxLabel;

//! A table row: a widget the table positions, reuses by identifier and hands back to its data
//! source. A row's own widgets live in `contentView()` (which slides aside to show row actions).
class IMTableViewCell : public QWidget {
    Q_OBJECT
    Q_PROPERTY(qreal contentOffsetX READ contentOffsetX WRITE setContentOffsetX)
public:
    //! A row of kind `reuseIdentifier`.
    explicit IMTableViewCell(const QString &reuseIdentifier = {}, QWidget *parent = nullptr);
    ~IMTableViewCell() override;
    //! The kind of row, for reuse.
    QString reuseIdentifier() const;
    //! Called before the table hands a reused row out again; subclasses reset their state here.
    virtual void prepareForReuse();
    //! The widget holding the row's content; the row's layout goes here.
    QWidget *contentView() const;
    //! The table that shows the row: the first `IMTableView` found by walking up the parents.
    IMTableView *tableView() const;
    //! Whether the row is highlighted as selected.
    bool isSelected() const;
    //! Highlights the row as selected (or not).
    virtual void setSelected(bool selected);

    //! The avatar or thumbnail view (set from the row's layout; may be null).
    UxImageView *photoImageView() const;
    //! Sets the avatar or thumbnail view.
    void setPhotoImageView(UxImageView *view);
    //! The row's main text (set from the row's layout; may be null).
    UxLabel *titleLabel() const;
    //! Sets the main text label.
    void setTitleLabel(UxLabel *label);
    //! The row's time text (set from the row's layout; may be null).
    UxLabel *timeLabel() const;
    //! Sets the time label.
    void setTimeLabel(UxLabel *label);

    //! How far the content is slid left to show row actions (0 when closed).
    qreal contentOffsetX() const;
    //! Slides the content left by `offset` points (animatable inside `IMAnimate`).
    void setContentOffsetX(qreal offset);

    //! Finds the three outlets by object name ("photoImageView", "titleLabel", "timeLabel") among the
    //! row's children; layouts made in Designer call it after `setupUi`.
    void connectOutlets();

    //! Height of the row at `width`, from the content's layout (or its size hint).
    int heightForWidth(int width) const override;
    bool hasHeightForWidth() const override;

protected:
    bool event(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_reuseIdentifier;
    QWidget *m_contentView = nullptr;
    QWidget *m_separator = nullptr;
    QPointer<UxImageView> m_photoImageView;
    QPointer<UxLabel> m_titleLabel;
    QPointer<UxLabel> m_timeLabel;
    bool m_selected = false;
    qreal m_contentOffsetX = 0;
};
