// A tolerant field: a value that fails to decode, for whatever reason, leaves the field absent instead of failing the
// whole record. Homebrew's data is not uniform across the years (a homepage that is not a URL, an odd artifact).
#pragma once

#include "foundation/Codable.h"

#include <optional>
#include <type_traits>
#include <utility>

template <class T>
class FailableCodable;

// What a FailableCodable<T> converts from besides itself, an optional and nullopt.
template <class U, class T>
concept FailableCodableSource =
    std::is_constructible_v<T, U&&> && !std::is_same_v<std::remove_cvref_t<U>, FailableCodable<T>> &&
    !std::is_same_v<std::remove_cvref_t<U>, std::optional<T>> &&
    !std::is_same_v<std::remove_cvref_t<U>, std::nullopt_t>;

template <class T>
class FailableCodable {
public:
    FailableCodable() = default;
    FailableCodable(std::nullopt_t) {}
    // Like std::optional, anything T is made from converts directly ("text" for a FailableCodable<QString>).
    template <FailableCodableSource<T> U = T>
    FailableCodable(U&& value)
        : m_value(std::forward<U>(value))
    {}
    FailableCodable(std::optional<T> value)
        : m_value(std::move(value))
    {}

    bool has_value() const { return m_value.has_value(); }
    explicit operator bool() const { return m_value.has_value(); }

    const T& value() const& { return m_value.value(); }
    T& value() & { return m_value.value(); }
    T&& value() && { return std::move(m_value).value(); }
    template <class U>
    T value_or(U&& fallback) const
    {
        return m_value.value_or(std::forward<U>(fallback));
    }

    const T& operator*() const& { return *m_value; }
    T& operator*() & { return *m_value; }
    const T* operator->() const { return &*m_value; }
    T* operator->() { return &*m_value; }

    const std::optional<T>& optional() const { return m_value; }
    void reset() { m_value.reset(); }

    bool operator==(const FailableCodable&) const = default;
    friend bool operator==(const FailableCodable& lhs, const T& rhs) { return lhs.m_value == rhs; }
    friend bool operator==(const FailableCodable& lhs, std::nullopt_t) { return !lhs.m_value; }

private:
    std::optional<T> m_value;
};

// A missing key is absent too; an absent value is written as null rather than left out.
template <class T>
struct JsonCoding<FailableCodable<T>> {
    static bool decode(JsonReader& reader, FailableCodable<T>& out)
    {
        T value{};
        if (CodableDetail::decode(reader, value)) {
            out = std::move(value);
            return true;
        }
        out.reset();
        return reader.recover();
    }
    static bool decodeMissing(FailableCodable<T>& out)
    {
        out.reset();
        return true;
    }
    static QJsonValue encode(const FailableCodable<T>& value)
    {
        return value ? CodableDetail::encode(*value) : QJsonValue(QJsonValue::Null);
    }
};
