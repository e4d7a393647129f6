#include "foundation/JSON.h"

#include <QJsonArray>
#include <QJsonObject>
#include <algorithm>

namespace {

const JSON& nullJson()
{
    static const JSON null;
    return null;
}

} // namespace

bool JSON::toBool(bool fallback) const
{
    const auto* value = std::get_if<bool>(&m_value);
    return value ? *value : fallback;
}

qint64 JSON::toInteger(qint64 fallback) const
{
    const auto* value = std::get_if<qint64>(&m_value);
    return value ? *value : fallback;
}

double JSON::toDouble(double fallback) const
{
    if (const auto* value = std::get_if<double>(&m_value)) {
        return *value;
    }
    if (const auto* value = std::get_if<qint64>(&m_value)) {
        return double(*value);
    }
    return fallback;
}

QString JSON::toString(const QString& fallback) const
{
    const auto* value = std::get_if<QString>(&m_value);
    return value ? *value : fallback;
}

const JSON::Array& JSON::toArray() const
{
    static const Array empty;
    const auto* value = std::get_if<Array>(&m_value);
    return value ? *value : empty;
}

const JSON::Object& JSON::toObject() const
{
    static const Object empty;
    const auto* value = std::get_if<Object>(&m_value);
    return value ? *value : empty;
}

QStringList JSON::keys() const
{
    QStringList result;
    for (const auto& member : toObject()) {
        result.append(member.first);
    }
    return result;
}

bool JSON::contains(QStringView key) const
{
    const Object& members = toObject();
    return std::any_of(members.begin(), members.end(), [key](const auto& member) { return member.first == key; });
}

const JSON& JSON::value(QStringView key) const
{
    const Object& members = toObject();
    const auto found =
        std::find_if(members.rbegin(), members.rend(), [key](const auto& member) { return member.first == key; });
    return found == members.rend() ? nullJson() : found->second;
}

QJsonValue JSON::toQJsonValue(bool toSnakeCase) const
{
    switch (type()) {
    case Type::null:
        return QJsonValue(QJsonValue::Null);
    case Type::boolean:
        return std::get<bool>(m_value);
    case Type::integer:
        return std::get<qint64>(m_value);
    case Type::number:
        return std::get<double>(m_value);
    case Type::string:
        return std::get<QString>(m_value);
    case Type::array: {
        QJsonArray array;
        for (const JSON& element : std::get<Array>(m_value)) {
            array.append(element.toQJsonValue(toSnakeCase));
        }
        return array;
    }
    case Type::object: {
        QJsonObject object;
        for (const auto& [key, member] : std::get<Object>(m_value)) {
            object.insert(toSnakeCase ? KeyConversion::convertToSnakeCase(key) : key, member.toQJsonValue(toSnakeCase));
        }
        return object;
    }
    }
    return {};
}

bool JsonCoding<JSON>::decode(JsonReader& reader, JSON& out)
{
    // Dispatching on the JSON type gives the same answer as trying object, array, null, integer, number, string and
    // Boolean in turn, without reading any value twice.
    JsonReader::Kind kind;
    if (!reader.kind(kind)) {
        return false;
    }
    switch (kind) {
    case JsonReader::Kind::object: {
        JSON::Object members;
        const bool read = reader.readObject([&members](std::string_view key, JsonReader& value) {
            auto& member = members.emplace_back(QString::fromUtf8(key.data(), qsizetype(key.size())), JSON());
            return decode(value, member.second);
        });
        out = JSON(std::move(members));
        return read;
    }
    case JsonReader::Kind::array: {
        JSON::Array elements;
        const bool read =
            reader.readArray([&elements](JsonReader& element) { return decode(element, elements.emplace_back()); });
        out = JSON(std::move(elements));
        return read;
    }
    case JsonReader::Kind::null: {
        bool isNull = false;
        out = JSON();
        return reader.readNull(isNull);
    }
    case JsonReader::Kind::number: {
        qint64 integer = 0;
        double number = 0;
        bool isInteger = false;
        if (!reader.readNumber(integer, number, isInteger)) {
            return false;
        }
        out = isInteger ? JSON(integer) : JSON(number);
        return true;
    }
    case JsonReader::Kind::string: {
        QString text;
        if (!reader.readString(text)) {
            return false;
        }
        out = JSON(std::move(text));
        return true;
    }
    case JsonReader::Kind::boolean: {
        bool value = false;
        if (!reader.readBool(value)) {
            return false;
        }
        out = JSON(value);
        return true;
    }
    }
    return false;
}
