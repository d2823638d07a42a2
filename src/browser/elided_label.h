// A one-line label for names of any length. The text is elided to the width the layout gives the
// label, and neither its size hint nor its minimum size depends on the text, so a long name never
// widens the panel it sits in nor moves what sits beside it. An optional coloured dot goes before
// the text.
#pragma once

#include <QColor>
#include <QString>
#include <QWidget>
#include <optional>

namespace tw {

class ElidedLabel : public QWidget {
  Q_OBJECT

 public:
  explicit ElidedLabel(Qt::TextElideMode mode, QWidget* parent = nullptr);

  // The whole text, shown after a dot in `dot` when one is given.
  void setText(const QString& text, std::optional<QColor> dot = std::nullopt);
  void clear() { setText(QString()); }
  const QString& text() const { return text_; }
  std::optional<QColor> dotColor() const { return dot_; }
  // The text as it fits the label's present width.
  QString shownText() const;

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  // Width of the dot and the space after it, or 0.
  int dotWidth() const;

  Qt::TextElideMode mode_;
  QString text_;
  std::optional<QColor> dot_;
};

}  // namespace tw
