#include "app/CommandLineTool.h"

#include "app/OperationCommands.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/Package.h"
#include "catalogue/SortDescriptor.h"
#include "catalogue/SyncSteps.h"
#include "catalogue/Synchronisation.h"
#include "foundation/Bundle.h"
#include "foundation/DefaultSettings.h"
#include "foundation/Defaults.h"
#include "homebrew/HomebrewInstallation.h"
#include "search/SearchPredicates.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace {

const QString programName = QStringLiteral("corvel-x");

const QStringList helpAndVersionFlags{QStringLiteral("-h"), QStringLiteral("--help"),    QStringLiteral("-?"),
                                      QStringLiteral("-v"), QStringLiteral("--version"), QStringLiteral("--help-all")};

// Options that take the next argument as their value: ours, and those QApplication takes for itself, so that a
// window started with "-style fusion" is not mistaken for a command named "fusion".
const QStringList optionsWithValue{QStringLiteral("root"),
                                   QStringLiteral("config"),
                                   QStringLiteral("platform"),
                                   QStringLiteral("platformpluginpath"),
                                   QStringLiteral("platformtheme"),
                                   QStringLiteral("plugin"),
                                   QStringLiteral("qwindowgeometry"),
                                   QStringLiteral("qwindowicon"),
                                   QStringLiteral("qwindowtitle"),
                                   QStringLiteral("style"),
                                   QStringLiteral("stylesheet"),
                                   QStringLiteral("display"),
                                   QStringLiteral("geometry"),
                                   QStringLiteral("title"),
                                   QStringLiteral("name"),
                                   QStringLiteral("session")};

QCommandLineOption helpOption()
{
    return QCommandLineOption({QStringLiteral("h"), QStringLiteral("help"), QStringLiteral("?")},
                              QStringLiteral("Shows the help."));
}

QCommandLineOption versionOption()
{
    return QCommandLineOption({QStringLiteral("v"), QStringLiteral("version")}, QStringLiteral("Shows the version."));
}

QCommandLineOption configOption()
{
    return QCommandLineOption(QStringLiteral("config"), QStringLiteral("Overlays the keys of another Info.plist."),
                              QStringLiteral("FILE"));
}

QCommandLineOption rootOption()
{
    return QCommandLineOption(QStringLiteral("root"), QStringLiteral("Looks for Homebrew under DIR instead of /."),
                              QStringLiteral("DIR"));
}

QCommandLineOption flag(const QString& name)
{
    return QCommandLineOption(name, QString());
}

// At most one of the options may be given; the one given, else none.
Result<std::optional<QString>> choice(const QCommandLineParser& parser, const QStringList& names)
{
    QStringList given;
    for (const QString& name : names) {
        if (parser.isSet(name)) {
            given.append(QStringLiteral("--") + name);
        }
    }
    if (given.size() > 1) {
        return Error(programName, CommandLineTool::usageError,
                     QStringLiteral("%1 cannot be used together").arg(given.join(QStringLiteral(" and "))));
    }
    return given.isEmpty() ? std::optional<QString>() : std::optional<QString>(given.first().mid(2));
}

QString singleLine(QString text)
{
    for (QChar& c : text) {
        if (c == QLatin1Char('\t') || c == QLatin1Char('\n') || c == QLatin1Char('\r')) {
            c = QLatin1Char(' ');
        }
    }
    return text;
}

} // namespace

CommandLineTool::CommandLineTool(QTextStream& out, QTextStream& err)
    : m_out(out)
    , m_err(err)
{}

bool CommandLineTool::handles(const QStringList& arguments)
{
    if (crashForTestKind(arguments)) {
        return true;
    }
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--")) {
            return i + 1 < arguments.size();
        }
        if (!argument.startsWith(QLatin1Char('-')) || argument == QLatin1String("-")) {
            return true;
        }
        if (helpAndVersionFlags.contains(argument)) {
            return true;
        }
        if (argument.contains(QLatin1Char('='))) {
            continue;
        }
        const QString name = argument.mid(argument.startsWith(QLatin1String("--")) ? 2 : 1);
        if (optionsWithValue.contains(name)) {
            ++i;
        }
    }
    return false;
}

QString CommandLineTool::helpText()
{
    return QStringLiteral(
        "Usage: corvel-x [--root DIR] [--config FILE] [COMMAND [OPTIONS]]\n"
        "\n"
        "Corvel X, a desktop front-end for the Homebrew package manager. Without a command it opens its window; with\n"
        "one it works in the terminal, without a window, on the same catalogue, Homebrew and configuration.\n"
        "\n"
        "Commands:\n"
        "  sync [--fast]\n"
        "      Brings the catalogue in line with Homebrew, printing each step as it starts. --fast keeps the apps\n"
        "      and scripts libraries and only refreshes what is installed, outdated and a leaf.\n"
        "  search [--scripts] [--installed | --available] [--name | --desc | --token] TEXT\n"
        "      The apps (with --scripts, the scripts) whose name, token, description or kind contains TEXT, in any\n"
        "      letter case; --name, --desc or --token looks in that field only. Installed and available records\n"
        "      alike unless --installed or --available narrows them.\n"
        "  list (--apps | --scripts) [--outdated]\n"
        "      The installed apps or scripts; with --outdated only those with an upgrade.\n"
        "  install (--cask | --formula) TOKEN...\n"
        "  uninstall (--cask | --formula) [--yes] TOKEN...\n"
        "  upgrade (--cask | --formula) TOKEN...\n"
        "  upgrade --all-apps [--yes]\n"
        "  reinstall (--cask | --formula) [--yes] TOKEN...\n"
        "      Runs brew on each app (--cask) or script (--formula) named by its exact token, all at once, printing\n"
        "      brew's output as it comes. Every TOKEN must be in the catalogue, or nothing runs. --all-apps upgrades\n"
        "      every installed app that has an upgrade.\n"
        "  tap NAME\n"
        "  untap [--yes] NAME\n"
        "      Adds or removes the repository NAME (owner/name).\n"
        "  update\n"
        "  cleanup [--prune-all]\n"
        "  autoremove\n"
        "      Homebrew's maintenance jobs; --prune-all also removes every cached download.\n"
        "\n"
        "Options:\n"
        "  --root DIR     Looks for Homebrew under DIR (DIR/opt/homebrew, DIR/usr/local/homebrew) instead of /.\n"
        "  --config FILE  Overlays the keys of another Info.plist on the bundle's.\n"
        "  -h, --help     Shows this help.\n"
        "  -v, --version  Shows the version.\n"
        "  --crash-for-test[=fatal|segv|stack|exception]\n"
        "                 Crashes on purpose, to check that the next start finds the crash report.\n"
        "\n"
        "search and list print one line per record, sorted by token: the token, the name and the flags\n"
        "(\"installed\", \"outdated\", \"leaf\", separated by spaces), separated by tabs.\n"
        "Uninstalling, reinstalling, upgrading all apps and removing a repository ask first, as the window does: on\n"
        "the command line --yes is the answer, and without it nothing runs (a question the window was told not to ask\n"
        "again is not asked here either). A failure is reported on standard error.\n"
        "Exit status: 0 on success; 1 on a failure, an unknown token, a package that does not take the operation\n"
        "or a question left without --yes; 2 on a usage error.\n");
}

std::optional<QString> CommandLineTool::crashForTestKind(const QStringList& arguments)
{
    const QString flagName = QStringLiteral("--crash-for-test");
    for (qsizetype i = 1; i < arguments.size() && arguments.at(i) != QLatin1String("--"); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == flagName) {
            return QString();
        }
        if (argument.startsWith(flagName + QLatin1Char('='))) {
            return argument.mid(flagName.size() + 1);
        }
    }
    return std::nullopt;
}

namespace {

// Each deeper frame keeps a buffer alive so the recursion cannot be turned into a loop.
int overflowStack(int depth)
{
    if (depth == std::numeric_limits<int>::max()) {
        return 0;
    }
    volatile char buffer[1024];
    buffer[0] = static_cast<char>(depth);
    return overflowStack(depth + 1) + buffer[0];
}

[[noreturn]] void throwDeliberately()
{
    throw std::runtime_error("This is a deliberate crash.");
}

// noexcept makes the escape reach std::terminate whatever the callers catch.
void throwUncaught() noexcept
{
    throwDeliberately();
}

} // namespace

void CommandLineTool::crashForTest(const QString& kind)
{
    if (kind.isEmpty() || kind == QLatin1String("fatal")) {
        qFatal("This is a deliberate crash.");
    }
    if (kind == QLatin1String("segv")) {
        // Read through volatile so the compiler cannot see the null and replace the store with a trap.
        volatile std::uintptr_t address = 0;
        *reinterpret_cast<volatile int*>(address) = 1;
    }
    if (kind == QLatin1String("stack")) {
        overflowStack(0);
    }
    if (kind == QLatin1String("exception")) {
        throwUncaught();
    }
}

int CommandLineTool::run(const QStringList& arguments)
{
    if (const std::optional<QString> kind = crashForTestKind(arguments)) {
        crashForTest(*kind);
        return usage(QStringLiteral("unknown crash kind \"%1\" (fatal, segv, stack or exception)").arg(*kind));
    }
    const QCommandLineOption help = helpOption();
    const QCommandLineOption version = versionOption();
    const QCommandLineOption config = configOption();
    const QCommandLineOption root = rootOption();
    QCommandLineParser parser;
    // Everything from the command on is the command's, options included.
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    parser.addOptions({help, version, config, root, flag(QStringLiteral("help-all"))});
    if (!parser.parse(arguments)) {
        return usage(parser.errorText());
    }
    if (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))) {
        m_out << helpText() << Qt::flush;
        return success;
    }
    if (parser.isSet(version)) {
        m_out << QCoreApplication::applicationName() << ' ' << QCoreApplication::applicationVersion() << Qt::endl;
        return success;
    }

    GlobalOptions global;
    if (parser.isSet(config)) {
        global.configFile = parser.value(config);
    }
    if (parser.isSet(root)) {
        global.root = parser.value(root);
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        return usage(QStringLiteral("missing command"));
    }
    const QString& command = positional.first();
    const QStringList rest = positional.mid(1);
    if (command == QLatin1String("sync")) {
        return runSync(rest, global);
    }
    if (command == QLatin1String("search")) {
        return runSearch(rest, global);
    }
    if (command == QLatin1String("list")) {
        return runList(rest, global);
    }
    using Kind = PackageOperation::Kind;
    const std::pair<const char*, Kind> packageCommands[] = {{"install", Kind::install},
                                                            {"uninstall", Kind::uninstall},
                                                            {"upgrade", Kind::upgrade},
                                                            {"reinstall", Kind::reinstall}};
    for (const auto& [name, kind] : packageCommands) {
        if (command == QLatin1String(name)) {
            return runPackageOperation(kind, command, rest, global);
        }
    }
    if (command == QLatin1String("tap") || command == QLatin1String("untap")) {
        return runRepository(command == QLatin1String("tap"), rest, global);
    }
    if (command == QLatin1String("update") || command == QLatin1String("cleanup") ||
        command == QLatin1String("autoremove")) {
        return runMaintenance(command, rest, global);
    }
    return usage(QStringLiteral("unknown command '%1'").arg(command));
}

std::optional<int> CommandLineTool::parseCommand(QCommandLineParser& parser, const QString& command,
                                                 const QStringList& arguments, GlobalOptions& global)
{
    const QCommandLineOption help = helpOption();
    const QCommandLineOption config = configOption();
    const QCommandLineOption root = rootOption();
    parser.addOptions({help, config, root});
    if (!parser.parse(QStringList{programName} + arguments)) {
        return usage(command + QStringLiteral(": ") + parser.errorText());
    }
    if (parser.isSet(help)) {
        m_out << helpText() << Qt::flush;
        return success;
    }
    if (parser.isSet(config)) {
        global.configFile = parser.value(config);
    }
    if (parser.isSet(root)) {
        global.root = parser.value(root);
    }
    return std::nullopt;
}

Result<void> CommandLineTool::applyGlobalOptions(const std::optional<QString>& configFile,
                                                 const std::optional<QString>& root)
{
    if (configFile) {
        const Result<QVariantMap> overlay = Bundle::readInfoOverlay(*configFile);
        if (!overlay) {
            return overlay.error();
        }
        Bundle::main().overlayInfo(overlay.value());
    }
    if (root) {
        // A mistyped root would silently look like a machine without Homebrew.
        if (!QFileInfo(*root).isDir()) {
            return Error(programName, usageError, QStringLiteral("--root: %1 is not a directory").arg(*root));
        }
        Homebrew::Installation::shared().setRoot(*root);
    }
    return {};
}

std::optional<int> CommandLineTool::prepare(const GlobalOptions& global)
{
    if (const Result<void> applied = applyGlobalOptions(global.configFile, global.root); !applied) {
        return usage(applied.error().description());
    }
    Bundle& bundle = Bundle::main();
    // A build without a usable configuration stops here, as the window does.
    bundle.serviceURL();
    DefaultSettings::registerFromBundle(bundle, Defaults::standard());
    // The window ends the program when its store cannot be opened; here that is a failure to report.
    if (const Result<void> loaded = CoreDataManager::shared().loadPersistentStores(); !loaded) {
        return fail(QStringLiteral("Unable to open the catalogue: ") + loaded.error().description());
    }
    return std::nullopt;
}

int CommandLineTool::runSync(const QStringList& arguments, GlobalOptions global)
{
    QCommandLineParser parser;
    const QCommandLineOption fast = flag(QStringLiteral("fast"));
    parser.addOption(fast);
    if (const std::optional<int> done = parseCommand(parser, QStringLiteral("sync"), arguments, global)) {
        return *done;
    }
    if (!parser.positionalArguments().isEmpty()) {
        return usage(QStringLiteral("sync: unexpected argument '%1'").arg(parser.positionalArguments().first()));
    }
    if (const std::optional<int> failed = prepare(global)) {
        return *failed;
    }

    Synchronisation& synchronisation = Synchronisation::shared();
    QEventLoop loop;
    std::optional<SyncSteps::Step> shown;
    QObject::connect(&synchronisation, &Synchronisation::stepChanged, &loop,
                     [this, &shown](SyncSteps::Step step, double) {
                         // Progress may be announced more than once per step; the failure goes to standard error.
                         if (step == SyncSteps::failed || shown == step) {
                             return;
                         }
                         shown = step;
                         m_out << SyncSteps::label(step) << Qt::endl;
                     });
    QObject::connect(&synchronisation, &Synchronisation::finished, &loop,
                     [this, &loop](bool succeeded, const QString& errorDescription) {
                         if (!succeeded) {
                             m_err << programName << ": " << SyncSteps::label(SyncSteps::failed) << ": "
                                   << errorDescription << Qt::endl;
                         }
                         loop.exit(succeeded ? success : failure);
                     });
    if (!synchronisation.start(parser.isSet(fast) ? Synchronisation::Form::fast : Synchronisation::Form::full)) {
        return fail(QStringLiteral("a synchronisation is already running"));
    }
    return loop.exec();
}

int CommandLineTool::runSearch(const QStringList& arguments, GlobalOptions global)
{
    QCommandLineParser parser;
    for (const char* name : {"scripts", "installed", "available", "name", "desc", "token"}) {
        parser.addOption(flag(QString::fromLatin1(name)));
    }
    parser.addPositionalArgument(QStringLiteral("TEXT"), QStringLiteral("The text to look for."));
    if (const std::optional<int> done = parseCommand(parser, QStringLiteral("search"), arguments, global)) {
        return *done;
    }

    const Result<std::optional<QString>> state =
        choice(parser, {QStringLiteral("installed"), QStringLiteral("available")});
    if (!state) {
        return usage(QStringLiteral("search: ") + state.error().description());
    }
    const Result<std::optional<QString>> field =
        choice(parser, {QStringLiteral("name"), QStringLiteral("desc"), QStringLiteral("token")});
    if (!field) {
        return usage(QStringLiteral("search: ") + field.error().description());
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1) {
        return usage(
            QStringLiteral("search: unexpected argument '%1' (quote a TEXT with spaces)").arg(positional.at(1)));
    }
    // As in the search field: surrounding white space is not part of the search, and nothing is no search.
    const QString text = positional.value(0).trimmed();
    if (text.isEmpty()) {
        return usage(QStringLiteral("search: missing TEXT"));
    }

    QList<Predicate> conditions;
    if (!field.value()) {
        conditions.append(SearchPredicates::search(text));
    } else if (*field.value() == QLatin1String("name")) {
        conditions.append(SearchPredicates::name(text));
    } else if (*field.value() == QLatin1String("desc")) {
        conditions.append(SearchPredicates::description(text));
    } else {
        conditions.append(SearchPredicates::token(text));
    }
    if (state.value()) {
        conditions.append(*state.value() == QLatin1String("installed") ? SearchPredicates::installed()
                                                                       : SearchPredicates::available());
    }

    if (const std::optional<int> failed = prepare(global)) {
        return *failed;
    }
    return printRecords(parser.isSet(QStringLiteral("scripts")) ? QStringLiteral("Formula") : QStringLiteral("Cask"),
                        Predicate::andPredicate(conditions));
}

int CommandLineTool::runList(const QStringList& arguments, GlobalOptions global)
{
    QCommandLineParser parser;
    for (const char* name : {"apps", "scripts", "outdated"}) {
        parser.addOption(flag(QString::fromLatin1(name)));
    }
    if (const std::optional<int> done = parseCommand(parser, QStringLiteral("list"), arguments, global)) {
        return *done;
    }
    const Result<std::optional<QString>> persona = choice(parser, {QStringLiteral("apps"), QStringLiteral("scripts")});
    if (!persona) {
        return usage(QStringLiteral("list: ") + persona.error().description());
    }
    if (!persona.value()) {
        return usage(QStringLiteral("list: choose --apps or --scripts"));
    }
    if (!parser.positionalArguments().isEmpty()) {
        return usage(QStringLiteral("list: unexpected argument '%1'").arg(parser.positionalArguments().first()));
    }

    Predicate predicate = SearchPredicates::defaultFilter();
    if (parser.isSet(QStringLiteral("outdated"))) {
        predicate = Predicate::andPredicate({predicate, SearchPredicates::outdated()});
    }
    if (const std::optional<int> failed = prepare(global)) {
        return *failed;
    }
    return printRecords(*persona.value() == QLatin1String("apps") ? QStringLiteral("Cask") : QStringLiteral("Formula"),
                        predicate);
}

int CommandLineTool::runPackageOperation(PackageOperation::Kind kind, const QString& command,
                                         const QStringList& arguments, GlobalOptions global)
{
    const bool upgrade = kind == PackageOperation::Kind::upgrade;
    QCommandLineParser parser;
    for (const char* name : {"cask", "formula", "yes"}) {
        parser.addOption(flag(QString::fromLatin1(name)));
    }
    if (upgrade) {
        parser.addOption(flag(QStringLiteral("all-apps")));
    }
    parser.addPositionalArgument(QStringLiteral("TOKEN"), QStringLiteral("The package's Homebrew token."));
    if (const std::optional<int> done = parseCommand(parser, command, arguments, global)) {
        return *done;
    }
    const Result<std::optional<QString>> persona = choice(parser, {QStringLiteral("cask"), QStringLiteral("formula")});
    if (!persona) {
        return usage(command + QStringLiteral(": ") + persona.error().description());
    }
    const QStringList tokens = parser.positionalArguments();
    const bool allApps = upgrade && parser.isSet(QStringLiteral("all-apps"));
    if (allApps) {
        if (persona.value() == QLatin1String("formula")) {
            return usage(QStringLiteral("upgrade: --all-apps upgrades apps, not scripts"));
        }
        if (!tokens.isEmpty()) {
            return usage(QStringLiteral("upgrade: --all-apps takes no TOKEN ('%1' given)").arg(tokens.first()));
        }
    } else {
        if (!persona.value()) {
            return usage(command + QStringLiteral(": choose --cask or --formula"));
        }
        if (tokens.isEmpty()) {
            return usage(command + QStringLiteral(": missing TOKEN"));
        }
    }
    if (const std::optional<int> failed = prepare(global)) {
        return *failed;
    }
    OperationCommands commands(m_out, m_err, parser.isSet(QStringLiteral("yes")));
    if (allApps) {
        return commands.upgradeAllApps();
    }
    return commands.runPackages(kind,
                                *persona.value() == QLatin1String("cask") ? PackageOperation::Persona::apps
                                                                          : PackageOperation::Persona::scripts,
                                tokens);
}

int CommandLineTool::runRepository(bool add, const QStringList& arguments, GlobalOptions global)
{
    const QString command = add ? QStringLiteral("tap") : QStringLiteral("untap");
    QCommandLineParser parser;
    if (!add) {
        parser.addOption(flag(QStringLiteral("yes")));
    }
    parser.addPositionalArgument(QStringLiteral("NAME"), QStringLiteral("The repository, as owner/name."));
    if (const std::optional<int> done = parseCommand(parser, command, arguments, global)) {
        return *done;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        return usage(command + QStringLiteral(": missing NAME"));
    }
    if (positional.size() > 1) {
        return usage(command + QStringLiteral(": unexpected argument '%1'").arg(positional.at(1)));
    }
    if (const std::optional<int> failed = prepare(global)) {
        return *failed;
    }
    OperationCommands commands(m_out, m_err, !add && parser.isSet(QStringLiteral("yes")));
    return add ? commands.tap(positional.first()) : commands.untap(positional.first());
}

int CommandLineTool::runMaintenance(const QString& command, const QStringList& arguments, GlobalOptions global)
{
    const bool cleanup = command == QLatin1String("cleanup");
    QCommandLineParser parser;
    if (cleanup) {
        parser.addOption(flag(QStringLiteral("prune-all")));
    }
    if (const std::optional<int> done = parseCommand(parser, command, arguments, global)) {
        return *done;
    }
    if (!parser.positionalArguments().isEmpty()) {
        return usage(command + QStringLiteral(": unexpected argument '%1'").arg(parser.positionalArguments().first()));
    }
    MaintenanceJob::Kind kind = MaintenanceJob::Update;
    if (cleanup) {
        kind = parser.isSet(QStringLiteral("prune-all")) ? MaintenanceJob::PruneAll : MaintenanceJob::Cleanup;
    } else if (command == QLatin1String("autoremove")) {
        kind = MaintenanceJob::Autoremove;
    }
    if (const std::optional<int> failed = prepare(global)) {
        return *failed;
    }
    return OperationCommands(m_out, m_err, false).maintain(kind);
}

int CommandLineTool::printRecords(const QString& entity, const Predicate& predicate)
{
    const Result<QList<ManagedObject*>> records = CoreDataManager::shared().viewContext()->fetch(
        entity, predicate, {SortDescriptor{QStringLiteral("token"), true}});
    if (!records) {
        return fail(records.error().description());
    }
    for (const ManagedObject* record : records.value()) {
        m_out << recordLine(*record) << '\n';
    }
    m_out.flush();
    return success;
}

QString CommandLineTool::recordLine(const ManagedObject& record)
{
    QStringList flags;
    if (const auto* package = qobject_cast<const Package*>(&record)) {
        if (package->installed()) {
            flags.append(QStringLiteral("installed"));
        }
        if (package->outdated()) {
            flags.append(QStringLiteral("outdated"));
        }
    }
    if (const auto* formula = qobject_cast<const Formula*>(&record); formula && formula->isLeaf()) {
        flags.append(QStringLiteral("leaf"));
    }
    // Always three fields, so that an empty flags field still splits the same way.
    return record.token() + QLatin1Char('\t') + singleLine(record.name()) + QLatin1Char('\t') +
           flags.join(QLatin1Char(' '));
}

int CommandLineTool::usage(const QString& message)
{
    m_err << programName << ": " << message << '\n'
          << "Try '" << programName << " --help' for more information." << Qt::endl;
    return usageError;
}

int CommandLineTool::fail(const QString& message)
{
    m_err << programName << ": " << message << Qt::endl;
    return failure;
}
