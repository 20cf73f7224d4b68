// Who may cast, show this screen, play a file or borrow the camera: a PC the
// panel knows goes on at once; any other waits until the panel's user allows
// it. One gate for every way in, so they all follow the same rule and the
// user is asked in one place. Lives on the receiver's main thread.
#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <vector>

namespace receiver {

class PanelService;
struct ClientInfo;

class ApprovalGate : public QObject {
    Q_OBJECT
public:
    enum class Kind { Cast, Share, File, Devices };
    static QString kindName(Kind kind);

    explicit ApprovalGate(PanelService* panel, QObject* parent = nullptr);

    // Called with the answer: true once the PC may go on. Never called when
    // the PC leaves or withdraws before the answer.
    using Decision = std::function<void(bool approved)>;

    // True: the PC is known (and alwaysAsk is off), go on now; decide is not
    // called. False: the panel's user is asked (approvalNeeded) and decide
    // follows their answer.
    bool admit(qint64 client, Kind kind, bool alwaysAsk, Decision decide);
    // The panel's user answered for client (its oldest waiting request).
    // Allowing makes the PC known, and its other waiting requests go on too.
    // False when nothing of client waits.
    bool answer(qint64 client, bool approved);
    // The PC no longer wants what it asked for.
    void withdraw(qint64 client, Kind kind);
    bool isWaiting(qint64 client, Kind kind) const;

signals:
    void approvalNeeded(qint64 client, const QString& host, receiver::ApprovalGate::Kind kind);

private:
    struct Waiting {
        qint64 client;
        Kind kind;
        Decision decide;
    };
    PanelService* m_panel;
    std::vector<Waiting> m_waiting;
};

}  // namespace receiver
