#pragma once

#include <QColor>

//! Whether two colours are equal once both are in RGB: a grey colour (grey, alpha) counts as the
//! RGB colour (grey, grey, grey, alpha). Invalid colours ("none") equal only each other.
bool IMColorIsEqualToColor(const QColor &a, const QColor &b);
