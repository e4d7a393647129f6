// Runs brew as a child process: prepares it, captures its output (streamed, collected or silent) and judges its end.
// Every call blocks until the child exits, so it runs on worker threads only; several may run at once.
#pragma once

#include "foundation/Result.h"

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

class ActivityCenter;
class Bundle;
class Transcript;

namespace Homebrew {

class Installation;

class Commands {
public:
    Commands(const Installation& installation, const Bundle& bundle, ActivityCenter& activityCenter,
             Transcript& transcript);
    Commands(const Commands&) = delete;
    Commands& operator=(const Commands&) = delete;

    // Over the shared installation, the main bundle, the shared activity centre and the shared transcript.
    static Commands& shared();

    // The family of the errors a child that cannot be launched reports; the description is the system's own.
    static QString launchErrorDomain();

    // A child for <prefix>/bin/brew, not started and without arguments, with standard error merged into standard
    // output. With the bundle's "Askpass" program the environment is exactly SUDO_ASKPASS and HOME; without it
    // the child inherits this process's environment. HomebrewError::processNotAvailable when there is no prefix
    // or no file at the brew path. Callable from any thread; the child belongs to the calling thread.
    Result<std::unique_ptr<QProcess>> makeProcess() const;

    // Streamed: posts Activity(target, action), runs arguments + extraArguments and hands every chunk of output
    // to the transcript under that activity. On exit status 0 the result is followUp's (success without one);
    // any other end is RuntimeError "Process terminated with an error" and followUp does not run.
    Result<void> run(const QStringList& arguments, const QStringList& extraArguments, const QString& target,
                     const QString& action, const std::function<Result<void>()>& followUp = {}) const;

    // Collected: the whole output once the child has exited with status 0; no activity, nothing in the transcript.
    Result<QByteArray> collect(const QStringList& arguments) const;

    // Silent: only the exit status counts; the output goes to the null device.
    Result<void> runSilently(const QStringList& arguments) const;

    // "update", silent unless it fails: then Homebrew's own text becomes HomebrewError::unableToUpdate (or
    // HomebrewError::unknown when that text is not UTF-8).
    Result<void> update() const;

private:
    Result<std::unique_ptr<QProcess>> prepare(const QStringList& arguments) const;

    const Installation& m_installation;
    const Bundle& m_bundle;
    ActivityCenter& m_activityCenter;
    Transcript& m_transcript;
};

} // namespace Homebrew
