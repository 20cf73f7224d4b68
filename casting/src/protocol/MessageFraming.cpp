#include "protocol/MessageFraming.h"

#include <QCborStreamReader>
#include <QCborValue>
#include <QtEndian>

namespace zv {

namespace {
constexpr qsizetype kHeaderBytes = 4;
}

QByteArray encodeFrame(const QCborMap& message) {
    const QByteArray payload = message.toCborValue().toCbor();
    QByteArray frame(kHeaderBytes, Qt::Uninitialized);
    qToBigEndian<quint32>(static_cast<quint32>(payload.size()), frame.data());
    frame.append(payload);
    return frame;
}

FrameDecoder::FrameDecoder(quint32 maxFrameBytes) : m_maxFrameBytes(maxFrameBytes) {}

void FrameDecoder::reset() {
    m_buffer.clear();
    m_readPos = 0;
    m_error.clear();
}

void FrameDecoder::fail(const QString& reason) {
    m_error = reason;
    m_buffer.clear();
    m_readPos = 0;
}

QVector<QCborMap> FrameDecoder::feed(const QByteArray& bytes) {
    QVector<QCborMap> messages;
    if (hasError()) return messages;
    m_buffer.append(bytes);

    while (m_buffer.size() - m_readPos >= kHeaderBytes) {
        const char* header = m_buffer.constData() + m_readPos;
        const quint32 length = qFromBigEndian<quint32>(header);
        if (length == 0) {
            fail(QStringLiteral("frame length 0"));
            return messages;
        }
        if (length > m_maxFrameBytes) {
            fail(QStringLiteral("frame length %1 exceeds the limit of %2 bytes").arg(length).arg(m_maxFrameBytes));
            return messages;
        }
        if (m_buffer.size() - m_readPos - kHeaderBytes < static_cast<qsizetype>(length)) break;

        QCborMap message;
        if (!decodePayload(header + kHeaderBytes, length, &message)) return messages;
        messages.append(message);
        m_readPos += kHeaderBytes + length;
    }

    // Drop consumed frames; a partial frame moves to the front once per feed.
    if (m_readPos > 0) {
        m_buffer.remove(0, m_readPos);
        m_readPos = 0;
    }
    return messages;
}

bool FrameDecoder::decodePayload(const char* data, quint32 size, QCborMap* out) {
    const QByteArray payload = QByteArray::fromRawData(data, static_cast<int>(size));
    QCborStreamReader reader(payload);
    if (!reader.isMap()) {
        fail(reader.lastError() != QCborError::NoError
                 ? QStringLiteral("frame payload is not CBOR: %1").arg(reader.lastError().toString())
                 : QStringLiteral("frame payload is not a CBOR map"));
        return false;
    }
    const QCborValue value = QCborValue::fromCbor(reader);
    if (reader.lastError() != QCborError::NoError) {
        fail(QStringLiteral("malformed CBOR in frame: %1").arg(reader.lastError().toString()));
        return false;
    }
    if (reader.currentOffset() != payload.size()) {
        fail(QStringLiteral("%1 trailing bytes after the map in a frame of %2 bytes")
                 .arg(payload.size() - reader.currentOffset())
                 .arg(size));
        return false;
    }
    const QCborMap map = value.toMap();
    const QCborValue type = map.value(QLatin1String("t"));
    if (type.isUndefined()) {
        fail(QStringLiteral("message without \"t\""));
        return false;
    }
    if (!type.isString()) {
        fail(QStringLiteral("message \"t\" is not a text"));
        return false;
    }
    *out = map;
    return true;
}

}  // namespace zv
