#include "ui/widgets/ModelButton.h"

#include <QFocusEvent>
#include <QPainter>
#include <QPixmap>
#include <QVBoxLayout>

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "casting/Log.h"
#include "ui/widgets/StyleUtil.h"

namespace qorquicomponents {

std::string execShell(const std::string& command) {
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) throw std::runtime_error("popen() failed!");
    std::array<char, 256> buffer{};
    std::string result;
    while (fgets(buffer.data(), static_cast<int>(buffer.size()), pipe.get()) != nullptr) result += buffer.data();
    return result;
}

// ---------------------------------------------------------------------------
// SelectItem
// ---------------------------------------------------------------------------

namespace {
constexpr int kPopupPadding = 4;
constexpr int kPopupWidth = 160;
}  // namespace

SelectItem::SelectItem(QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint), m_height(3 * kEntryHeight + 2 * kPopupPadding) {
    setObjectName(QStringLiteral("selectItem"));
    setAttribute(Qt::WA_StyledBackground, true);
    setFocusPolicy(Qt::StrongFocus);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, kPopupPadding, 0, kPopupPadding);
    layout->setSpacing(0);
    for (int mode = CopyScreenMode; mode <= WindowScreenMode; ++mode) {
        auto* entry = new QPushButton(ModelButton::modeName(mode), this);
        entry->setObjectName(QStringLiteral("modeEntry%1").arg(mode));
        entry->setCheckable(true);
        entry->setAutoExclusive(true);
        entry->setFocusPolicy(Qt::NoFocus);
        entry->setCursor(Qt::PointingHandCursor);
        entry->setFixedHeight(kEntryHeight);
        layout->addWidget(entry);
        connect(entry, &QPushButton::clicked, this, [this, mode] {
            setCurrentIndex(mode);
            finish();
        });
        m_entries[mode - 1] = entry;
    }
    setStyleSheet(QStringLiteral(
        "qorquicomponents--SelectItem{background:#FFFFFF; border:1px solid #E1E5EC; border-radius:8px;}"
        " QPushButton{background:transparent; border:none; text-align:left; padding-left:16px;"
        " font-family:\"Microsoft YaHei UI\"; font-size:14px; color:rgba(0,0,0,0.90);}"
        " QPushButton:hover{background:rgba(28,127,255,0.10);}"
        " QPushButton:checked{color:#1C7FFF; font-weight:bold;}"));
    setFixedSize(kPopupWidth, m_height);
    setCurrentIndex(CopyScreenMode);
}

QPushButton* SelectItem::entry(int mode) const {
    if (mode < CopyScreenMode || mode > WindowScreenMode) return nullptr;
    return m_entries[mode - 1];
}

void SelectItem::setCurrentIndex(int mode) {
    QPushButton* chosen = entry(mode);
    if (chosen == nullptr) return;
    m_index = mode;
    chosen->setChecked(true);
}

void SelectItem::setButtonShow(int mode, bool show) {
    if (QPushButton* button = entry(mode)) button->setVisible(show);
    m_height += show ? kEntryHeight : -kEntryHeight;
    setFixedHeight(m_height);
}

void SelectItem::setWaylandMode() {
    QPushButton* copy = entry(CopyScreenMode);
    // Exclusive buttons refuse to be unchecked one by one.
    copy->setAutoExclusive(false);
    copy->setChecked(false);
    copy->setAutoExclusive(true);
    copy->hide();
    m_height -= kEntryHeight;
    setFixedHeight(m_height);
}

void SelectItem::popupAt(const QPoint& globalPos) {
    move(globalPos);
    show();
    raise();
    activateWindow();
    setFocus(Qt::PopupFocusReason);
}

void SelectItem::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    finish();
}

void SelectItem::finish() {
    if (!isVisible()) return;
    hide();
    emit signalFocusOutIndex(m_index);
}

// ---------------------------------------------------------------------------
// ModelButton
// ---------------------------------------------------------------------------

ModelButton::ModelButton(QWidget* parent) : QPushButton(parent), m_selectItem(new SelectItem(this)) {
    setObjectName(QStringLiteral("modelBtn"));
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setProperty("state", QStringLiteral("down"));
    setProperty("Status", QStringLiteral("Unuse"));
    m_selectItem->hide();
    connect(this, &QPushButton::clicked, this, &ModelButton::onClicked);
    connect(m_selectItem, &SelectItem::signalFocusOutIndex, this, &ModelButton::onFocusOutIndex);
    setScreenMode(CopyScreenMode);
}

QString ModelButton::modeName(int mode) {
    switch (mode) {
    case ExtendedScreenMode:
        return tr("ExtendedMode");
    case WindowScreenMode:
        return tr("WindowMode");
    default:
        return tr("CopyMode");
    }
}

void ModelButton::setScreenMode(int mode) {
    m_mode = mode;
    m_selectItem->setCurrentIndex(mode);
    setText(modeName(mode));
}

void ModelButton::onClicked() {
    // While a cast runs the mode is only shown.
    if (property("Status").toString() == QLatin1String("Using")) return;
    setStyleProperty(this, "state", QStringLiteral("up"));
    m_selectItem->setCurrentIndex(m_mode);
    m_selectItem->popupAt(mapToGlobal(QPoint(0, 0)));
}

void ModelButton::paintEvent(QPaintEvent* event) {
    QPushButton::paintEvent(event);
    // The arrow at the right: up while the list is open, grey while casting.
    const char* image = "mode_arrow_down2x";
    if (property("Status").toString() == QLatin1String("Using")) {
        image = "mode_arrow_disable2x";
    } else if (property("state").toString() == QLatin1String("up")) {
        image = "mode_arrow_up2x";
    }
    QPixmap arrow(QStringLiteral(":/OrvixUpgrade/image/%1.png").arg(QLatin1String(image)));
    arrow.setDevicePixelRatio(2.0);
    const int size = 12;
    QPainter painter(this);
    painter.drawPixmap(width() - size - 12, (height() - size) / 2, arrow);
}

void ModelButton::onFocusOutIndex(int index) {
    setStyleProperty(this, "state", QStringLiteral("down"));
    m_mode = index;
    setText(modeName(index));
    ZV_LOG(INFO) << " screen mode: " << index;
}

}  // namespace qorquicomponents
