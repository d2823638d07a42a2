// "Add File Pattern": asks for one name or wildcard path pattern to leave out of future scans.
// Shown window-modal on the Settings window.
#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;

namespace tw {

class PatternDialog : public QDialog {
  Q_OBJECT
 public:
  explicit PatternDialog(QWidget* parent);

  QLineEdit* field() const { return field_; }
  QPushButton* addButton() const { return add_; }
  QPushButton* cancelButton() const { return cancel_; }

 signals:
  // The text as typed, when the user chose "Add".
  void patternEntered(const QString& text);

 private:
  QLineEdit* field_;
  QPushButton* add_;
  QPushButton* cancel_;
};

}  // namespace tw
