#include "ui/widgets/SwitchButton.h"

#include <QEvent>
#include <QFontMetrics>
#include <QLabel>

#include "ui/widgets/StyleUtil.h"

namespace qorquicomponents {

SwitchButton::SwitchButton(QWidget* parent)
    : QPushButton(parent), m_icon(new QLabel(this)), m_caption(new QLabel(this)) {
    setCheckable(true);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(kIconX * 2 + kIconSize, kIconY * 2 + kIconSize);
    m_icon->setObjectName(QStringLiteral("switchIconLab"));
    m_icon->setFixedSize(kIconSize, kIconSize);
    // Clicks go through the picture to the button.
    m_icon->setAttribute(Qt::WA_TransparentForMouseEvents, true);
    m_icon->move(kIconX, kIconY);
    m_caption->setObjectName(QStringLiteral("switchCaptionLab"));
    m_caption->setAttribute(Qt::WA_TransparentForMouseEvents, true);
    m_caption->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    QFont font(QStringLiteral("Microsoft YaHei UI"));
    font.setPixelSize(14);
    m_caption->setFont(font);
    m_caption->hide();
}

void SwitchButton::setCaption(const QString& text) {
    m_caption->setText(text);
    if (text.isEmpty()) {
        m_caption->hide();
        setFixedWidth(kIconX * 2 + kIconSize);
        return;
    }
    const int left = kIconX + kIconSize + kCaptionGap;
    const int textWidth = QFontMetrics(m_caption->font()).horizontalAdvance(text) + 2;
    m_caption->setGeometry(left, 0, textWidth, height());
    m_caption->show();
    setFixedWidth(left + textWidth + kIconX);
}

QString SwitchButton::caption() const { return m_caption->text(); }

QString SwitchButton::imageStyleFor(ButtonStyle style, bool on) {
    const char* image = nullptr;
    switch (style) {
    case PauseButtonStyle:
        image = on ? "icon_cast_start2x" : "icon_cast_pulse2x";
        break;
    case VoiceButtonStyle:
        image = on ? "icon_cast_volume_off2x" : "icon_cast_volume_on2x";
        break;
    case ReverseButtonStyle:
        image = on ? "icon_reverse_control_off2x" : "icon_reverse_control_on2x";
        break;
    case WindowButtonStyle:
        image = "icon_cast_window_off2x";
        break;
    case SnapshotButtonStyle:
        image = on ? "icon_cast_save_dis2x" : "icon_cast_save2x";
        break;
    }
    if (image == nullptr) return QString();
    return QStringLiteral("border-image:url(:/OrvixUpgrade/image/%1.png);").arg(QLatin1String(image));
}

void SwitchButton::setBackgroundImage(ButtonStyle style, bool on) {
    const QString sheet = imageStyleFor(style, on);
    if (sheet.isEmpty()) return;
    m_icon->move(kIconX, kIconY);
    m_icon->setStyleSheet(sheet);
}

QString SwitchButton::iconStyleSheet() const { return m_icon->styleSheet(); }

void SwitchButton::registStyle(ButtonStatus status, const UIData& data) { m_styles.insert(status, data); }

void SwitchButton::setStyle(ButtonStatus status) {
    const auto it = m_styles.constFind(status);
    if (it == m_styles.cend()) return;
    m_status = status;
    setStyleSheet(it->styleSheet);
    setToolTip(it->toolTip);
}

void SwitchButton::setButtonShow(bool show) {
    m_buttonShow = show;
    setEnabled(show);
    setStyleProperty(this, "Status", show ? QStringLiteral("Show") : QStringLiteral("Hide"));
}

void SwitchButton::enterEvent(QEvent* event) {
    const QPoint centre = mapToGlobal(QPoint(width() / 2, height()));
    emit signalEnterBtn(toolTip(), centre.x(), centre.y());
    QPushButton::enterEvent(event);
}

}  // namespace qorquicomponents
