// Test entry point: a QCoreApplication owns the main thread's event loop, as in a host.
#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("ParloSDKTests"));
    QCoreApplication::setApplicationName(QStringLiteral("ParloSDKTests"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
