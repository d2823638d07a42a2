#include "overview/overview_rows.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include "overview/overview_icons.h"
#include "overview/usage_bar.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

QString qs(const std::string& text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QString colourCss(const QColor& colour) {
  return colour.name(QColor::HexArgb);
}

void setTextColour(QLabel* label, const Rgba& colour) {
  label->setStyleSheet(QStringLiteral("color: %1;").arg(colourCss(toQColor(colour))));
}

QLabel* makeLabel(int pixelSize, bool bold, QWidget* parent) {
  auto* label = new QLabel(parent);
  QFont font = label->font();
  font.setPixelSize(pixelSize);
  font.setBold(bold);
  label->setFont(font);
  return label;
}

}  // namespace

OverviewRowWidget::OverviewRowWidget(const OverviewRow& row, QWidget* parent)
    : QFrame(parent), path_(row.path), disk_(row.disk) {
  setAutoFillBackground(true);
  name_ = makeLabel(14, true, this);
  setTextColour(name_, palette::kPrimaryText);
  primary_ = new QPushButton(this);
  primary_->setMinimumWidth(86);
  menu_ = new QToolButton(this);
  menu_->setIcon(overviewSymbol(QStringLiteral("chevron.down"), toQColor(palette::kSecondaryText)));
  menu_->setAutoRaise(true);
  menu_->setAccessibleName(QStringLiteral("Row actions"));
  menu_->setToolTip(QStringLiteral("Row actions"));
  connect(primary_, &QPushButton::clicked, this, [this] { emit primaryClicked(path_); });
  connect(menu_, &QToolButton::clicked, this,
          [this] { emit menuRequested(path_, menu_->mapToGlobal(QPoint(0, menu_->height()))); });
}

DiskRowWidget::DiskRowWidget(const OverviewRow& row, QWidget* parent)
    : OverviewRowWidget(row, parent) {
  QPalette pal = palette();
  pal.setColor(QPalette::Window, QColor::fromRgbF(0.15f, 0.16f, 0.19f));
  setPalette(pal);
  auto* icon = new QLabel(this);
  icon->setPixmap(
      overviewSymbol(QStringLiteral("disk"), toQColor(palette::kSecondaryText), 28).pixmap(28, 28));
  subtitle_ = makeLabel(12, false, this);
  setTextColour(subtitle_, palette::kSecondaryText);
  used_ = makeLabel(12, false, this);
  setTextColour(used_, palette::kPrimaryText);
  free_ = makeLabel(12, false, this);
  setTextColour(free_, palette::kSecondaryText);
  bar_ = new UsageBar(this);

  auto* titles = new QHBoxLayout;
  titles->addWidget(name_);
  titles->addWidget(subtitle_);
  titles->addStretch(1);
  auto* figures = new QHBoxLayout;
  figures->addWidget(used_);
  figures->addStretch(1);
  figures->addWidget(free_);
  auto* middle = new QVBoxLayout;
  middle->setSpacing(5);
  middle->addLayout(titles);
  middle->addWidget(bar_);
  middle->addLayout(figures);
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(14, 10, 10, 10);
  layout->setSpacing(10);
  layout->addWidget(icon);
  layout->addLayout(middle, 1);
  layout->addWidget(primary_);
  layout->addWidget(menu_);
  setRow(row);
}

void DiskRowWidget::setRow(const OverviewRow& row) {
  name_->setText(qs(row.name));
  subtitle_->setText(qs(row.subtitle));
  bar_->setValue(row.barValue);
  bar_->setFillColour(
      toQColor(row.hasResult && !row.scanning ? palette::kSystemGreen : palette::kSystemBlue));
  bar_->setStriped(row.scanning);
  used_->setText(qs(row.usedText));
  used_->setVisible(!row.usedText.empty());
  free_->setText(qs(row.freeText));
  primary_->setText(qs(row.primaryTitle));
  primary_->setEnabled(row.primaryEnabled);
  setAccessibleName(qs(row.accessibleName));
}

FolderRowWidget::FolderRowWidget(const OverviewRow& row, QWidget* parent)
    : OverviewRowWidget(row, parent) {
  QPalette pal = palette();
  pal.setColor(QPalette::Window, toQColor(palette::kPanel));
  setPalette(pal);
  star_ = new QToolButton(this);
  star_->setAutoRaise(true);
  auto* icon = new QLabel(this);
  icon->setPixmap(overviewSymbol(QStringLiteral("folder.fill"), toQColor(palette::kCloneBlue), 24)
                      .pixmap(24, 24));
  icon->setAccessibleName(QStringLiteral("Folder"));
  status_ = makeLabel(12, false, this);
  status_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  size_ = makeLabel(13, false, this);
  setTextColour(size_, palette::kPrimaryText);
  spinner_ = new Spinner(this);

  auto* texts = new QVBoxLayout;
  texts->setSpacing(2);
  texts->addWidget(name_);
  texts->addWidget(status_);
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(8, 8, 10, 8);
  layout->setSpacing(10);
  layout->addWidget(star_);
  layout->addWidget(icon);
  layout->addLayout(texts, 1);
  layout->addWidget(size_);
  layout->addWidget(spinner_);
  layout->addWidget(primary_);
  layout->addWidget(menu_);
  connect(star_, &QToolButton::clicked, this, [this] { emit favoriteClicked(path_); });
  setRow(row);
}

void FolderRowWidget::setRow(const OverviewRow& row) {
  name_->setText(qs(row.name));
  star_->setIcon(
      overviewSymbol(row.favorite ? QStringLiteral("star.fill") : QStringLiteral("star"),
                     toQColor(row.favorite ? palette::kSystemOrange : palette::kSecondaryText)));
  star_->setAccessibleName(row.favorite ? QStringLiteral("Unstar folder")
                                        : QStringLiteral("Star folder"));
  star_->setToolTip(star_->accessibleName());
  status_->setText(qs(row.statusText));
  switch (row.status) {
    case FolderStatus::kScanning:
      setTextColour(status_, palette::kSystemBlue);
      break;
    case FolderStatus::kRescanRecommended:
      setTextColour(status_, palette::kSystemOrange);
      break;
    case FolderStatus::kChecking:
    case FolderStatus::kLocal:
      setTextColour(status_, palette::kSecondaryText);
      break;
  }
  size_->setText(qs(row.sizeText));
  spinner_->setRunning(row.scanning);
  spinner_->setAccessibleName(QStringLiteral("Scanning %1").arg(qs(row.name)));
  primary_->setText(qs(row.primaryTitle));
  primary_->setEnabled(row.primaryEnabled);
  setAccessibleName(qs(row.accessibleName));
}

}  // namespace tw
