// A JSON value of open shape (a cask's artifact stanzas): object with its keys in document order, array, null,
// integer, floating-point number, string or Boolean. Decodes and encodes like any other supported type.
#pragma once

#include "foundation/Codable.h"

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <cstddef>
#include <utility>
#include <variant>
#include <vector>

class JSON {
public:
    using Array = std::vector<JSON>;
    using Object = std::vector<std::pair<QString, JSON>>;

    // In the order of the alternatives held.
    enum class Type { null, boolean, integer, number, string, array, object };

    JSON() = default;
    JSON(std::nullptr_t) {}
    JSON(bool value)
        : m_value(value)
    {}
    JSON(int value)
        : m_value(qint64(value))
    {}
    JSON(qint64 value)
        : m_value(value)
    {}
    JSON(double value)
        : m_value(value)
    {}
    JSON(QString value)
        : m_value(std::move(value))
    {}
    JSON(const char* utf8)
        : m_value(QString::fromUtf8(utf8))
    {}
    JSON(Array value)
        : m_value(std::move(value))
    {}
    JSON(Object value)
        : m_value(std::move(value))
    {}

    Type type() const { return Type(m_value.index()); }
    bool isNull() const { return type() == Type::null; }
    bool isBool() const { return type() == Type::boolean; }
    bool isInteger() const { return type() == Type::integer; }
    bool isDouble() const { return type() == Type::number; }
    bool isString() const { return type() == Type::string; }
    bool isArray() const { return type() == Type::array; }
    bool isObject() const { return type() == Type::object; }

    // Each conversion gives the fallback when the value is of another type; toDouble also takes integers.
    bool toBool(bool fallback = false) const;
    qint64 toInteger(qint64 fallback = 0) const;
    double toDouble(double fallback = 0) const;
    QString toString(const QString& fallback = {}) const;
    const Array& toArray() const;
    const Object& toObject() const;

    // The keys of an object in document order; empty for other types.
    QStringList keys() const;
    bool contains(QStringView key) const;
    // The member under key (the last one if the document repeated it), or null.
    const JSON& value(QStringView key) const;

    // Object keys are written in snake case when toSnakeCase is set (the Rails encoder does); QJsonObject sorts them.
    QJsonValue toQJsonValue(bool toSnakeCase) const;

    bool operator==(const JSON&) const = default;

private:
    std::variant<std::monostate, bool, qint64, double, QString, Array, Object> m_value;
};

// Reads whatever the value is: object, array, null, integer, number, string or Boolean, so that 1 stays an integer
// and 1.5 is a number. Object keys arrive converted from snake case like every key the decoder reads.
template <>
struct JsonCoding<JSON> {
    static bool decode(JsonReader& reader, JSON& out);
    static QJsonValue encode(const JSON& value) { return value.toQJsonValue(true); }
};
