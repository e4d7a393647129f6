#include "app/StartupProbe.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTimer>
#include <sys/resource.h>

StartupProbe::StartupProbe(QElapsedTimer clock, QTextStream& out, QObject* parent)
    : QObject(parent)
    , m_clock(clock)
    , m_out(out)
{}

void StartupProbe::watch(QWidget* widget)
{
    m_widget = widget;
    widget->installEventFilter(this);
}

qint64 StartupProbe::peakMemoryKiB()
{
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0) {
        return 0;
    }
#ifdef Q_OS_MACOS
    return usage.ru_maxrss / 1024; // bytes there
#else
    return usage.ru_maxrss;
#endif
}

QString StartupProbe::reportLine(qint64 milliseconds, qint64 peakKiB)
{
    return QStringLiteral("startup: first paint after %1 ms, peak memory %2 KiB").arg(milliseconds).arg(peakKiB);
}

bool StartupProbe::eventFilter(QObject* watched, QEvent* event)
{
    if (!m_reported && watched == m_widget && event->type() == QEvent::Paint) {
        m_reported = true;
        // After the paint has been delivered, not before it.
        QTimer::singleShot(0, this, &StartupProbe::report);
    }
    return QObject::eventFilter(watched, event);
}

void StartupProbe::report()
{
    m_out << reportLine(m_clock.elapsed(), peakMemoryKiB()) << Qt::endl;
    QCoreApplication::exit(0);
}
