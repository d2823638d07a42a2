// The overview's symbols ("star", "star.fill", "folder.fill", "chevron.down", "disk"), shipped as
// SVG resources and drawn in one colour.
#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

namespace tw {

// The symbol `name` filled with `colour`, `size` logical pixels square.
QIcon overviewSymbol(const QString& name, const QColor& colour, int size = 16);

}  // namespace tw
