// Tarnwell's dark appearance for the whole application: the Fusion style with a palette built
// from Tarnwell's colours, whatever the desktop's theme.
#pragma once

#include <QColor>
#include <QPalette>

#include "ui/palette.h"
#include "ui/qt_color.h"

class QApplication;

namespace tw {

QPalette darkPalette();
// Sets Tarnwell's style (Fusion, adjusted) and the dark palette on `app`.
void applyDarkAppearance(QApplication& app);

}  // namespace tw
