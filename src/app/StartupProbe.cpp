#include "app/StartupProbe.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
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
#ifdef Q_OS_LINUX
    // getrusage's peak survives exec, so a child would report its parent's size at fork time when that was larger;
    // the address space's own high-water mark starts afresh with the program.
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly | QIODevice::Text)) {
        const QList<QByteArray> lines = status.readAll().split('\n');
        for (const QByteArray& line : lines) {
            if (line.startsWith("VmHWM:")) {
                bool ok = false;
                const qint64 kiB = line.mid(6).trimmed().split(' ').value(0).toLongLong(&ok);
                if (ok) {
                    return kiB;
                }
            }
        }
    }
#endif
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
