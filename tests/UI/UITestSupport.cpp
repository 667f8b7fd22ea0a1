#include "UITestSupport.h"

#include <QTest>

QPointingDevice *testTouchScreen()
{
    static QPointingDevice *device = QTest::createTouchDevice();
    return device;
}
