// Drives a TlsEngine's handshake over a QTcpSocket and hands the result on
// as a MessageChannel: the common part of MessageChannel::connectTls and
// TlsServer. Internal to the transport.
//
// Threads: runs in the socket's thread, from its signals.
#pragma once

#include <QString>

#include <functional>
#include <memory>

class QTcpSocket;

namespace zv {

class MessageChannel;
class TlsEngine;

using HandshakeDone = std::function<void(MessageChannel* channel, const QString& error)>;

// socket: connected, or connecting (the engine's first flight goes out once
// it is). Takes the engine; the socket stays with its parent until the end.
// done runs once: with a new channel (no parent; it owns socket and engine)
// or with nullptr and the reason, the socket then aborted and deleted
// later. timeoutText is the reason when timeoutMs pass first. Nothing runs
// if the socket is deleted before the end.
void runTlsHandshake(QTcpSocket* socket, std::unique_ptr<TlsEngine> engine, int timeoutMs, const QString& timeoutText,
                     HandshakeDone done);

}  // namespace zv
