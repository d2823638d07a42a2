#include "ui/alert.h"

#include <QLabel>

namespace tw {

QMessageBox* makeAlert(QWidget* parent, QMessageBox::Icon icon, const QString& message,
                       const QString& informativeText) {
  auto* box = new QMessageBox(parent);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setWindowModality(Qt::WindowModal);
  box->setIcon(icon);
  box->setText(message);
  box->setInformativeText(informativeText);
  auto* messageLabel = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_label"));
  if (messageLabel) {
    QFont font = messageLabel->font();
    font.setWeight(QFont::Bold);
    messageLabel->setFont(font);
  }
  // The text below the message sets the width; without one, the message itself does.
  auto* informativeLabel = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"));
  if (QLabel* text = informativeLabel ? informativeLabel : messageLabel) {
    text->setMinimumWidth(kAlertTextWidth);
  }
  return box;
}

}  // namespace tw
