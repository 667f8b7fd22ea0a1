#include "IMRoomInviteTableViewCell.h"

#include "IMImage.h"
#include "UxImageView.h"
#include "ui_IMRoomInviteTableViewCell.h"

IMRoomInviteTableViewCell::IMRoomInviteTableViewCell(const QString &reuseIdentifier, QWidget *parent)
    : IMTableViewCell(reuseIdentifier, parent)
{
    Ui::IMRoomInviteTableViewCell ui;
    ui.setupUi(contentView());
    connectOutlets();
    m_checkImageView = ui.checkImageView;
    setProperty("imSeparatorInset", 72);
    setChecked(false);
}

UxImageView *IMRoomInviteTableViewCell::checkImageView() const { return m_checkImageView; }
bool IMRoomInviteTableViewCell::checked() const { return m_checked; }

void IMRoomInviteTableViewCell::setChecked(bool checked)
{
    m_checked = checked;
    if (m_checkImageView)
        m_checkImageView->setImage(
            IMImage::named(checked ? QStringLiteral("camera") : QStringLiteral("Combined Shape")));
}
