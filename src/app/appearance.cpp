#include "app/appearance.h"

#include <QApplication>

#include "app/tarnwell_style.h"

namespace tw {

namespace {
QColor grey(double white, double alpha = 1.0) {
  return toQColor({white, white, white, alpha});
}
}  // namespace

QPalette darkPalette() {
  const QColor background = toQColor(palette::kBackground);
  const QColor panel = toQColor(palette::kPanel);
  const QColor primary = toQColor(palette::kPrimaryText);
  const QColor secondary = toQColor(palette::kSecondaryText);
  const QColor blue = toQColor(palette::kSystemBlue);

  QPalette p;
  p.setColor(QPalette::Window, background);
  p.setColor(QPalette::WindowText, primary);
  p.setColor(QPalette::Base, panel);
  p.setColor(QPalette::AlternateBase, panel.lighter(112));
  p.setColor(QPalette::Text, primary);
  p.setColor(QPalette::PlaceholderText, secondary);
  p.setColor(QPalette::Button, panel);
  p.setColor(QPalette::ButtonText, primary);
  p.setColor(QPalette::BrightText, toQColor(palette::kSystemRed));
  p.setColor(QPalette::ToolTipBase, panel);
  p.setColor(QPalette::ToolTipText, primary);
  p.setColor(QPalette::Highlight, blue);
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::Link, blue);
  p.setColor(QPalette::LinkVisited, blue.lighter(120));
  // Fusion draws bevels and frames from these; keep them in the same cool grey family.
  p.setColor(QPalette::Light, panel.lighter(160));
  p.setColor(QPalette::Midlight, panel.lighter(130));
  p.setColor(QPalette::Mid, background.darker(130));
  p.setColor(QPalette::Dark, background.darker(160));
  p.setColor(QPalette::Shadow, QColor(0, 0, 0));

  // Disabled controls read as dimmed secondary text.
  const QColor disabledText = grey(0.62, 0.45);
  for (QPalette::ColorRole role :
       {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::PlaceholderText}) {
    p.setColor(QPalette::Disabled, role, disabledText);
  }
  p.setColor(QPalette::Disabled, QPalette::Highlight, grey(0.35));
  p.setColor(QPalette::Disabled, QPalette::HighlightedText, grey(0.75));
  p.setColor(QPalette::Disabled, QPalette::Button, background);
  return p;
}

void applyDarkAppearance(QApplication& app) {
  app.setStyle(new TarnwellStyle);
  app.setPalette(darkPalette());
}

}  // namespace tw
