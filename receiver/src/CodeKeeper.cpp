#include "CodeKeeper.h"

#include "casting/Log.h"
#include "protocol/ConnectCode.h"

namespace receiver {

CodeKeeper::CodeKeeper(quint32 ipv4, const QString& fixedCode, int intervalSeconds, QObject* parent)
    : QObject(parent), m_ipv4(ipv4), m_fixed(!fixedCode.isEmpty()) {
    m_code = m_fixed ? zv::code::normalize(fixedCode) : zv::code::generateCode(ipv4);
    if (intervalSeconds > 0 && !m_fixed) {
        m_interval.setInterval(intervalSeconds * 1000);
        connect(&m_interval, &QTimer::timeout, this, &CodeKeeper::renew);
        m_interval.start();
    }
}

void CodeKeeper::setPasscode(const QString& passcode) {
    if (passcode == m_passcode) return;
    m_passcode = passcode;
    emit passcodeChanged(passcode);
}

bool CodeKeeper::matches(const QString& typed) const {
    const QString code = zv::code::normalize(typed);
    return !code.isEmpty() && (code == m_code || code == m_passcode);
}

void CodeKeeper::sessionEnded() {
    if (!m_fixed) renew();
}

void CodeKeeper::replaceAfterGuessing() {
    if (!m_fixed) renew();
}

void CodeKeeper::setBusy(bool busy) {
    if (m_interval.interval() <= 0 || m_fixed) return;
    if (busy) {
        m_interval.stop();
    } else if (!m_interval.isActive()) {
        m_interval.start();
    }
}

void CodeKeeper::renew() {
    QString next;
    do {
        next = zv::code::generateCode(m_ipv4);
    } while (next == m_code);  // a class-3 address has only 64 codes; never show the same one again
    m_code = next;
    ZV_LOG(INFO) << " new connect code " << m_code.toStdString();
    emit codeChanged(m_code);
}

}  // namespace receiver
