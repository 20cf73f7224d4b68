#include "protocol/ConnectCode.h"

#include <QRandomGenerator>

namespace zv::code {

namespace {

constexpr int kBitsPerChar = 5;
constexpr int kCodeBits = kConnectCodeLength * kBitsPerChar;  // 40
constexpr int kClassBits = 2;
constexpr int kPayloadBits = kCodeBits - kClassBits;           // 38

struct AddressClass {
    quint32 prefix;     // the fixed high bits, in place
    int addressBits;    // low address bits carried in the code
};

// Indexed by the class number.
constexpr AddressClass kClasses[] = {
    {0xC0A80000u, 16},  // 192.168.0.0/16
    {0xAC100000u, 20},  // 172.16.0.0/12
    {0x0A000000u, 24},  // 10.0.0.0/8
    {0x00000000u, 32},  // anything else
};

quint32 lowMask(int bits) { return bits >= 32 ? 0xFFFFFFFFu : ((1u << bits) - 1u); }

int classOf(quint32 address) {
    for (int c = 0; c < 3; ++c) {
        if ((address & ~lowMask(kClasses[c].addressBits)) == kClasses[c].prefix) return c;
    }
    return 3;
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

QString makeCode(quint32 ipv4HostOrder, quint32 secret) {
    const int cls = classOf(ipv4HostOrder);
    const int addressBits = kClasses[cls].addressBits;
    const int secretBits = kPayloadBits - addressBits;
    const quint64 bits = (quint64(cls) << kPayloadBits) |
                         (quint64(ipv4HostOrder & lowMask(addressBits)) << secretBits) |
                         quint64(secret & lowMask(secretBits));
    QString out(kConnectCodeLength, Qt::Uninitialized);
    for (int i = 0; i < kConnectCodeLength; ++i) {
        const int shift = kCodeBits - kBitsPerChar * (i + 1);
        out[i] = QLatin1Char(kAlphabet[(bits >> shift) & 0x1F]);
    }
    return out;
}

std::optional<quint32> decodeAddress(const QString& code) {
    if (code.size() != kConnectCodeLength) return std::nullopt;
    quint64 bits = 0;
    for (const QChar ch : code) {
        const int v = valueOf(ch);
        if (v < 0) return std::nullopt;
        bits = (bits << kBitsPerChar) | quint64(v);
    }
    const int cls = int(bits >> kPayloadBits);
    const int addressBits = kClasses[cls].addressBits;
    const int secretBits = kPayloadBits - addressBits;
    const quint32 low = quint32(bits >> secretBits) & lowMask(addressBits);
    return kClasses[cls].prefix | low;
}

QString generateCode(quint32 ipv4HostOrder) { return makeCode(ipv4HostOrder, QRandomGenerator::system()->generate()); }

QString generatePasscode() {
    QString out(kPasscodeLength, Qt::Uninitialized);
    for (int i = 0; i < kPasscodeLength; ++i) out[i] = QLatin1Char(kAlphabet[QRandomGenerator::system()->bounded(32)]);
    return out;
}

}  // namespace zv::code
