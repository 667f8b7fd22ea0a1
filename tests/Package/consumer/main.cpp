#include <ParloSDK/ParloSDK.h>

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // The installed headers and library are usable: the facade starts with its defaults.
    return Parlo::shareInstance()->timeout() == 5 && kParloDidChatIn == QLatin1String("ParloDidChatIn") ? 0 : 1;
}
