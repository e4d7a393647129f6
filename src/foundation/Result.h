// The outcome of work that can fail: either a value or an Error (Result<void>: success or an Error).
#pragma once

#include "foundation/Error.h"

#include <utility>
#include <variant>

template <class T>
class Result {
public:
    Result(T value)
        : m_content(std::in_place_index<0>, std::move(value))
    {}
    Result(Error error)
        : m_content(std::in_place_index<1>, std::move(error))
    {}

    bool ok() const { return m_content.index() == 0; }
    explicit operator bool() const { return ok(); }

    const T& value() const& { return std::get<0>(m_content); }
    T& value() & { return std::get<0>(m_content); }
    T&& value() && { return std::get<0>(std::move(m_content)); }
    const Error& error() const { return std::get<1>(m_content); }

private:
    std::variant<T, Error> m_content;
};

template <>
class Result<void> {
public:
    Result() = default;
    Result(Error error)
        : m_error(std::move(error))
        , m_failed(true)
    {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return m_error; }

private:
    Error m_error;
    bool m_failed = false;
};
