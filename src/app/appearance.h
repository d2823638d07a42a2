// Tarnwell's dark appearance for the whole application: the Fusion style with a palette built
// from Tarnwell's colours, whatever the desktop's theme.
#pragma once

#include <QColor>
#include <QPalette>

#include "ui/palette.h"

class QApplication;

namespace tw {

QColor toQColor(const Rgba& colour);
QPalette darkPalette();
// Sets the Fusion style and the dark palette on `app`.
void applyDarkAppearance(QApplication& app);

}  // namespace tw
