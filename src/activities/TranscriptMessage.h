// One line of a child's output in the transcript, filed under the activity that produced it.
#pragma once

#include "activities/Activity.h"

#include <QDateTime>
#include <QString>
#include <chrono>

class TranscriptMessage {
public:
    using Clock = std::chrono::system_clock;

    // The date is the moment of construction. line is one line without its line break.
    TranscriptMessage(QString line, ActivityPtr activity);

    // Finer than QDateTime's milliseconds: the export shows tenths of milliseconds, and lines that arrive in
    // one chunk must still sort in their order.
    Clock::time_point date() const { return m_date; }
    QDateTime dateTime() const;
    const ActivityPtr& activity() const { return m_activity; }
    const QString& string() const { return m_string; }

    // "HH:mm:ss.SSSS [target - action]: line", in local time, the fraction truncated.
    QString exportLine() const;

private:
    Clock::time_point m_date;
    ActivityPtr m_activity;
    QString m_string;
};
