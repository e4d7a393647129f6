// A background agent as the application bundle defines it: a launchd-style property list with the agent's Label,
// the ProgramArguments it runs and its StartCalendarInterval schedule. Each platform's AgentService turns it into
// what its service manager runs.
#pragma once

#include "foundation/Result.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

class AgentDefinition {
public:
    // One moment of the schedule; a field left out matches every value, as in launchd.
    struct CalendarInterval {
        std::optional<int> month;   // 1-12
        std::optional<int> day;     // 1-31
        std::optional<int> weekday; // 0-7, 0 and 7 both Sunday
        std::optional<int> hour;    // 0-23
        std::optional<int> minute;  // 0-59
        bool operator==(const CalendarInterval&) const = default;
    };

    // AgentError::invalidDefinition when the file cannot be read or lacks what an agent needs: a Label of letters,
    // digits, '.', '-' and '_'; a non-empty ProgramArguments of texts starting with an absolute path; one calendar
    // interval or an array of them with values in range. Nice (integer) and LowPriorityIO (boolean) are optional.
    static Result<AgentDefinition> read(const QString& path);
    static Result<AgentDefinition> fromPropertyList(const QVariant& plist);

    QString label() const { return m_label; }
    QStringList programArguments() const { return m_programArguments; }
    QList<CalendarInterval> calendarIntervals() const { return m_calendarIntervals; }
    std::optional<int> nice() const { return m_nice; }
    bool lowPriorityIO() const { return m_lowPriorityIO; }
    // Everything the file holds, also the keys only launchd understands.
    const QVariantMap& dictionary() const { return m_dictionary; }

private:
    QString m_label;
    QStringList m_programArguments;
    QList<CalendarInterval> m_calendarIntervals;
    std::optional<int> m_nice;
    bool m_lowPriorityIO = false;
    QVariantMap m_dictionary;
};
