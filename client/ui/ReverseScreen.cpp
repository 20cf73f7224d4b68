#include "ui/ReverseScreen.h"

#include <QMetaObject>

#include "casting/Log.h"
#include "ui/TipWindows.h"

namespace qorquicomponents {

ReverseScreen::ReverseScreen(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName(QStringLiteral("reverseScreen"));
    hide();
}

void ReverseScreen::setReverseControlStatus(bool on) {
    m_reverseControl = on;
    ZV_LOG(INFO) << " reverse control " << (on ? "on" : "off");
}

void ReverseScreen::setReconnecting(bool reconnecting) { m_reconnecting = reconnecting; }

QString ReverseScreen::lastRejectText() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastRejectText;
}

void ReverseScreen::rejectWindowShow(const QString& text) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastRejectText = text;
    }
    ZV_LOG(INFO) << " reverse control refused: " << text.toStdString();
    QMetaObject::invokeMethod(
        this,
        [this, text] {
            QWidget* anchor = isVisible() ? this : parentWidget();
            TipWindows::getInstance()->setDisplayText(ErrorLevelWarn, text, TipWindowPlain, anchor, 48);
        },
        Qt::QueuedConnection);
}

}  // namespace qorquicomponents
