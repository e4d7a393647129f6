// Records fatal signals and uncaught C++ exceptions of the running process as a pending report file in the
// application's data folder, and hands that report to the next run, which reads and then purges it.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QString>

class CrashCaptureEngine {
public:
    // What the dying process cannot find out safely any more, gathered while it is healthy.
    struct Identity {
        QString processName;
        QString version;
        QString build;
    };

    // Reports live in directory, which is created only when there is a report to write.
    explicit CrashCaptureEngine(QString directory = defaultDirectory());

    // "Crash Reports" in the application data folder (follows XDG_DATA_HOME).
    static QString defaultDirectory();

    QString directory() const { return m_directory; }
    QString pendingReportPath() const;

    // Installs the process-wide handlers for SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT and std::terminate, writing
    // to this engine's folder. Enabling again (any engine) replaces the folder and identity. Fails when the folder
    // is not an absolute path or too long for the handler's fixed buffers.
    Result<void> enable(const Identity& identity);
    static bool isEnabled();

    bool hasPendingCrashReport() const;
    Result<QByteArray> loadPendingCrashReportData() const;
    Result<void> purgePendingCrashReport() const;

private:
    QString m_directory;
};
