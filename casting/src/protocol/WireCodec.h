// Frames on the wire: a big-endian uint32 length (1 .. 1 MiB) and that many
// bytes holding one serialized zv::wire::Envelope (casting/proto). Plain
// functions and classes with no thread affinity; one decoder per connection.
#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

#include "proto/envelope.pb.h"
#include "protocol/ProtocolConstants.h"

namespace zv {

// An envelope carrying body, which must be one of Envelope's body messages
// (an empty envelope otherwise, and an error in the log). version is left
// to the channel that sends it.
wire::Envelope wrap(const google::protobuf::Message& body);

// The body's field name for logs ("cast_stop"), or what is known of a body
// this build does not have ("unknown field 200", "no body").
QString bodyName(const wire::Envelope& envelope);

// The frame for one envelope: length prefix + serialized bytes. Does not
// check the size; callers that send check it against kMaxFrameBytes.
QByteArray encodeFrame(const wire::Envelope& envelope);

class FrameDecoder {
public:
    explicit FrameDecoder(quint32 maxFrameBytes = kMaxFrameBytes);

    // Appends bytes and returns the envelopes completed by them, in order.
    // On the first malformed frame (length 0 or above the limit, bytes that
    // are no Envelope) the decoder enters the error state: the envelopes
    // before the bad frame are still returned, everything after it (and
    // every later feed) is dropped. An oversized length is an error as soon
    // as its 4 bytes are in, without waiting for the payload.
    std::vector<wire::Envelope> feed(const QByteArray& bytes);

    bool hasError() const { return !m_error.isEmpty(); }
    // Why the stream was rejected, for logs and close reasons; empty if not.
    QString errorString() const { return m_error; }
    // Bytes of an incomplete frame held back for the next feed.
    qsizetype pendingBytes() const { return m_buffer.size() - m_readPos; }
    // Forgets buffered bytes and any error.
    void reset();

private:
    void fail(const QString& reason);

    quint32 m_maxFrameBytes;
    QByteArray m_buffer;
    qsizetype m_readPos = 0;  // start of the first unconsumed frame in m_buffer
    QString m_error;
};

}  // namespace zv
