#include "CodeKeeper.h"

#include "casting/Log.h"
#include "protocol/ConnectCode.h"

namespace receiver {

namespace {

// Runs now when shown has lasted minMs, else once (due) when it will have.
template <typename F>
void whenShownLongEnough(const QElapsedTimer& shown, int minMs, QTimer& due, F now) {
    const qint64 left = minMs - shown.elapsed();
    if (left <= 0) {
        due.stop();
        now();
    } else if (!due.isActive()) {
        due.start(int(left));
    }
}

}  // namespace

CodeKeeper::CodeKeeper(quint32 ipv4, const QString& fixedCode, int intervalSeconds, QObject* parent, int minShowMs)
    : QObject(parent), m_ipv4(ipv4), m_fixed(!fixedCode.isEmpty()), m_minShowMs(minShowMs) {
    m_code = m_fixed ? zv::code::normalize(fixedCode) : zv::code::generateCode(ipv4);
    m_codeShown.start();
    m_passcodeShown.start();
    for (QTimer* due : {&m_codeDue, &m_passcodeDue}) due->setSingleShot(true);
    connect(&m_codeDue, &QTimer::timeout, this, &CodeKeeper::replaceCode);
    connect(&m_passcodeDue, &QTimer::timeout, this, &CodeKeeper::rotatePasscode);
    if (intervalSeconds > 0 && !m_fixed) {
        m_interval.setInterval(intervalSeconds * 1000);
        connect(&m_interval, &QTimer::timeout, this, &CodeKeeper::renewCode);
        m_interval.start();
    }
}

void CodeKeeper::setPasscode(const QString& passcode) {
    if (passcode == m_passcode) return;
    m_passcode = passcode;
    m_passcodeShown.start();
    emit passcodeChanged(passcode);
}

bool CodeKeeper::matches(const QString& typed) const {
    const QString code = zv::code::normalize(typed);
    return !code.isEmpty() && (code == m_code || code == m_passcode);
}

void CodeKeeper::sessionEnded() {
    renewCode();
    if (!m_passcode.isEmpty()) {
        whenShownLongEnough(m_passcodeShown, m_minShowMs, m_passcodeDue, [this] { rotatePasscode(); });
    }
}

void CodeKeeper::replaceAfterGuessing() {
    if (m_fixed) return;
    m_codeDue.stop();  // no minimum time: the guesses so far were spent on this code
    replaceCode();
}

void CodeKeeper::setBusy(bool busy) {
    if (m_interval.interval() <= 0 || m_fixed) return;
    if (busy) {
        m_interval.stop();
    } else if (!m_interval.isActive()) {
        m_interval.start();
    }
}

void CodeKeeper::renewCode() {
    if (!m_fixed) whenShownLongEnough(m_codeShown, m_minShowMs, m_codeDue, [this] { replaceCode(); });
}

void CodeKeeper::replaceCode() {
    QString next;
    do {
        next = zv::code::generateCode(m_ipv4);
    } while (next == m_code);  // a class-3 address has only 64 codes; never show the same one again
    m_code = next;
    m_codeShown.start();
    ZV_LOG(INFO) << " new connect code " << m_code.toStdString();
    emit codeChanged(m_code);
}

void CodeKeeper::rotatePasscode() {
    // Counted from the request: a second session end cannot ask again
    // before the new passcode has been up for the minimum time.
    m_passcodeShown.start();
    ZV_LOG(INFO) << " asking for a new passcode to replace " << m_passcode.toStdString();
    emit passcodeRotationWanted();
}

}  // namespace receiver
