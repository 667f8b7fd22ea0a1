#include "IMKeyboard.h"

#include <QGuiApplication>
#include <QInputMethod>
#include <QRect>

#include "IMNotificationCenter.h"

const QString kIMKeyboardWillChangeFrameNotification = QStringLiteral("IMKeyboardWillChangeFrameNotification");
const QString kIMKeyboardDidChangeFrameNotification = QStringLiteral("IMKeyboardDidChangeFrameNotification");

void IMKeyboard::install()
{
    static bool installed = false;
    if (installed || !qGuiApp)
        return;
    installed = true;
    QInputMethod *im = QGuiApplication::inputMethod();
    QObject::connect(im, &QInputMethod::keyboardRectangleChanged, im, [im] {
        // The platform reports the new rectangle once it moved; phones animate over a quarter second.
        const QVariantMap info {
            {QStringLiteral("frameEnd"), im->keyboardRectangle().toRect()}, {QStringLiteral("duration"), 0.25}};
        IMNotificationCenter::defaultCenter()->post(kIMKeyboardWillChangeFrameNotification, {}, info);
        IMNotificationCenter::defaultCenter()->post(kIMKeyboardDidChangeFrameNotification, {}, info);
    });
}
