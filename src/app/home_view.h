// The home screen while no disk or folder has been scanned: a short statement that there are no
// scans yet, on the window's background.
#pragma once

#include <QWidget>

class QLabel;

namespace tw {

class HomeView : public QWidget {
  Q_OBJECT
 public:
  explicit HomeView(QWidget* parent = nullptr);

  QLabel* titleLabel() const { return title_; }
  QLabel* detailLabel() const { return detail_; }

 private:
  QLabel* title_;
  QLabel* detail_;
};

}  // namespace tw
