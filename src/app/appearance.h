// Tarnwell's dark appearance for the whole application: the Fusion style with a palette built
// from Tarnwell's colours, whatever the desktop's theme.
#pragma once

#include <QColor>
#include <QPalette>

#include "ui/palette.h"
#include "ui/qt_color.h"

class QApplication;
class QMessageBox;

namespace tw {

QPalette darkPalette();
// Sets Tarnwell's style (Fusion, adjusted) and the dark palette on `app`.
void applyDarkAppearance(QApplication& app);
// Lays out an alert as Tarnwell shows them: the message in bold above an informative text wide
// enough to read as sentences. Call after setting both texts.
void applyAlertLayout(QMessageBox& box);

}  // namespace tw
