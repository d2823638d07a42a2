// A disk row's usage bar: a rounded track filled to a share of 0…1 in one colour, with a moving
// stripe while a scan runs.
#pragma once

#include <QColor>
#include <QTimer>
#include <QWidget>

namespace tw {

class UsageBar : public QWidget {
  Q_OBJECT
 public:
  explicit UsageBar(QWidget* parent = nullptr);

  double value() const { return value_; }
  void setValue(double value);  // clamped to 0…1
  QColor fillColour() const { return fill_; }
  void setFillColour(const QColor& colour);
  bool isStriped() const { return timer_.isActive(); }
  void setStriped(bool on);

  QSize sizeHint() const override { return {200, 8}; }
  QSize minimumSizeHint() const override { return {40, 8}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  double value_ = 0;
  QColor fill_;
  int phase_ = 0;
  QTimer timer_;
};

// A small spinning indicator, animated only while running.
class Spinner : public QWidget {
  Q_OBJECT
 public:
  explicit Spinner(QWidget* parent = nullptr);
  void setRunning(bool on);
  bool isRunning() const { return timer_.isActive(); }
  QSize sizeHint() const override { return {16, 16}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  int angle_ = 0;
  QTimer timer_;
};

}  // namespace tw
