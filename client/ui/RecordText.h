// Text in and out of the fixed-size character fields of the library's
// records (panel, device and server records).
#pragma once

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "casting/KtrRuntime.h"

namespace qorquicomponents {

// The field's text up to its terminator, or the whole field when it has none.
template <size_t N>
QString fieldText(const char (&field)[N]) {
    return QString::fromUtf8(field, static_cast<int>(strnlen(field, N)));
}

// Clears the field and copies as much of text as fits before the terminator.
template <size_t N>
void copyText(char (&field)[N], const QByteArray& text) {
    Ktr_Memset_s(field, N, 0, N);
    Ktr_Memcpy_s(field, N, text.constData(), std::min(static_cast<size_t>(text.size()), N - 1));
}

}  // namespace qorquicomponents
