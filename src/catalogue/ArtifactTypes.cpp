#include "catalogue/ArtifactTypes.h"

#include <QJsonArray>
#include <QJsonObject>
#include <string>
#include <string_view>
#include <unordered_map>

namespace {

struct TransparentHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

// The same few artifact keys recur in thousands of casks; sharing one QString per key spares a conversion and an
// allocation each time. Bounded, so that a document full of made-up keys cannot grow it without end.
QString sharedKey(std::string_view key)
{
    constexpr std::size_t capacity = 256;
    thread_local std::unordered_map<std::string, QString, TransparentHash, std::equal_to<>> keys;
    if (const auto found = keys.find(key); found != keys.end()) {
        return found->second;
    }
    QString converted = QString::fromUtf8(key.data(), qsizetype(key.size()));
    if (keys.size() < capacity) {
        keys.emplace(key, converted);
    }
    return converted;
}

// Reads a value to its end without keeping it, so that malformed JSON in a skipped stanza is still noticed.
bool walk(JsonReader& reader)
{
    JsonReader::Kind kind;
    if (!reader.kind(kind)) {
        return false;
    }
    switch (kind) {
    case JsonReader::Kind::object:
        return reader.readObject([](std::string_view, JsonReader& value) { return walk(value); });
    case JsonReader::Kind::array:
        return reader.readArray([](JsonReader& element) { return walk(element); });
    case JsonReader::Kind::null: {
        bool isNull = false;
        return reader.readNull(isNull);
    }
    case JsonReader::Kind::number: {
        qint64 integer = 0;
        double number = 0;
        bool isInteger = false;
        return reader.readNumber(integer, number, isInteger);
    }
    case JsonReader::Kind::string: {
        std::string_view text;
        return reader.readUtf8(text);
    }
    case JsonReader::Kind::boolean: {
        bool value = false;
        return reader.readBool(value);
    }
    }
    return false;
}

} // namespace

bool JsonCoding<ArtifactTypes>::decode(JsonReader& reader, ArtifactTypes& out)
{
    QStringList keys;
    const bool read = reader.readArray([&keys](JsonReader& stanza) {
        JsonReader::Kind kind;
        if (!stanza.kind(kind)) {
            return false;
        }
        if (kind != JsonReader::Kind::object) {
            return walk(stanza);
        }
        return stanza.readObject([&keys](std::string_view key, JsonReader& body) {
            keys.append(sharedKey(key));
            return walk(body);
        });
    });
    if (!read) {
        return false;
    }
    out = ArtifactTypes(std::move(keys));
    return true;
}

QJsonValue JsonCoding<ArtifactTypes>::encode(const ArtifactTypes& value)
{
    QJsonArray stanzas;
    for (const QString& key : value.keys()) {
        stanzas.append(QJsonObject{{KeyConversion::convertToSnakeCase(key), QJsonValue::Null}});
    }
    return stanzas;
}
