// Converts JSON keys between Homebrew's snake_case and the camelCase names records use, with the same rules as the
// usual convert-from/to-snake-case key strategies of JSON coders.
#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace KeyConversion {

// "full_name" -> "fullName". Leading and trailing underscores are kept; a key without inner underscores is left as
// it is (it may already be camel case).
QString convertFromSnakeCase(const QString& key);

// The same conversion on UTF-8. Returns key itself when it has no underscore (no allocation: most keys have none),
// otherwise a view that stays valid at least until the next call with the same buffer: converted keys are kept in a
// per-thread table, buffer is used once the table is full.
std::string_view convertFromSnakeCase(std::string_view key, std::string& buffer);

// "fullName" -> "full_name", "myURL" -> "my_url": words split at lower-to-upper transitions, a run of capitals is a
// word of its own up to the capital that starts the next word.
QString convertToSnakeCase(const QString& key);

} // namespace KeyConversion
