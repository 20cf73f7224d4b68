// Length-prefixed CBOR frames: a big-endian uint32 length (1 .. 1 MiB) and
// that many bytes holding exactly one CBOR map whose "t" is a text.
// Plain classes with no thread affinity; one decoder per connection.
#pragma once

#include <QByteArray>
#include <QCborMap>
#include <QString>
#include <QVector>

#include "protocol/ProtocolConstants.h"

namespace zv {

// The frame for one message: length prefix + the map's CBOR encoding.
// Does not check the size; callers that send check it against kMaxFrameBytes.
QByteArray encodeFrame(const QCborMap& message);

class FrameDecoder {
public:
    explicit FrameDecoder(quint32 maxFrameBytes = kMaxFrameBytes);

    // Appends bytes and returns the messages completed by them, in order.
    // On the first malformed frame the decoder enters the error state: the
    // messages before the bad frame are still returned, everything after it
    // (and every later feed) is dropped. An oversized length is an error as
    // soon as its 4 bytes are in, without waiting for the payload.
    QVector<QCborMap> feed(const QByteArray& bytes);

    bool hasError() const { return !m_error.isEmpty(); }
    // Why the stream was rejected, for logs and close reasons; empty if not.
    QString errorString() const { return m_error; }
    // Bytes of an incomplete frame held back for the next feed.
    qsizetype pendingBytes() const { return m_buffer.size() - m_readPos; }
    // Forgets buffered bytes and any error.
    void reset();

private:
    bool decodePayload(const char* data, quint32 size, QCborMap* out);
    void fail(const QString& reason);

    quint32 m_maxFrameBytes;
    QByteArray m_buffer;
    qsizetype m_readPos = 0;  // start of the first unconsumed frame in m_buffer
    QString m_error;
};

}  // namespace zv
