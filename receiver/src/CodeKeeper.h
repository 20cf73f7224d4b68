// The panel's connect code and passcode. The code carries the panel's
// address; a new one is made when a session ends (and, if asked, on a timer
// while idle) unless a fixed code was configured. The passcode comes from the
// passcode service; when a session ends a new one is asked for
// (passcodeRotationWanted). Either stays on screen at least minShowMs, so a
// log-in/bye loop cannot change them faster than a person can read them.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

namespace receiver {

class CodeKeeper : public QObject {
    Q_OBJECT
public:
    static constexpr int kMinShowMs = 20000;

    // fixedCode empty: codes are generated for ipv4 (host byte order).
    CodeKeeper(quint32 ipv4, const QString& fixedCode, int intervalSeconds, QObject* parent = nullptr,
               int minShowMs = kMinShowMs);

    QString code() const { return m_code; }
    QString passcode() const { return m_passcode; }
    // The passcode the service gave (shown from now on).
    void setPasscode(const QString& passcode);

    // True when typed (normalised) is the current code or passcode.
    bool matches(const QString& typed) const;

    bool isFixed() const { return m_fixed; }

    // A session ended: a generated code is replaced and a new passcode asked
    // for, each once it has been shown for minShowMs.
    void sessionEnded();
    // Too many wrong tries on this code: a generated code is replaced now,
    // however short it was shown.
    void replaceAfterGuessing();
    // Sessions are running: the interval timer waits.
    void setBusy(bool busy);

signals:
    void codeChanged(const QString& code);
    void passcodeChanged(const QString& passcode);
    // Time for a new passcode: the registration should ask the service.
    void passcodeRotationWanted();

private:
    void renewCode();
    void replaceCode();
    void rotatePasscode();

    quint32 m_ipv4;
    bool m_fixed;
    int m_minShowMs;
    QString m_code;
    QString m_passcode;
    QTimer m_interval;
    QElapsedTimer m_codeShown;
    QElapsedTimer m_passcodeShown;  // also restarted when a new one is asked for
    QTimer m_codeDue;               // a code change waiting for its minimum time
    QTimer m_passcodeDue;
};

}  // namespace receiver
