#include "protocol/WireCodec.h"

#include <QtEndian>

#include <unordered_map>

#include "casting/Log.h"

namespace zv {

namespace {

constexpr qsizetype kHeaderBytes = 4;

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

// Envelope's body field for each body message type, found once.
const FieldDescriptor* bodyFieldFor(const Descriptor* type) {
    static const auto fields = [] {
        std::unordered_map<const Descriptor*, const FieldDescriptor*> map;
        const google::protobuf::OneofDescriptor* body = wire::Envelope::descriptor()->FindOneofByName("body");
        for (int i = 0; i < body->field_count(); ++i) map.emplace(body->field(i)->message_type(), body->field(i));
        return map;
    }();
    const auto it = fields.find(type);
    return it != fields.end() ? it->second : nullptr;
}

}  // namespace

wire::Envelope wrap(const google::protobuf::Message& body) {
    wire::Envelope envelope;
    const FieldDescriptor* field = bodyFieldFor(body.GetDescriptor());
    if (field == nullptr) {
        ZV_LOG(ERROR) << " " << body.GetTypeName() << " is no envelope body";
        return envelope;
    }
    envelope.GetReflection()->MutableMessage(&envelope, field)->CopyFrom(body);
    return envelope;
}

QString bodyName(const wire::Envelope& envelope) {
    if (envelope.body_case() != wire::Envelope::BODY_NOT_SET) {
        return QString::fromStdString(wire::Envelope::descriptor()->FindFieldByNumber(envelope.body_case())->name());
    }
    const google::protobuf::UnknownFieldSet& unknown = envelope.GetReflection()->GetUnknownFields(envelope);
    if (unknown.field_count() == 0) return QStringLiteral("no body");
    return QStringLiteral("unknown field %1").arg(unknown.field(0).number());
}

QByteArray encodeFrame(const wire::Envelope& envelope) {
    const size_t size = envelope.ByteSizeLong();
    QByteArray frame(kHeaderBytes + qsizetype(size), Qt::Uninitialized);
    qToBigEndian<quint32>(static_cast<quint32>(size), frame.data());
    envelope.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(frame.data() + kHeaderBytes));
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

std::vector<wire::Envelope> FrameDecoder::feed(const QByteArray& bytes) {
    std::vector<wire::Envelope> envelopes;
    if (hasError()) return envelopes;
    m_buffer.append(bytes);

    while (m_buffer.size() - m_readPos >= kHeaderBytes) {
        const char* header = m_buffer.constData() + m_readPos;
        const quint32 length = qFromBigEndian<quint32>(header);
        if (length == 0) {
            fail(QStringLiteral("frame length 0"));
            return envelopes;
        }
        if (length > m_maxFrameBytes) {
            fail(QStringLiteral("frame length %1 exceeds the limit of %2 bytes").arg(length).arg(m_maxFrameBytes));
            return envelopes;
        }
        if (m_buffer.size() - m_readPos - kHeaderBytes < static_cast<qsizetype>(length)) break;

        wire::Envelope envelope;
        if (!envelope.ParseFromArray(header + kHeaderBytes, static_cast<int>(length))) {
            fail(QStringLiteral("a frame of %1 bytes is no envelope").arg(length));
            return envelopes;
        }
        envelopes.push_back(std::move(envelope));
        m_readPos += kHeaderBytes + length;
    }

    // Drop consumed frames; a partial frame moves to the front once per feed.
    if (m_readPos > 0) {
        m_buffer.remove(0, m_readPos);
        m_readPos = 0;
    }
    return envelopes;
}

}  // namespace zv
