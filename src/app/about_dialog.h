// The "About Tarnwell" window: the icon, the name, "Version %@", the commit and kind of this
// build, and a "Close" button that is the default button.
#pragma once

#include <QDialog>

namespace tw {

class AboutDialog : public QDialog {
  Q_OBJECT
 public:
  explicit AboutDialog(QWidget* parent = nullptr);
};

}  // namespace tw
