#include "activities/Activity.h"

namespace {

// Separators that only make sense next to the time zone: "HH:mm:ss t", "H:mm:ss (t)", "HH:mm:ss, t", "t H:mm:ss".
bool isZoneDecoration(QChar c)
{
    return c == u' ' || c == u',' || c == u'(' || c == u')' || c == u'[' || c == u']' || c == QChar(0x00A0) ||
           c == QChar(0x202F);
}

} // namespace

Activity::Activity(QString target, QString action)
    : m_date(QDateTime::currentDateTime())
    , m_target(std::move(target))
    , m_action(std::move(action))
{}

ActivityPtr Activity::make(QString target, QString action)
{
    return std::make_shared<const Activity>(std::move(target), std::move(action));
}

QString Activity::title() const
{
    return title(QLocale());
}

QString Activity::title(const QLocale& locale) const
{
    return QStringLiteral("%1 \u2014 %2 (%3)")
        .arg(locale.toString(m_date.time(), mediumTimeFormat(locale)), m_target, m_action);
}

QString Activity::mediumTimeFormat(const QLocale& locale)
{
    QString format = locale.timeFormat(QLocale::LongFormat);

    // Quoted text is literal; a 't' inside it is not the time-zone field.
    QList<bool> quoted(format.size(), false);
    bool inQuote = false;
    for (qsizetype i = 0; i < format.size(); ++i) {
        if (format.at(i) == u'\'') {
            inQuote = !inQuote;
            quoted[i] = true;
        } else {
            quoted[i] = inQuote;
        }
    }

    for (qsizetype i = format.size() - 1; i >= 0; --i) {
        if (quoted.at(i) || format.at(i) != u't') {
            continue;
        }
        qsizetype end = i + 1;
        qsizetype begin = i;
        while (begin > 0 && !quoted.at(begin - 1) && format.at(begin - 1) == u't') {
            --begin;
        }
        while (begin > 0 && !quoted.at(begin - 1) && isZoneDecoration(format.at(begin - 1))) {
            --begin;
        }
        while (end < format.size() && !quoted.at(end) && isZoneDecoration(format.at(end))) {
            ++end;
        }
        const bool between = begin > 0 && end < format.size();
        format.replace(begin, end - begin, between ? QStringLiteral(" ") : QString());
        quoted.remove(begin, end - begin);
        if (between) {
            quoted.insert(begin, false);
        }
        i = begin;
    }
    return format.trimmed();
}
