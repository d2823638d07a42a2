// Alerts as Tarnwell shows them on every screen: a message box on the window it concerns
// (window-modal, a sheet), its message in bold above an informative text wide enough to read as
// sentences, deleted when it closes.
#pragma once

#include <QMessageBox>
#include <QString>

class QWidget;

namespace tw {

// The least width of an alert's text (its informative text, else its message), in
// device-independent pixels.
inline constexpr int kAlertTextWidth = 360;

// A sheet on `parent`'s window, not shown yet: add its buttons ("OK" when none is added), then
// open() it.
QMessageBox* makeAlert(QWidget* parent, QMessageBox::Icon icon, const QString& message,
                       const QString& informativeText = {});

}  // namespace tw
