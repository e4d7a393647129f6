// How values map to JSON. A record lists its coding keys once, in a static constexpr codingKeys(), and both decoding
// and encoding derive from that table; JsonCoding<T> holds the rules of each supported type.
//
//     struct Sample {
//         QString token;                 // required: a missing key or null fails the document
//         std::optional<QString> desc;   // optional: missing or null -> absent, a wrong type still fails
//         FailableCodable<QUrl> website; // tolerant: anything that fails -> absent
//         static constexpr auto codingKeys()
//         {
//             return std::make_tuple(CodingKey("name", &Sample::token), CodingKey("desc", &Sample::desc),
//                                    CodingKey("homepage", &Sample::website));
//         }
//     };
//
// Keys are written as they read after snake-case conversion ("fullName" matches "full_name" on the wire); wire keys
// without an entry are skipped.
#pragma once

#include "foundation/JsonReader.h"
#include "foundation/KeyConversion.h"
#include "foundation/RailsDateFormat.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <bitset>
#include <concepts>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// One entry of a record's key table: the key after snake-case conversion, and the member it fills.
template <class Owner, class Member>
struct CodingKey {
    constexpr CodingKey(std::string_view keyName, Member Owner::*keyMember)
        : name(keyName)
        , member(keyMember)
    {}

    std::string_view name;
    Member Owner::*member;
};

// The rules of one type: static bool decode(JsonReader&, T&) and static QJsonValue encode(const T&); encoded object
// keys are in snake case. Types that accept a missing key add static bool decodeMissing(T&); values that are left
// out of their record when encoded add static bool isOmitted(const T&).
template <class T>
struct JsonCoding;

template <class T>
concept CodableRecord = requires
{
    T::codingKeys();
};

template <class T>
concept JsonCodable = requires(JsonReader& reader, T& value, const T& constValue)
{
    {
        JsonCoding<T>::decode(reader, value)
        } -> std::same_as<bool>;
    {
        JsonCoding<T>::encode(constValue)
        } -> std::same_as<QJsonValue>;
};

namespace CodableDetail {

template <class T>
bool decode(JsonReader& reader, T& value)
{
    static_assert(JsonCodable<T>, "this type has no JsonCoding: use a supported type or give it codingKeys()");
    return JsonCoding<T>::decode(reader, value);
}

template <class T>
QJsonValue encode(const T& value)
{
    static_assert(JsonCodable<T>, "this type has no JsonCoding: use a supported type or give it codingKeys()");
    return JsonCoding<T>::encode(value);
}

template <class T>
bool decodeMissing(T& value)
{
    if constexpr (requires { JsonCoding<T>::decodeMissing(value); }) {
        return JsonCoding<T>::decodeMissing(value);
    } else {
        return false;
    }
}

template <class T>
bool isOmitted(const T& value)
{
    if constexpr (requires { JsonCoding<T>::isOmitted(value); }) {
        return JsonCoding<T>::isOmitted(value);
    } else {
        return false;
    }
}

// Calls f(codingKey, index) for each entry of a key table until f returns true; returns whether one did.
template <class Tuple, class F>
bool findCodingKey(const Tuple& keys, F&& f)
{
    return [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        return (f(std::get<I>(keys), I) || ...);
    }
    (std::make_index_sequence<std::tuple_size_v<Tuple>>{});
}

} // namespace CodableDetail

template <CodableRecord T>
struct JsonCoding<T> {
    static bool decode(JsonReader& reader, T& out)
    {
        static constexpr auto keys = T::codingKeys();
        std::bitset<std::tuple_size_v<std::remove_const_t<decltype(keys)>>> seen;

        const bool read = reader.readObject([&](std::string_view key, JsonReader& value) {
            bool decoded = true;
            CodableDetail::findCodingKey(keys, [&](const auto& codingKey, std::size_t index) {
                if (codingKey.name != key) {
                    return false;
                }
                seen.set(index);
                decoded = CodableDetail::decode(value, out.*(codingKey.member));
                return true;
            });
            return decoded;
        });
        if (!read) {
            return false;
        }
        if (seen.all()) {
            return true;
        }
        const bool missing = CodableDetail::findCodingKey(keys, [&](const auto& codingKey, std::size_t index) {
            if (seen.test(index) || CodableDetail::decodeMissing(out.*(codingKey.member))) {
                return false;
            }
            reader.failMissingKey(codingKey.name);
            return true;
        });
        return !missing;
    }

    static QJsonValue encode(const T& value)
    {
        static constexpr auto keys = T::codingKeys();
        QJsonObject object;
        CodableDetail::findCodingKey(keys, [&](const auto& codingKey, std::size_t) {
            const auto& member = value.*(codingKey.member);
            if (!CodableDetail::isOmitted(member)) {
                const QString name = QString::fromUtf8(codingKey.name.data(), qsizetype(codingKey.name.size()));
                object.insert(KeyConversion::convertToSnakeCase(name), CodableDetail::encode(member));
            }
            return false;
        });
        return object;
    }
};

template <>
struct JsonCoding<bool> {
    static bool decode(JsonReader& reader, bool& out) { return reader.readBool(out); }
    static QJsonValue encode(bool value) { return value; }
};

template <>
struct JsonCoding<int> {
    static bool decode(JsonReader& reader, int& out) { return reader.readInteger(out); }
    static QJsonValue encode(int value) { return value; }
};

template <>
struct JsonCoding<qint64> {
    static bool decode(JsonReader& reader, qint64& out) { return reader.readInteger(out); }
    static QJsonValue encode(qint64 value) { return value; }
};

template <>
struct JsonCoding<double> {
    static bool decode(JsonReader& reader, double& out) { return reader.readDouble(out); }
    static QJsonValue encode(double value) { return value; }
};

template <>
struct JsonCoding<QString> {
    static bool decode(JsonReader& reader, QString& out) { return reader.readString(out); }
    static QJsonValue encode(const QString& value) { return value; }
};

// Strict, so that a tolerant URL field turns free text ("none", "see README") into no URL at all.
template <>
struct JsonCoding<QUrl> {
    static bool decode(JsonReader& reader, QUrl& out)
    {
        QString text;
        if (!reader.readString(text)) {
            return false;
        }
        out = QUrl(text, QUrl::StrictMode);
        if (out.isEmpty() || !out.isValid()) {
            out.clear();
            const QString shown = text.size() > 80 ? text.left(77) + QStringLiteral("...") : text;
            return reader.fail(DecodingError::dataCorrupted, QStringLiteral("Invalid URL string \"%1\"").arg(shown));
        }
        return true;
    }
    static QJsonValue encode(const QUrl& value) { return value.toString(QUrl::FullyEncoded); }
};

template <>
struct JsonCoding<QDateTime> {
    static bool decode(JsonReader& reader, QDateTime& out)
    {
        std::string_view text;
        if (!reader.readUtf8(text)) {
            return false;
        }
        std::optional<QDateTime> date = RailsDateFormat::parse(text);
        if (!date) {
            return reader.fail(DecodingError::dataCorrupted,
                               QStringLiteral("Date string does not match format expected by formatter"));
        }
        out = std::move(*date);
        return true;
    }
    static QJsonValue encode(const QDateTime& value)
    {
        return value.isValid() ? QJsonValue(RailsDateFormat::format(value)) : QJsonValue(QJsonValue::Null);
    }
};

template <>
struct JsonCoding<QStringList> {
    static bool decode(JsonReader& reader, QStringList& out)
    {
        out.clear();
        return reader.readArray([&out](JsonReader& element) { return element.readString(out.emplaceBack()); });
    }
    static QJsonValue encode(const QStringList& value) { return QJsonArray::fromStringList(value); }
};

template <class T>
struct JsonCoding<std::vector<T>> {
    static bool decode(JsonReader& reader, std::vector<T>& out)
    {
        out.clear();
        return reader.readArray([&out](JsonReader& element) {
            if constexpr (std::is_same_v<T, bool>) {
                bool value = false;
                if (!element.readBool(value)) {
                    return false;
                }
                out.push_back(value);
                return true;
            } else {
                return CodableDetail::decode(element, out.emplace_back());
            }
        });
    }
    static QJsonValue encode(const std::vector<T>& value)
    {
        QJsonArray array;
        for (const auto& element : value) {
            array.append(CodableDetail::encode(element));
        }
        return array;
    }
};

// Absent when the key is missing or its value is null; any other value must decode as T.
template <class T>
struct JsonCoding<std::optional<T>> {
    static bool decode(JsonReader& reader, std::optional<T>& out)
    {
        bool isNull = false;
        if (!reader.readNull(isNull)) {
            return false;
        }
        if (isNull) {
            out.reset();
            return true;
        }
        if (!CodableDetail::decode(reader, out.emplace())) {
            out.reset();
            return false;
        }
        return true;
    }
    static bool decodeMissing(std::optional<T>& out)
    {
        out.reset();
        return true;
    }
    static bool isOmitted(const std::optional<T>& value) { return !value.has_value(); }
    static QJsonValue encode(const std::optional<T>& value)
    {
        return value ? CodableDetail::encode(*value) : QJsonValue(QJsonValue::Null);
    }
};
