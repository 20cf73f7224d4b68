#include "ui/DisplayWidget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>

namespace qorquicomponents {

DisplayWidget::DisplayWidget(QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus) {
    setObjectName(QStringLiteral("reverseDisplayWidget"));
    setAttribute(Qt::WA_ShowWithoutActivating, true);
    setAttribute(Qt::WA_StyledBackground, true);
    setStyleSheet(QStringLiteral("QWidget#reverseDisplayWidget{background:rgba(0,0,0,0.55);border-radius:4px;}"
                                 "QLabel{color:#FFFFFF;font-family:\"Microsoft YaHei UI\";font-size:12px;}"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    m_label = new QLabel(this);
    m_label->setObjectName(QStringLiteral("displayInfoLab"));
    layout->addWidget(m_label);
    refresh();
}

void DisplayWidget::setDelayValue(int delayMs) {
    m_delayMs = delayMs;
    refresh();
}

void DisplayWidget::setBitrateAndFrameRate(int bitRateKbps, int frameRate) {
    m_bitRateKbps = bitRateKbps;
    m_frameRate = frameRate;
    refresh();
}

void DisplayWidget::setInfoShown(bool shown) {
    m_infoShown = shown;
    refresh();
}

QString DisplayWidget::text() const { return m_label->text(); }

void DisplayWidget::refresh() {
    if (!m_infoShown) {
        m_label->clear();
        // A few pixels stay clickable for the hidden gesture.
        setFixedSize(24, 24);
        return;
    }
    m_label->setText(tr("Delay: %1 ms  Bitrate: %2 kbps  Frame rate: %3 fps")
                         .arg(m_delayMs)
                         .arg(m_bitRateKbps)
                         .arg(m_frameRate));
    setMinimumSize(0, 0);
    setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    adjustSize();
}

void DisplayWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) emit signalClicked();
    QWidget::mouseReleaseEvent(event);
}

}  // namespace qorquicomponents
