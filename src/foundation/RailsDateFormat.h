// The one date format of Homebrew's JSON, "yyyy-MM-dd'T'HH:mm:ss.SSSZ", read and written the way the Rails JSON
// presets need it.
#pragma once

#include <QDateTime>
#include <QString>
#include <QStringView>
#include <optional>
#include <string_view>

class RailsDateFormat {
public:
    static constexpr const char* pattern = "yyyy-MM-dd'T'HH:mm:ss.SSSZ";

    // Reads "2024-03-05T14:07:09.123+0100" into a UTC date. Like a lenient formatter it also takes the zone as "Z",
    // "+01:00" or "+01", and one to nine fraction digits (kept to the millisecond). Anything else gives none.
    static std::optional<QDateTime> parse(QStringView text);
    static std::optional<QDateTime> parse(std::string_view utf8);

    // Writes the date in UTC: "2024-03-05T13:07:09.123+0000". An invalid date gives an empty string.
    static QString format(const QDateTime& date);
};
