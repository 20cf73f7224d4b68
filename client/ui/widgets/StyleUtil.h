// Small helpers for the style-sheet driven look of the client.
#pragma once

#include <QPixmap>
#include <QSize>
#include <QString>

class QWidget;

namespace qorquicomponents {

// Sets a dynamic property that the style sheets select on ("Status",
// "select", ...) and applies the widget's own style sheet again so that the
// selector takes effect at once.
void setStyleProperty(QWidget* widget, const char* name, const QString& value);

// Applies the widget's own style sheet again (after a property change).
void reapplyStyleSheet(QWidget* widget);

// Draws an SVG resource at size (logical pixels), sharp at the given
// device pixel ratio.
QPixmap renderSvgPixmap(const QString& path, const QSize& size, qreal devicePixelRatio);

}  // namespace qorquicomponents
