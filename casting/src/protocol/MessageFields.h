// Typed reading and writing of message maps, shared by the message
// families (session, passcode, casting). Internal to the protocol folder.
#pragma once

#include <QCborMap>
#include <QCborValue>
#include <QString>

#include <limits>
#include <optional>

namespace zv {
QString messageType(const QCborMap& message);
}  // namespace zv

namespace zv::fields {

// Reads typed fields of one map, keeping the first failure as the reason.
class Fields {
public:
    Fields(const QCborMap& map, const QString& context, QString* error) : m_map(map), m_context(context), m_error(error) {}

    bool ok() const { return m_ok; }

    QString text(const char* key) {
        const QCborValue v = get(key);
        if (!m_ok) return {};
        if (!v.isString()) return wrongType(key, "a text"), QString();
        return v.toString();
    }
    qint64 integer(const char* key) {
        const QCborValue v = get(key);
        if (!m_ok) return 0;
        if (!v.isInteger()) return wrongType(key, "an integer"), 0;
        return v.toInteger();
    }
    int int32(const char* key) {
        const qint64 v = integer(key);
        if (m_ok && (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()))
            return fail(QStringLiteral("\"%1\" is out of range").arg(QLatin1String(key))), 0;
        return static_cast<int>(v);
    }
    bool boolean(const char* key) {
        const QCborValue v = get(key);
        if (!m_ok) return false;
        if (!v.isBool()) return wrongType(key, "a bool"), false;
        return v.toBool();
    }
    // A nested map, read by a Fields of its own sharing this one's error.
    Fields map(const char* key) {
        const QCborValue v = get(key);
        if (m_ok && !v.isMap()) wrongType(key, "a map");
        Fields nested(v.toMap(), m_context + QLatin1Char('.') + QLatin1String(key), m_error);
        nested.m_ok = m_ok;
        return nested;
    }
    std::optional<QString> optionalText(const char* key) {
        if (!m_ok || !m_map.contains(QLatin1String(key))) return std::nullopt;
        return text(key);
    }
    // Carries a nested reader's failure back.
    void merge(const Fields& nested) { m_ok = m_ok && nested.m_ok; }

private:
    QCborValue get(const char* key) {
        if (!m_ok) return {};
        const QCborValue v = m_map.value(QLatin1String(key));
        if (v.isUndefined()) fail(QStringLiteral("missing \"%1\"").arg(QLatin1String(key)));
        return v;
    }
    void wrongType(const char* key, const char* expected) {
        fail(QStringLiteral("\"%1\" is not %2").arg(QLatin1String(key), QLatin1String(expected)));
    }
    void fail(const QString& what) {
        if (!m_ok) return;
        m_ok = false;
        if (m_error) *m_error = m_context + QStringLiteral(": ") + what;
    }

    QCborMap m_map;
    QString m_context;
    QString* m_error;
    bool m_ok = true;
};

// Checks "t" and returns a reader for the rest, or nullopt with the reason.
inline std::optional<Fields> open(const QCborMap& map, const QString& type, QString* error) {
    const QString t = messageType(map);
    if (t != type) {
        if (error) *error = QStringLiteral("expected a \"%1\" message, got \"%2\"").arg(type, t);
        return std::nullopt;
    }
    return Fields(map, type, error);
}

template <typename T>
std::optional<T> finish(const Fields& f, T value) {
    if (!f.ok()) return std::nullopt;
    return value;
}

inline QCborMap typed(const QString& type) {
    QCborMap map;
    map.insert(QLatin1String("t"), type);
    return map;
}


}  // namespace zv::fields
