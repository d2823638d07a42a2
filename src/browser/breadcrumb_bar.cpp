#include "browser/breadcrumb_bar.h"

#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <algorithm>

#include "browser/display_text.h"
#include "ui/palette.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

constexpr int kVisibleCrumbLimit = 5;
constexpr int kTrailingCrumbs = 3;
constexpr int kCrumbPadding = 12;

QFont crumbFont(QFont::Weight weight) {
  QFont font;
  font.setPixelSize(13);
  font.setWeight(weight);
  return font;
}

// A borderless text button in the bar's style.
QPushButton* makeFlatButton(const QString& text, QFont::Weight weight, QWidget* parent) {
  auto* button = new QPushButton(text, parent);
  button->setFlat(true);
  button->setFont(crumbFont(weight));
  button->setCursor(Qt::PointingHandCursor);
  button->setFocusPolicy(Qt::NoFocus);
  button->setStyleSheet(
      QStringLiteral(
          "QPushButton { border: none; padding: 2px 4px; color: %1; background: transparent; }"
          "QPushButton:hover { color: %2; }")
          .arg(toQColor(palette::kPrimaryText).name(), toQColor(palette::kAccentTeal).name()));
  return button;
}

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
  QPushButton* overview = makeFlatButton(QStringLiteral("Disks and Folders"), QFont::Medium, this);
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
    const QString name = displayText(node->name());
    QPushButton* crumb = makeFlatButton(QString(), QFont::Normal, this);
    const QFontMetrics metrics(crumb->font());
    crumb->setText(
        metrics.elidedText(name, Qt::ElideMiddle, kBreadcrumbMaximumWidth - kCrumbPadding));
    crumb->setToolTip(name);
    crumb->setAccessibleName(name);
    crumb->setMaximumWidth(kBreadcrumbMaximumWidth);
    connect(crumb, &QPushButton::clicked, this, [this, node] { emit nodeClicked(node); });
    crumbs_->addWidget(crumb);
  }
}

}  // namespace tw
