// Connect codes and passcodes (docs/protocol.md, "Connect codes").
//
// An 8-character connect code is 40 bits in Crockford's base 32, most
// significant first: a 2-bit class, the part of the panel's IPv4 address the
// class carries, and a random secret filling the rest. The code is the
// password of the key exchange, so every class leaves at least 20 bits of
// secret:
//   class 0  192.168.0.0/16            16 address bits, 22 secret bits
//   class 1  the PC's own /14 network  18 address bits, 20 secret bits
//            (the high 14 bits come from the PC's addresses)
//   class 2  no address (found by discovery), 38 secret bits
//   class 3  reserved; read like class 2
// A 4-character code is a passcode resolved by the passcode service.
#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>

namespace zv::code {

inline constexpr char kAlphabet[] = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
constexpr int kConnectCodeLength = 8;
constexpr int kPasscodeLength = 4;
constexpr int kMinCodeLength = 4;
constexpr int kMaxCodeLength = 8;

// What the user typed, made canonical: white space and dashes removed,
// upper-cased, I and L read as 1, O as 0. Other characters are kept (and make
// the result invalid).
QString normalize(const QString& typed);

// True for 4 to 8 characters, all from the alphabet (expects normalize()'s
// output; lower case is invalid here).
bool isValidCode(const QString& code);
// A valid code of exactly 4 characters.
bool isValidPasscode(const QString& code);

constexpr int kMinSecretBits = 20;

// The 8-character code for an address (host byte order) and a secret; only
// the secret's low bits that the class leaves room for are used. Address 0
// makes a class 2 code (no address).
QString makeCode(quint32 ipv4HostOrder, quint64 secret);

// The full address a class 0 code carries (host byte order); nullopt for the
// other classes and for anything that is not 8 valid characters. Expects
// normalize()'s output.
std::optional<quint32> decodeAddress(const QString& code);

// Where the panel may be, given the PC's own IPv4 addresses (host byte
// order): class 0 its address; class 1 one candidate per distinct /14 of the
// PC's addresses; otherwise none (only discovery finds it).
QList<quint32> addressCandidates(const QString& code, const QList<quint32>& localAddresses);

// How many secret bits an 8-character code carries (0 if it is not one).
int secretBits(const QString& code);

// A connect code for the address with a random secret.
QString generateCode(quint32 ipv4HostOrder);
// A random 4-character passcode.
QString generatePasscode();

}  // namespace zv::code
