#include "IMMessageContainerViewController.h"

#include "IMStoryboard.h"

IM_STORYBOARD_SCREEN(IMMessageContainerViewController);

IMMessageContainerViewController::IMMessageContainerViewController(QWidget *parent)
    : IMUIViewController(parent)
{
}
IMRoomPtr IMMessageContainerViewController::room() const { return m_room; }
void IMMessageContainerViewController::setRoom(const IMRoomPtr &room) { m_room = room; }
