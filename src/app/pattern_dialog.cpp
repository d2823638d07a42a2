#include "app/pattern_dialog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tw {

PatternDialog::PatternDialog(QWidget* parent)
    : QDialog(parent),
      field_(new QLineEdit(this)),
      add_(new QPushButton(QStringLiteral("Add"), this)),
      cancel_(new QPushButton(QStringLiteral("Cancel"), this)) {
  setObjectName(QStringLiteral("patternDialog"));
  setWindowTitle(QStringLiteral("Add File Pattern"));
  setWindowModality(Qt::WindowModal);

  auto* message = new QLabel(QStringLiteral("Add File Pattern"), this);
  QFont messageFont = message->font();
  messageFont.setPixelSize(13);
  messageFont.setWeight(QFont::Bold);
  message->setFont(messageFont);
  auto* informative = new QLabel(
      QStringLiteral("Enter a file name or wildcard path pattern to exclude from future scans."),
      this);
  informative->setWordWrap(true);

  field_->setObjectName(QStringLiteral("patternField"));
  field_->setPlaceholderText(QStringLiteral("For example: *.iso or */DerivedData/*"));
  field_->setFixedSize(360, 24);

  add_->setObjectName(QStringLiteral("patternAddButton"));
  add_->setDefault(true);
  cancel_->setObjectName(QStringLiteral("patternCancelButton"));
  connect(add_, &QPushButton::clicked, this, [this] {
    const QString text = field_->text();
    accept();
    emit patternEntered(text);
  });
  connect(cancel_, &QPushButton::clicked, this, &QDialog::reject);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(cancel_);
  buttons->addWidget(add_);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(20, 18, 20, 16);
  layout->addWidget(message);
  layout->addWidget(informative);
  layout->addSpacing(6);
  layout->addWidget(field_);
  layout->addSpacing(8);
  layout->addLayout(buttons);
  setFixedWidth(400);
}

}  // namespace tw
