#include "ui/SettingFeedback/SettingInputRules.h"

#include <array>

#include "casting/SettingRules.h"

namespace qorquicomponents {
namespace {

std::array<int, kForbiddenKeyCount> makeForbiddenKeys() {
    std::array<int, kForbiddenKeyCount> keys{};
    int n = 0;
    for (int k = 0; k <= 47; ++k) keys[n++] = k;
    for (int k = 58; k <= 64; ++k) keys[n++] = k;
    for (int k = 91; k <= 94; ++k) keys[n++] = k;
    keys[n++] = 96;
    for (int k = 123; k <= 126; ++k) keys[n++] = k;
    return keys;
}

const std::array<int, kForbiddenKeyCount> kForbiddenKeys = makeForbiddenKeys();

const QString kForbiddenTexts[kForbiddenInputMethodCount] = {
    QString(QChar(0x007E)), QString(QChar(0xFF01)), QString(QChar(0x0040)), QString(QChar(0x0023)),
    QString(QChar(0xFFE5)), QString(QChar(0x0025)), QString(2, QChar(0x2026)), QString(QChar(0x0026)),
    QString(QChar(0x002A)), QString(QChar(0xFF08)), QString(QChar(0xFF09)), QString(2, QChar(0x2014)),
    QString(QChar(0x3010)), QString(QChar(0x3011)), QString(QChar(0x2018)), QString(QChar(0x2019)),
    QString(QChar(0x007C)), QString(QChar(0xFF1B)), QString(QChar(0xFF1A)), QString(QChar(0x007B)),
    QString(QChar(0x007D)), QString(QChar(0x003D)), QString(QChar(0x201C)), QString(QChar(0x201D)),
    QString(QChar(0xFF0C)), QString(QChar(0x300A)), QString(QChar(0x300B)), QString(QChar(0x3002)),
    QString(QChar(0x3001)), QString(QChar(0xFF1F)), QString(QChar(0x002D)), QString(QChar(0x002B)),
    QString(QChar(0x00B7)),
};

}  // namespace

bool isIPAddressValid(const char* text) { return zv::settings::isIPAddressValid(text); }

QString stripPortLeadingZeros(const QString& text, int* cursor) {
    QString result = text;
    int dropped = 0;
    while (result.size() > 1 && result.startsWith(QLatin1Char('0'))) {
        result.remove(0, 1);
        ++dropped;
    }
    if (cursor != nullptr) *cursor = qMax(0, *cursor - dropped);
    return result;
}

int portTextValue(const QString& text) {
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    return ok ? value : 0;
}

bool isForbiddenHostNameKey(int key) {
    for (int k : kForbiddenKeys) {
        if (k == key) return true;
    }
    return false;
}

bool containsForbiddenInputMethodText(const QString& text) {
    for (const QString& entry : kForbiddenTexts) {
        if (text.contains(entry)) return true;
    }
    return false;
}

const int* forbiddenHostNameKeys() { return kForbiddenKeys.data(); }
const QString* forbiddenInputMethodTexts() { return kForbiddenTexts; }

bool isShortcutLetterKey(int key) { return key > 64 && key < 91; }

}  // namespace qorquicomponents
