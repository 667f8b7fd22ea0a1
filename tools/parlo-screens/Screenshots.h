#pragma once

// The screenshot tool's registry: each file of tools/parlo-screens registers named screens in
// named states with PARLO_SCREENSHOT; the tool builds each one offscreen, lets it settle and
// saves it as NAME.png.
#include <QColor>
#include <QImage>
#include <QSize>
#include <QString>
#include <QWidget>
#include <functional>

struct Screenshot {
    QString name; // file name without ".png"; also how it is chosen
    std::function<QWidget *()> make; // builds the top-level widget to grab (the tool deletes it)
    QSize size {390, 720}; // window size, in points
    int settleMs = 150; // event-loop time before the grab (images, posted layout)
};

// A square picture of `letter` in white on `color`, for photos that no server provides here.
QImage parloLetterImage(const QColor &color, const QString &letter);

// Adds a screenshot to the registry (at static initialisation).
int parloRegisterScreenshot(const Screenshot &shot);

#define PARLO_SCREENSHOT_CAT2(a, b) a##b
#define PARLO_SCREENSHOT_CAT(a, b) PARLO_SCREENSHOT_CAT2(a, b)
// PARLO_SCREENSHOT({"name", [] { return widget; }, {w, h}, settleMs});
#define PARLO_SCREENSHOT(...)                                                                                          \
    static const int PARLO_SCREENSHOT_CAT(parloScreenshot_, __LINE__) = parloRegisterScreenshot(Screenshot __VA_ARGS__)
