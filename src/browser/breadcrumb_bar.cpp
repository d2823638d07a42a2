#include "browser/breadcrumb_bar.h"

#include <QFontMetrics>
#include <QFontMetricsF>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QResizeEvent>
#include <algorithm>
#include <cmath>

#include "browser/display_text.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

constexpr int kVisibleCrumbLimit = 5;
constexpr int kTrailingCrumbs = 3;
constexpr int kCrumbPadding = 12;
constexpr int kCrumbMinimumWidth = 44;

QFont crumbFont(QFont::Weight weight) {
  QFont font;
  font.setPixelSize(13);
  font.setWeight(weight);
  return font;
}

// A borderless text button in the bar's style.
void styleFlatButton(QPushButton* button, QFont::Weight weight) {
  button->setFlat(true);
  button->setFont(crumbFont(weight));
  button->setCursor(Qt::PointingHandCursor);
  button->setFocusPolicy(Qt::NoFocus);
  button->setStyleSheet(
      QStringLiteral(
          "QPushButton { border: none; padding: 2px 4px; color: %1; background: transparent; }"
          "QPushButton:hover { color: %2; }")
          .arg(toQColor(palette::kPrimaryText).name(), toQColor(palette::kAccentTeal).name()));
}

// A crumb: the node's name elided in the middle to the width the bar gives it. It asks for its
// whole name up to kBreadcrumbMaximumWidth and makes do with a few characters, so a row of long
// names shrinks with the window instead of widening it.
class CrumbButton : public QPushButton {
 public:
  CrumbButton(const QString& name, QWidget* parent) : QPushButton(parent), name_(name) {
    styleFlatButton(this, QFont::Normal);
    setToolTip(name);
    setAccessibleName(name);
    setMaximumWidth(kBreadcrumbMaximumWidth);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);  // may shrink below its hint
    elideTo(sizeHint().width());
  }

  QSize sizeHint() const override {
    const int whole = textWidth() + kCrumbPadding;
    return {std::min(whole, kBreadcrumbMaximumWidth), QPushButton::sizeHint().height()};
  }
  QSize minimumSizeHint() const override {
    return {std::min(sizeHint().width(), kCrumbMinimumWidth), sizeHint().height()};
  }

 protected:
  void resizeEvent(QResizeEvent* event) override {
    QPushButton::resizeEvent(event);
    elideTo(width());
  }

 private:
  // The name's width rounded up: the rounded-down advance is a fraction short of what the text
  // needs, and eliding to it would shorten names that fit.
  int textWidth() const {
    return static_cast<int>(std::ceil(QFontMetricsF(font()).horizontalAdvance(name_)));
  }
  void elideTo(int width) {
    const int room = width - kCrumbPadding;
    setText(room >= textWidth() ? name_ : fontMetrics().elidedText(name_, Qt::ElideMiddle, room));
  }

  QString name_;
};

QLabel* makeSeparator(QWidget* parent) {
  auto* label = new QLabel(QStringLiteral("\u203a"), parent);
  label->setFont(crumbFont(QFont::Normal));
  label->setStyleSheet(QStringLiteral("color: %1;").arg(toQColor(palette::kSecondaryText).name()));
  return label;
}

}  // namespace

std::vector<ScanNode*> breadcrumbPath(ScanNode* node) {
  std::vector<ScanNode*> path;
  for (; node; node = node->parent()) path.push_back(node);
  std::reverse(path.begin(), path.end());
  return path;
}

std::vector<ScanNode*> elideBreadcrumbs(const std::vector<ScanNode*>& path) {
  if (path.size() <= kVisibleCrumbLimit) return path;
  std::vector<ScanNode*> shown{path.front(), nullptr};
  shown.insert(shown.end(), path.end() - kTrailingCrumbs, path.end());
  return shown;
}

BreadcrumbBar::BreadcrumbBar(QWidget* parent) : QWidget(parent) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(10, 6, 10, 6);
  row->setSpacing(2);
  auto* overview = new QPushButton(QStringLiteral("Disks and Folders"), this);
  styleFlatButton(overview, QFont::Medium);
  overview->setObjectName(QStringLiteral("overviewButton"));
  connect(overview, &QPushButton::clicked, this, &BreadcrumbBar::overviewRequested);
  row->addWidget(overview);
  crumbs_ = new QHBoxLayout();
  crumbs_->setSpacing(2);
  row->addLayout(crumbs_);
  row->addStretch(1);
}

void BreadcrumbBar::setCurrentNode(ScanNode* current) {
  // A crumb may be the sender of the click that led here: it goes once control returns.
  while (QLayoutItem* item = crumbs_->takeAt(0)) {
    if (QWidget* widget = item->widget()) {
      widget->hide();
      widget->setParent(nullptr);
      widget->deleteLater();
    }
    delete item;
  }
  for (ScanNode* node : elideBreadcrumbs(breadcrumbPath(current))) {
    crumbs_->addWidget(makeSeparator(this));
    if (!node) {
      auto* placeholder = new QLabel(QStringLiteral("\u2026"), this);
      placeholder->setFont(crumbFont(QFont::Normal));
      placeholder->setAccessibleName(QString::fromUtf8(kHiddenFoldersAccessibleName));
      placeholder->setStyleSheet(
          QStringLiteral("color: %1;").arg(toQColor(palette::kSecondaryText).name()));
      crumbs_->addWidget(placeholder);
      continue;
    }
    auto* crumb = new CrumbButton(displayText(node->name()), this);
    connect(crumb, &QPushButton::clicked, this, [this, node] { emit nodeClicked(node); });
    crumbs_->addWidget(crumb);
  }
}

}  // namespace tw
