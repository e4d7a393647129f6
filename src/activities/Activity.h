// One background operation shown to the user (one run of brew): what it concerns, what it does and when it
// started. Immutable once built, so one instance is shared freely between threads as an ActivityPtr.
#pragma once

#include <QDateTime>
#include <QLocale>
#include <QMetaType>
#include <QString>
#include <memory>

class Activity;
using ActivityPtr = std::shared_ptr<const Activity>;

class Activity {
public:
    // The date is the moment of construction.
    Activity(QString target, QString action);

    static ActivityPtr make(QString target, QString action);

    const QDateTime& date() const { return m_date; }
    // The display name of the record the operation concerns.
    const QString& target() const { return m_target; }
    // The verb of the operation, e.g. "Install".
    const QString& action() const { return m_action; }

    // "<time> — <target> (<action>)", the time in the user's locale; names the activity in source lists.
    QString title() const;
    QString title(const QLocale& locale) const;

    // The locale's time of day with seconds and without the time zone. QLocale has no medium style; its long
    // format is the medium one plus the zone, so dropping the zone gives what people expect to read.
    static QString mediumTimeFormat(const QLocale& locale);

private:
    const QDateTime m_date;
    const QString m_target;
    const QString m_action;
};

Q_DECLARE_METATYPE(ActivityPtr)
