#pragma once

#include <QImage>
#include <QString>

//! Named image assets: "expand_arrow", "placeholder", "camera", "Combined Shape".
class IMImage {
public:
    //! The host's resource ":/ParloSDK/images/NAME.png" when present, else the kit's own default;
    //! a null image for an unknown name.
    static QImage named(const QString &name);
};
