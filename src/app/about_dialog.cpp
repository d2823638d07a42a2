#include "app/about_dialog.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/appearance.h"
#include "app/build_info.h"

namespace tw {

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("aboutDialog"));
  setWindowTitle(QStringLiteral("About Tarnwell"));

  auto* icon = new QLabel(this);
  icon->setPixmap(QApplication::windowIcon().pixmap(96, 96));
  icon->setAlignment(Qt::AlignCenter);

  auto* name = new QLabel(QStringLiteral("Tarnwell"), this);
  name->setObjectName(QStringLiteral("aboutName"));
  QFont nameFont = name->font();
  nameFont.setPixelSize(20);
  nameFont.setWeight(QFont::Bold);
  name->setFont(nameFont);
  name->setAlignment(Qt::AlignCenter);

  auto* version = new QLabel(QStringLiteral("Version %1").arg(applicationVersion()), this);
  version->setObjectName(QStringLiteral("aboutVersion"));
  version->setAlignment(Qt::AlignCenter);

  auto* build =
      new QLabel(QStringLiteral("Commit %1 %2").arg(buildCommit(), buildKindText()), this);
  build->setObjectName(QStringLiteral("aboutBuild"));
  build->setAlignment(Qt::AlignCenter);
  build->setTextInteractionFlags(Qt::TextSelectableByMouse);
  QPalette secondary = build->palette();
  secondary.setColor(QPalette::WindowText, toQColor(palette::kSecondaryText));
  build->setPalette(secondary);
  QFont buildFont = build->font();
  buildFont.setPixelSize(11);
  build->setFont(buildFont);

  auto* close = new QPushButton(QStringLiteral("Close"), this);
  close->setObjectName(QStringLiteral("aboutCloseButton"));
  close->setDefault(true);
  connect(close, &QPushButton::clicked, this, &QDialog::accept);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(close);
  buttons->addStretch(1);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(32, 24, 32, 20);
  layout->addWidget(icon);
  layout->addSpacing(8);
  layout->addWidget(name);
  layout->addWidget(version);
  layout->addSpacing(2);
  layout->addWidget(build);
  layout->addSpacing(16);
  layout->addLayout(buttons);
  setFixedSize(sizeHint().expandedTo(QSize(300, 0)));
}

}  // namespace tw
