#include "protocol/ConnectCode.h"

#include <QRandomGenerator>

namespace zv::code {

namespace {

constexpr int kBitsPerChar = 5;
constexpr int kCodeBits = kConnectCodeLength * kBitsPerChar;  // 40
constexpr int kClassBits = 2;
constexpr int kPayloadBits = kCodeBits - kClassBits;           // 38

// The classes of the top 2 bits.
constexpr int kPrivate16 = 0;  // 192.168.0.0/16, 16 address bits
constexpr int kLocal18 = 1;    // low 18 bits; the high 14 are the PC's own
constexpr int kNoAddress = 2;
constexpr quint32 kPrivate16Prefix = 0xC0A80000u;
constexpr quint32 kLocal18Mask = 0x3FFFFu;

int addressBitsOf(int cls) {
    switch (cls) {
    case kPrivate16: return 16;
    case kLocal18: return 18;
    default: return 0;
    }
}

quint64 lowMask(int bits) { return bits >= 64 ? ~quint64(0) : ((quint64(1) << bits) - 1u); }

int classOf(quint32 address) {
    if (address == 0) return kNoAddress;
    if ((address & 0xFFFF0000u) == kPrivate16Prefix) return kPrivate16;
    return kLocal18;
}

int valueOf(QChar ch) {
    const ushort u = ch.unicode();
    for (int i = 0; i < 32; ++i) {
        if (u == static_cast<ushort>(kAlphabet[i])) return i;
    }
    return -1;
}

}  // namespace

QString normalize(const QString& typed) {
    QString out;
    out.reserve(typed.size());
    for (const QChar ch : typed) {
        if (ch.isSpace() || ch == QLatin1Char('-')) continue;
        QChar up = ch.toUpper();
        if (up == QLatin1Char('I') || up == QLatin1Char('L')) up = QLatin1Char('1');
        else if (up == QLatin1Char('O')) up = QLatin1Char('0');
        out.append(up);
    }
    return out;
}

bool isValidCode(const QString& code) {
    if (code.size() < kMinCodeLength || code.size() > kMaxCodeLength) return false;
    for (const QChar ch : code) {
        if (valueOf(ch) < 0) return false;
    }
    return true;
}

bool isValidPasscode(const QString& code) { return code.size() == kPasscodeLength && isValidCode(code); }

QString makeCode(quint32 ipv4HostOrder, quint64 secret) {
    const int cls = classOf(ipv4HostOrder);
    const int addressBits = addressBitsOf(cls);
    const int secretBitCount = kPayloadBits - addressBits;
    const quint64 bits = (quint64(cls) << kPayloadBits) |
                         ((quint64(ipv4HostOrder) & lowMask(addressBits)) << secretBitCount) |
                         (secret & lowMask(secretBitCount));
    QString out(kConnectCodeLength, Qt::Uninitialized);
    for (int i = 0; i < kConnectCodeLength; ++i) {
        const int shift = kCodeBits - kBitsPerChar * (i + 1);
        out[i] = QLatin1Char(kAlphabet[(bits >> shift) & 0x1F]);
    }
    return out;
}

namespace {

// The 40 bits of an 8-character code.
std::optional<quint64> codeBits(const QString& code) {
    if (code.size() != kConnectCodeLength) return std::nullopt;
    quint64 bits = 0;
    for (const QChar ch : code) {
        const int v = valueOf(ch);
        if (v < 0) return std::nullopt;
        bits = (bits << kBitsPerChar) | quint64(v);
    }
    return bits;
}

quint32 carriedAddressBits(quint64 bits, int cls) {
    const int addressBits = addressBitsOf(cls);
    return quint32((bits >> (kPayloadBits - addressBits)) & lowMask(addressBits));
}

}  // namespace

std::optional<quint32> decodeAddress(const QString& code) {
    const std::optional<quint64> bits = codeBits(code);
    if (!bits || int(*bits >> kPayloadBits) != kPrivate16) return std::nullopt;
    return kPrivate16Prefix | carriedAddressBits(*bits, kPrivate16);
}

QList<quint32> addressCandidates(const QString& code, const QList<quint32>& localAddresses) {
    const std::optional<quint64> bits = codeBits(code);
    if (!bits) return {};
    const int cls = int(*bits >> kPayloadBits);
    if (cls == kPrivate16) return {kPrivate16Prefix | carriedAddressBits(*bits, cls)};
    if (cls != kLocal18) return {};
    QList<quint32> out;
    for (const quint32 local : localAddresses) {
        if (local == 0) continue;
        const quint32 candidate = (local & ~kLocal18Mask) | carriedAddressBits(*bits, cls);
        if (!out.contains(candidate)) out.append(candidate);
    }
    return out;
}

int secretBits(const QString& code) {
    const std::optional<quint64> bits = codeBits(code);
    if (!bits) return 0;
    return kPayloadBits - addressBitsOf(int(*bits >> kPayloadBits));
}

QString generateCode(quint32 ipv4HostOrder) { return makeCode(ipv4HostOrder, QRandomGenerator::system()->generate64()); }

QString generatePasscode() {
    QString out(kPasscodeLength, Qt::Uninitialized);
    for (int i = 0; i < kPasscodeLength; ++i) out[i] = QLatin1Char(kAlphabet[QRandomGenerator::system()->bounded(32)]);
    return out;
}

}  // namespace zv::code
