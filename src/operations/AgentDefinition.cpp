#include "operations/AgentDefinition.h"

#include "foundation/PropertyList.h"
#include "operations/AgentError.h"

#include <QDir>
#include <QRegularExpression>

namespace {

Error invalid(const QString& why)
{
    return AgentError::make(AgentError::invalidDefinition, why);
}

bool isInteger(const QVariant& value)
{
    return value.typeId() == QMetaType::LongLong || value.typeId() == QMetaType::Int;
}

Result<AgentDefinition::CalendarInterval> calendarInterval(const QVariant& value)
{
    if (value.typeId() != QMetaType::QVariantMap) {
        return invalid(QStringLiteral("StartCalendarInterval must be a dictionary or an array of dictionaries"));
    }
    const QVariantMap fields = value.toMap();
    struct Field {
        QString key;
        int minimum;
        int maximum;
        std::optional<int> AgentDefinition::CalendarInterval::*member;
    };
    using Interval = AgentDefinition::CalendarInterval;
    const Field known[] = {
        {QStringLiteral("Month"), 1, 12, &Interval::month},    {QStringLiteral("Day"), 1, 31, &Interval::day},
        {QStringLiteral("Weekday"), 0, 7, &Interval::weekday}, {QStringLiteral("Hour"), 0, 23, &Interval::hour},
        {QStringLiteral("Minute"), 0, 59, &Interval::minute},
    };
    Interval interval;
    for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
        const auto field = std::ranges::find(known, it.key(), &Field::key);
        if (field == std::end(known)) {
            return invalid(QStringLiteral("StartCalendarInterval has an unknown key %1").arg(it.key()));
        }
        const qint64 number = it.value().toLongLong();
        if (!isInteger(it.value()) || number < field->minimum || number > field->maximum) {
            return invalid(QStringLiteral("StartCalendarInterval's %1 must be an integer from %2 to %3")
                               .arg(field->key)
                               .arg(field->minimum)
                               .arg(field->maximum));
        }
        interval.*(field->member) = int(number);
    }
    return interval;
}

} // namespace

Result<AgentDefinition> AgentDefinition::read(const QString& path)
{
    const Result<QVariant> plist = PropertyList::read(path);
    if (!plist) {
        return invalid(QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(path), plist.error().description()));
    }
    return fromPropertyList(plist.value());
}

Result<AgentDefinition> AgentDefinition::fromPropertyList(const QVariant& plist)
{
    if (plist.typeId() != QMetaType::QVariantMap) {
        return invalid(QStringLiteral("the property list is not a dictionary"));
    }
    AgentDefinition definition;
    definition.m_dictionary = plist.toMap();
    const QVariantMap& dictionary = definition.m_dictionary;

    // The label names the files and units made from it, so it keeps to the characters every service manager accepts.
    static const QRegularExpression labelPattern(QStringLiteral("^[A-Za-z0-9._-]+$"));
    const QVariant label = dictionary.value(QStringLiteral("Label"));
    if (label.typeId() != QMetaType::QString || !labelPattern.match(label.toString()).hasMatch()) {
        return invalid(QStringLiteral("Label must be a text of letters, digits, '.', '-' and '_'"));
    }
    definition.m_label = label.toString();

    const QVariant arguments = dictionary.value(QStringLiteral("ProgramArguments"));
    const QVariantList list = arguments.toList();
    if (arguments.typeId() != QMetaType::QVariantList || list.isEmpty()) {
        return invalid(QStringLiteral("ProgramArguments must be a non-empty array"));
    }
    for (const QVariant& argument : list) {
        if (argument.typeId() != QMetaType::QString) {
            return invalid(QStringLiteral("ProgramArguments must hold texts only"));
        }
        definition.m_programArguments.append(argument.toString());
    }
    if (!QDir::isAbsolutePath(definition.m_programArguments.constFirst())) {
        return invalid(QStringLiteral("the program %1 is not an absolute path").arg(list.constFirst().toString()));
    }

    const QVariant schedule = dictionary.value(QStringLiteral("StartCalendarInterval"));
    const QVariantList intervals =
        schedule.typeId() == QMetaType::QVariantList ? schedule.toList() : QVariantList{schedule};
    if (!schedule.isValid() || intervals.isEmpty()) {
        return invalid(QStringLiteral("StartCalendarInterval is missing"));
    }
    for (const QVariant& value : intervals) {
        auto interval = calendarInterval(value);
        if (!interval) {
            return interval.error();
        }
        definition.m_calendarIntervals.append(interval.value());
    }

    if (const QVariant nice = dictionary.value(QStringLiteral("Nice")); nice.isValid()) {
        if (!isInteger(nice) || nice.toLongLong() < -20 || nice.toLongLong() > 19) {
            return invalid(QStringLiteral("Nice must be an integer from -20 to 19"));
        }
        definition.m_nice = int(nice.toLongLong());
    }
    if (const QVariant lowPriority = dictionary.value(QStringLiteral("LowPriorityIO")); lowPriority.isValid()) {
        if (lowPriority.typeId() != QMetaType::Bool) {
            return invalid(QStringLiteral("LowPriorityIO must be a boolean"));
        }
        definition.m_lowPriorityIO = lowPriority.toBool();
    }
    return definition;
}
