// Connect codes and passcodes (docs/protocol.md, "Connect codes").
//
// An 8-character connect code is 40 bits in Crockford's base 32, most
// significant first: a 2-bit address class, the part of the panel's IPv4
// address the class does not imply, and a random secret filling the rest:
//   class 0  192.168.0.0/16  16 address bits, 22 secret bits
//   class 1  172.16.0.0/12   20 address bits, 18 secret bits
//   class 2  10.0.0.0/8      24 address bits, 14 secret bits
//   class 3  any other       32 address bits,  6 secret bits
// A 4-character code is a passcode resolved by the passcode service.
#pragma once

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

// The 8-character code for an address (host byte order) and a secret; only
// the secret's low bits that the address class leaves room for are used.
QString makeCode(quint32 ipv4HostOrder, quint32 secret);

// The address an 8-character code carries (host byte order), or nullopt when
// the code is not 8 valid characters. Expects normalize()'s output.
std::optional<quint32> decodeAddress(const QString& code);

// A connect code for the address with a random secret.
QString generateCode(quint32 ipv4HostOrder);
// A random 4-character passcode.
QString generatePasscode();

}  // namespace zv::code
