// Test entry point for the screens: a QApplication owns the main thread's event loop, as in a host.
#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    // Offscreen unless a run asks for a real display (test discovery runs without CTest's environment).
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("ParloSDKTests"));
    QApplication::setApplicationName(QStringLiteral("ParloSDKUITests"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
