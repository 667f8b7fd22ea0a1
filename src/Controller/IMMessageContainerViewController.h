#pragma once

#include "IMRoom.h"
#include "IMUIViewController.h"

//! A holder screen that a layout embeds and hands a room to; it does nothing else.
class IMMessageContainerViewController : public IMUIViewController {
    Q_OBJECT
public:
    //! An empty holder.
    explicit IMMessageContainerViewController(QWidget *parent = nullptr);
    //! The room handed over.
    IMRoomPtr room() const;
    //! Keeps `room`.
    void setRoom(const IMRoomPtr &room);

private:
    IMRoomPtr m_room;
};
