#include "foundation/RailsDateFormat.h"

#include <QDate>
#include <QTime>
#include <QTimeZone>

namespace {

// Reads the fixed layout from any sequence of code units (UTF-16 or UTF-8 share the ASCII subset we accept).
template <class Char>
class DateScanner {
public:
    DateScanner(const Char* begin, const Char* end)
        : m_position(begin)
        , m_end(end)
    {}

    bool digits(int count, int& out)
    {
        out = 0;
        for (int i = 0; i < count; ++i) {
            if (m_position == m_end || *m_position < Char('0') || *m_position > Char('9')) {
                return false;
            }
            out = out * 10 + int(*m_position++ - Char('0'));
        }
        return true;
    }

    bool literal(char c)
    {
        if (m_position == m_end || *m_position != Char(c)) {
            return false;
        }
        ++m_position;
        return true;
    }

    bool atEnd() const { return m_position == m_end; }

    std::optional<QDateTime> dateTime()
    {
        int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
        if (!(digits(4, year) && literal('-') && digits(2, month) && literal('-') && digits(2, day) && literal('T') &&
              digits(2, hour) && literal(':') && digits(2, minute) && literal(':') && digits(2, second) &&
              literal('.'))) {
            return std::nullopt;
        }
        int milliseconds = 0;
        int fractionDigits = 0;
        for (int digit = 0; fractionDigits < 9 && digits(1, digit); ++fractionDigits) {
            if (fractionDigits < 3) {
                milliseconds = milliseconds * 10 + digit;
            }
        }
        if (fractionDigits == 0) {
            return std::nullopt;
        }
        for (int i = fractionDigits; i < 3; ++i) {
            milliseconds *= 10;
        }

        int offsetSeconds = 0;
        if (!zone(offsetSeconds) || !atEnd()) {
            return std::nullopt;
        }
        const QDate date(year, month, day);
        const QTime time(hour, minute, second, milliseconds);
        if (!date.isValid() || !time.isValid()) {
            return std::nullopt;
        }
        return QDateTime(date, time, Qt::UTC).addSecs(-offsetSeconds);
    }

private:
    bool zone(int& offsetSeconds)
    {
        if (literal('Z')) {
            offsetSeconds = 0;
            return true;
        }
        int sign = 1;
        if (literal('-')) {
            sign = -1;
        } else if (!literal('+')) {
            return false;
        }
        int hours = 0, minutes = 0;
        if (!digits(2, hours)) {
            return false;
        }
        if (!atEnd()) {
            literal(':');
            if (!digits(2, minutes)) {
                return false;
            }
        }
        if (hours > 18 || minutes > 59) {
            return false;
        }
        offsetSeconds = sign * (hours * 3600 + minutes * 60);
        return true;
    }

    const Char* m_position;
    const Char* m_end;
};

} // namespace

std::optional<QDateTime> RailsDateFormat::parse(QStringView text)
{
    return DateScanner<char16_t>(text.utf16(), text.utf16() + text.size()).dateTime();
}

std::optional<QDateTime> RailsDateFormat::parse(std::string_view utf8)
{
    return DateScanner<char>(utf8.data(), utf8.data() + utf8.size()).dateTime();
}

QString RailsDateFormat::format(const QDateTime& date)
{
    if (!date.isValid()) {
        return {};
    }
    return date.toUTC().toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss.zzz'+0000'"));
}
