#include "app/home_view.h"

#include <QLabel>
#include <QVBoxLayout>

#include "app/appearance.h"

namespace tw {

HomeView::HomeView(QWidget* parent)
    : QWidget(parent), title_(new QLabel(this)), detail_(new QLabel(this)) {
  setObjectName(QStringLiteral("homeView"));
  setAutoFillBackground(true);

  title_->setObjectName(QStringLiteral("homeTitle"));
  title_->setText(QStringLiteral("No scans yet"));
  QFont titleFont = title_->font();
  titleFont.setPixelSize(22);
  titleFont.setWeight(QFont::DemiBold);
  title_->setFont(titleFont);
  title_->setAlignment(Qt::AlignCenter);

  detail_->setObjectName(QStringLiteral("homeDetail"));
  detail_->setText(QStringLiteral("Disks and folders you scan will be listed here."));
  QFont detailFont = detail_->font();
  detailFont.setPixelSize(13);
  detail_->setFont(detailFont);
  detail_->setAlignment(Qt::AlignCenter);
  QPalette detailPalette = detail_->palette();
  detailPalette.setColor(QPalette::WindowText, toQColor(palette::kSecondaryText));
  detail_->setPalette(detailPalette);

  auto* layout = new QVBoxLayout(this);
  layout->addStretch(1);
  layout->addWidget(title_);
  layout->addSpacing(6);
  layout->addWidget(detail_);
  layout->addStretch(1);
}

}  // namespace tw
