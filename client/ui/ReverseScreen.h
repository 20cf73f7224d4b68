// The reverse-screen window's state as the failure path sees it: whether the
// panel granted reverse control, whether the session is reconnecting, and the
// refusal shown when control could not be had. The three setters may be
// called from any thread; what they show is shown on the GUI thread. The view
// of the panel's stream is not part of this build.
#pragma once

#include <QString>
#include <QWidget>

#include <atomic>
#include <mutex>

namespace qorquicomponents {

class ReverseScreen : public QWidget {
    Q_OBJECT

public:
    explicit ReverseScreen(QWidget* parent = nullptr);

    // Any thread.
    void setReverseControlStatus(bool on);
    void rejectWindowShow(const QString& text);
    void setReconnecting(bool reconnecting);

    bool reverseControlStatus() const { return m_reverseControl; }
    bool isReconnecting() const { return m_reconnecting; }
    // The last refusal shown, empty when none was.
    QString lastRejectText() const;

private:
    std::atomic<bool> m_reverseControl{false};
    std::atomic<bool> m_reconnecting{false};
    mutable std::mutex m_mutex;
    QString m_lastRejectText;
};

}  // namespace qorquicomponents
