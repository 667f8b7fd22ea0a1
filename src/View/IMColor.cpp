#include "IMColor.h"

bool IMColorIsEqualToColor(const QColor &a, const QColor &b)
{
    if (!a.isValid() || !b.isValid())
        return a.isValid() == b.isValid();
    // Both in RGB first, so a grey given any other way equals the same RGB colour.
    return a.toRgb().rgba64() == b.toRgb().rgba64();
}
