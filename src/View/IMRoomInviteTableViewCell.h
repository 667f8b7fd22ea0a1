#pragma once

#include <QPointer>

#include "IMTableViewCell.h"

class UxImageView;

//! A row of the invite list: a candidate's photo and name, with a check mark.
class IMRoomInviteTableViewCell : public IMTableViewCell {
    Q_OBJECT
public:
    //! A row of kind `reuseIdentifier`, laid out from its Designer layout.
    explicit IMRoomInviteTableViewCell(
        const QString &reuseIdentifier = QStringLiteral("Cell"), QWidget *parent = nullptr);
    //! The check mark's view.
    UxImageView *checkImageView() const;
    //! Whether the candidate is checked.
    bool checked() const;
    //! Checks or unchecks: the image "camera" when checked, "Combined Shape" when not.
    void setChecked(bool checked);

private:
    QPointer<UxImageView> m_checkImageView;
    bool m_checked = false;
};
