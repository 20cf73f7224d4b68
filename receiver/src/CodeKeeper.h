// The panel's connect code and passcode. The code carries the panel's
// address; a new one is made when a session ends (and, if asked, on a timer
// while idle) unless a fixed code was configured.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

namespace receiver {

class CodeKeeper : public QObject {
    Q_OBJECT
public:
    // fixedCode empty: codes are generated for ipv4 (host byte order).
    CodeKeeper(quint32 ipv4, const QString& fixedCode, int intervalSeconds, QObject* parent = nullptr);

    QString code() const { return m_code; }
    QString passcode() const { return m_passcode; }
    void setPasscode(const QString& passcode);

    // True when typed (normalised) is the current code or passcode.
    bool matches(const QString& typed) const;

    bool isFixed() const { return m_fixed; }

    // A session ended: a generated code is replaced.
    void sessionEnded();
    // Too many wrong tries on this code: a generated code is replaced now.
    void replaceAfterGuessing();
    // Sessions are running: the interval timer waits.
    void setBusy(bool busy);

signals:
    void codeChanged(const QString& code);
    void passcodeChanged(const QString& passcode);

private:
    void renew();

    quint32 m_ipv4;
    bool m_fixed;
    QString m_code;
    QString m_passcode;
    QTimer m_interval;
};

}  // namespace receiver
