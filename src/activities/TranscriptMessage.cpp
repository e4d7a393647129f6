#include "activities/TranscriptMessage.h"

TranscriptMessage::TranscriptMessage(QString line, ActivityPtr activity)
    : m_date(Clock::now())
    , m_activity(std::move(activity))
    , m_string(std::move(line))
{}

QDateTime TranscriptMessage::dateTime() const
{
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(m_date.time_since_epoch());
    return QDateTime::fromMSecsSinceEpoch(milliseconds.count());
}

QString TranscriptMessage::exportLine() const
{
    using namespace std::chrono;
    const auto sinceEpoch = m_date.time_since_epoch();
    const auto wholeSeconds = floor<seconds>(sinceEpoch);
    const auto tenthsOfMilliseconds = duration_cast<microseconds>(sinceEpoch - wholeSeconds).count() / 100;
    const QString time = QDateTime::fromSecsSinceEpoch(wholeSeconds.count()).toString(QStringLiteral("HH:mm:ss"));
    const QString target = m_activity ? m_activity->target() : QString();
    const QString action = m_activity ? m_activity->action() : QString();
    return QStringLiteral("%1.%2 [%3 - %4]: %5")
        .arg(time, QStringLiteral("%1").arg(tenthsOfMilliseconds, 4, 10, QLatin1Char('0')), target, action, m_string);
}
