#include "ui/widgets/ToolTip.h"

#include <QHBoxLayout>
#include <QLabel>

namespace qorquicomponents {

namespace {

constexpr int kPointerGap = 16;

}  // namespace

ToolTip::ToolTip(QWidget* parent) : QWidget(parent), m_label(new QLabel(this)) {
    setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint);
    setAttribute(Qt::WA_ShowWithoutActivating, true);
    setAttribute(Qt::WA_TransparentForMouseEvents, true);
    setAttribute(Qt::WA_StyledBackground, true);
    setObjectName(QStringLiteral("zvToolTip"));
    setStyleSheet(QStringLiteral("QWidget#zvToolTip{background:rgba(0,0,0,0.85);border-radius:4px;}"
                                 "QLabel{color:#FFFFFF;font-family:\"Microsoft YaHei UI\";font-size:12px;}"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    layout->addWidget(m_label);
}

void ToolTip::setText(const QString& text) {
    m_label->setText(text);
    adjustSize();
}

QString ToolTip::text() const { return m_label->text(); }

void ToolTip::showAt(const QPoint& globalPos) {
    move(globalPos + QPoint(kPointerGap / 2, kPointerGap));
    show();
    raise();
}

}  // namespace qorquicomponents
