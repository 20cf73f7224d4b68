// Explicit key confirmation after CPace: each side proves it holds the same
// ISK by an HMAC-SHA-512 tag over its own label and the transcript. The MAC
// key is HKDF-SHA-256(ISK, info "zv-confirm-key"), never the ISK itself.
// The initiator is the PC ("zv-confirm-pc"), the responder the panel
// ("zv-confirm-panel"); each checks the other's tag with verifyConfirmationTag.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <QByteArray>

#include "security/CPace.h"

namespace zv {

inline constexpr int kConfirmationTagBytes = 64;

// The tag the side playing role sends; empty when isk is empty.
QByteArray confirmationTag(const QByteArray& isk, CPace::Role role, const QByteArray& transcript);

// Whether tag is the one the side playing role must send. Compares in
// constant time; a tag of the wrong length is simply false.
bool verifyConfirmationTag(const QByteArray& isk, CPace::Role role, const QByteArray& transcript,
                           const QByteArray& tag);

}  // namespace zv
