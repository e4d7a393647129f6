// Runs the built corvel-x as a child without any display, with its home, settings, data and caches under one
// folder; the test's event loop keeps running meanwhile, so servers living in the test process can answer it.
#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace CorvelProcess {

struct Outcome {
    int exitCode = -1;
    QProcess::ExitStatus exitStatus = QProcess::CrashExit;
    QString out;
    QString err;
};

// The caller's environment without a display, with HOME and the XDG folders below home (data below dataHome when
// given).
QProcessEnvironment environment(const QString& home, const QString& dataHome = {});

// corvel-x from the test's own folder. False, with the reason in outcome.err, when it did not start or did not end
// within timeout milliseconds (a few brew children on a loaded machine take a while).
bool run(const QStringList& arguments, const QProcessEnvironment& environment, Outcome& outcome, int timeout = 90000);

} // namespace CorvelProcess
