#include "diagnostics/CrashReport.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTimeZone>
#include <csignal>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace {

const QByteArray magicLine = QByteArrayLiteral("CorvelCrashReport 1");
const QString backtraceMarker = QStringLiteral("Backtrace:");
const QString endMarker = QStringLiteral("End-Of-Report");

QString demangled(const QString& symbol)
{
    int status = -1;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(symbol.toUtf8().constData(), nullptr, nullptr, &status), &std::free);
    return status == 0 && name ? QString::fromUtf8(name.get()) : symbol;
}

// backtrace_symbols_fd writes "module(symbol+0xoffset) [0xaddress]"; the symbol is absent for functions that are
// not exported, the offset is then relative to the module.
QString frameLine(int index, const QString& raw)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^(.*)\(([^+()]*)(\+0x[0-9a-fA-F]+)?\)\s*\[(0x[0-9a-fA-F]+)\]$)"));
    const QRegularExpressionMatch match = pattern.match(raw);
    if (!match.hasMatch()) {
        return QStringLiteral("%1  %2").arg(index, -3).arg(raw);
    }
    const QString module = QFileInfo(match.captured(1)).fileName();
    const QString symbol = match.captured(2);
    const QString offset = match.captured(3);
    const QString location = symbol.isEmpty() ? module + offset : demangled(symbol) + offset;
    return QStringLiteral("%1  %2  %3  %4").arg(index, -3).arg(module, -24).arg(match.captured(4), 18).arg(location);
}

QString signalCodeName(int signal, int code)
{
    if (code == SI_USER) {
        return QStringLiteral("SI_USER");
    }
    if (code == SI_TKILL) {
        return QStringLiteral("SI_TKILL");
    }
    if (code == SI_QUEUE) {
        return QStringLiteral("SI_QUEUE");
    }
    switch (signal) {
    case SIGSEGV:
        return code == SEGV_MAPERR   ? QStringLiteral("SEGV_MAPERR")
               : code == SEGV_ACCERR ? QStringLiteral("SEGV_ACCERR")
                                     : QString();
    case SIGBUS:
        return code == BUS_ADRALN   ? QStringLiteral("BUS_ADRALN")
               : code == BUS_ADRERR ? QStringLiteral("BUS_ADRERR")
               : code == BUS_OBJERR ? QStringLiteral("BUS_OBJERR")
                                    : QString();
    case SIGFPE:
        return code == FPE_INTDIV   ? QStringLiteral("FPE_INTDIV")
               : code == FPE_FLTDIV ? QStringLiteral("FPE_FLTDIV")
               : code == FPE_INTOVF ? QStringLiteral("FPE_INTOVF")
                                    : QString();
    case SIGILL:
        return code == ILL_ILLOPC   ? QStringLiteral("ILL_ILLOPC")
               : code == ILL_ILLOPN ? QStringLiteral("ILL_ILLOPN")
                                    : QString();
    default:
        return QString();
    }
}

QString timeText(const QString& secondsSinceEpoch)
{
    bool ok = false;
    const qint64 seconds = secondsSinceEpoch.toLongLong(&ok);
    if (!ok) {
        return secondsSinceEpoch;
    }
    return QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::utc())
        .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss 'UTC'"));
}

} // namespace

Result<CrashReport> CrashReport::fromData(const QByteArray& data)
{
    if (!data.startsWith(magicLine + '\n')) {
        return Error(errorDomain, notACrashReport, QStringLiteral("The pending crash report is not in a known format"));
    }
    CrashReport report;
    const QStringList lines = QString::fromUtf8(data).split(QLatin1Char('\n'));
    bool inBacktrace = false;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QString& line = lines.at(i);
        if (line == endMarker) {
            report.m_complete = true;
            break;
        }
        if (inBacktrace) {
            if (!line.isEmpty()) {
                report.m_frames.append(line);
            }
        } else if (line == backtraceMarker) {
            inBacktrace = true;
        } else if (const qsizetype colon = line.indexOf(QStringLiteral(": ")); colon > 0) {
            report.m_fields.insert(line.left(colon), line.mid(colon + 2));
        }
    }
    return report;
}

QStringList CrashReport::backtrace() const
{
    QStringList frames;
    for (qsizetype i = 0; i < m_frames.size(); ++i) {
        frames.append(frameLine(static_cast<int>(i), m_frames.at(i)));
    }
    return frames;
}

QString CrashReport::text() const
{
    QString text;
    const auto line = [&text](const QString& label, const QString& value) {
        text += QStringLiteral("%1 %2\n").arg(label + QLatin1Char(':'), -18).arg(value);
    };
    const QString build = field(QStringLiteral("Build"));
    line(QStringLiteral("Process"),
         QStringLiteral("%1 [%2]").arg(field(QStringLiteral("Process")), field(QStringLiteral("PID"))));
    line(QStringLiteral("Version"), build.isEmpty()
                                        ? field(QStringLiteral("Version"))
                                        : QStringLiteral("%1 (%2)").arg(field(QStringLiteral("Version")), build));
    line(QStringLiteral("OS Version"), field(QStringLiteral("OS")));
    line(QStringLiteral("Code Type"), field(QStringLiteral("Architecture")));
    line(QStringLiteral("Date/Time"), timeText(field(QStringLiteral("Crash-Time"))));
    line(QStringLiteral("Launch Time"), timeText(field(QStringLiteral("Launch-Time"))));
    text += QLatin1Char('\n');

    const QString code = field(QStringLiteral("Signal-Code"));
    const QString codeName = signalCodeName(field(QStringLiteral("Signal")).toInt(), code.toInt());
    line(QStringLiteral("Exception Type"), signalName().isEmpty() ? QStringLiteral("unknown") : signalName());
    line(QStringLiteral("Exception Codes"), codeName.isEmpty() ? code : QStringLiteral("%1 (%2)").arg(codeName, code));
    if (const QString address = field(QStringLiteral("Address")); !address.isEmpty()) {
        line(QStringLiteral("Exception Address"), address);
    }
    const QString thread = field(QStringLiteral("Thread"));
    const QString threadName = field(QStringLiteral("Thread-Name"));
    const bool mainThread = !thread.isEmpty() && thread == field(QStringLiteral("Main-Thread"));
    line(QStringLiteral("Crashed Thread"),
         QStringLiteral("%1%2%3").arg(thread, threadName.isEmpty() ? QString() : QStringLiteral(" ") + threadName,
                                      mainThread ? QStringLiteral(" (main thread)") : QString()));
    text += QLatin1Char('\n');

    if (kind() == QLatin1String("exception")) {
        text += QStringLiteral("Application Specific Information:\nUncaught exception of type %1: %2\n\n")
                    .arg(exceptionType(), exceptionMessage());
    } else if (kind() == QLatin1String("terminate")) {
        text +=
            QStringLiteral("Application Specific Information:\nstd::terminate called without an active exception\n\n");
    }

    text += QStringLiteral("Thread %1 Crashed:\n").arg(thread);
    const QStringList frames = backtrace();
    for (const QString& frame : frames) {
        text += frame + QLatin1Char('\n');
    }
    if (frames.isEmpty()) {
        text += QStringLiteral("(no backtrace)\n");
    }
    if (!m_complete) {
        text += QStringLiteral("\nThis report is incomplete: the process ended before the report was fully written.\n");
    }
    return text;
}
