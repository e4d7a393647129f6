// corvel-x without a window: synchronises, searches and lists the catalogue, and installs, removes and maintains
// packages and repositories, from a terminal or a script, on the same store, Homebrew and configuration as the
// application, with no display needed.
#pragma once

#include "foundation/Result.h"
#include "operations/MaintenanceJob.h"
#include "operations/PackageOperation.h"

#include <QString>
#include <QStringList>
#include <QTextStream>
#include <optional>

class ManagedObject;
class Predicate;
class QCommandLineParser;

class CommandLineTool {
public:
    enum ExitStatus {
        success = 0,
        failure = 1,
        usageError = 2,
    };

    // Writes results to out and diagnostics to err.
    CommandLineTool(QTextStream& out, QTextStream& err);

    // Whether the arguments (program name first) ask for a command, the help or the version rather than the window.
    // Decided before any application object exists, so that the window-less path never needs a display.
    static bool handles(const QStringList& arguments);

    // Runs the command line and returns the process's exit status. Needs a QCoreApplication.
    int run(const QStringList& arguments);

    // --config FILE and --root DIR, shared with the window: overlays the main bundle's Info.plist and moves the
    // shared installation's root. The error says which of the two is wrong and why.
    static Result<void> applyGlobalOptions(const std::optional<QString>& configFile,
                                           const std::optional<QString>& root);

    static QString helpText();

    // The kind asked for by --crash-for-test[=KIND] before any "--", if present: empty for the plain flag.
    static std::optional<QString> crashForTestKind(const QStringList& arguments);
    // Ends the process the way KIND says ("" or "fatal": a fatal error, "segv": an invalid memory access, "stack":
    // a stack overflow, "exception": an uncaught C++ exception), so the crash capture can be seen at work. Returns
    // only for an unknown kind.
    static void crashForTest(const QString& kind);

private:
    struct GlobalOptions {
        std::optional<QString> configFile;
        std::optional<QString> root;
    };

    int runSync(const QStringList& arguments, GlobalOptions global);
    int runSearch(const QStringList& arguments, GlobalOptions global);
    int runList(const QStringList& arguments, GlobalOptions global);
    int runPackageOperation(PackageOperation::Kind kind, const QString& command, const QStringList& arguments,
                            GlobalOptions global);
    int runRepository(bool add, const QStringList& arguments, GlobalOptions global);
    int runMaintenance(const QString& command, const QStringList& arguments, GlobalOptions global);

    // Parses one command's options, which include --help and the global options again. An exit status when the
    // command ends here (its help, a usage error).
    std::optional<int> parseCommand(QCommandLineParser& parser, const QString& command, const QStringList& arguments,
                                    GlobalOptions& global);
    // Applies the global options and loads what every command shares; an exit status when that fails.
    std::optional<int> prepare(const GlobalOptions& global);

    int printRecords(const QString& entity, const Predicate& predicate);
    static QString recordLine(const ManagedObject& record);

    int usage(const QString& message);
    int fail(const QString& message);

    QTextStream& m_out;
    QTextStream& m_err;
};
