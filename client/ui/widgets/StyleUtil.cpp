#include "ui/widgets/StyleUtil.h"

#include <QPainter>
#include <QStyle>
#include <QSvgRenderer>
#include <QVariant>
#include <QWidget>

namespace qorquicomponents {

void setStyleProperty(QWidget* widget, const char* name, const QString& value) {
    if (widget == nullptr) return;
    widget->setProperty(name, value);
    reapplyStyleSheet(widget);
}

void reapplyStyleSheet(QWidget* widget) {
    if (widget == nullptr) return;
    // Setting the same sheet again re-polishes the widget, which is what makes
    // a changed property selector match.
    widget->setStyleSheet(widget->styleSheet());
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
    widget->update();
}

QPixmap renderSvgPixmap(const QString& path, const QSize& size, qreal devicePixelRatio) {
    QSvgRenderer renderer(path);
    const qreal ratio = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    QPixmap pixmap(size * ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    painter.end();
    pixmap.setDevicePixelRatio(ratio);
    return pixmap;
}

}  // namespace qorquicomponents
