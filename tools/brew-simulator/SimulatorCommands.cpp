#include "SimulatorCommands.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSysInfo>
#include <QThread>

namespace {

const QString& companionTap = SimulatorRecords::companionTap;
const QString& companionCommand = SimulatorRecords::companionCommand;
const QStringList officialTaps{QStringLiteral("homebrew/core"), QStringLiteral("homebrew/cask"),
                               QStringLiteral("homebrew/cask-fonts"), QStringLiteral("homebrew/services"),
                               QStringLiteral("homebrew/bundle")};

// The options each command accepts; anything else is refused as brew refuses it.
const QMap<QString, QStringList> acceptedOptions{
    {QStringLiteral("--version"), {}},
    {QStringLiteral("config"), {}},
    {QStringLiteral("install"),
     {"--formula", "--formulae", "--cask", "--casks", "--appdir", "--fontdir", "--force", "--quiet", "--verbose"}},
    {QStringLiteral("uninstall"),
     {"--formula", "--formulae", "--cask", "--casks", "--force", "--zap", "--ignore-dependencies"}},
    {QStringLiteral("upgrade"), {"--formula", "--formulae", "--cask", "--casks", "--greedy", "--quiet"}},
    {QStringLiteral("reinstall"), {"--formula", "--formulae", "--cask", "--casks", "--appdir", "--fontdir", "--force"}},
    {QStringLiteral("info"), {"--installed", "--formula", "--formulae", "--cask", "--casks", "--json"}},
    {QStringLiteral("tap-info"), {"--installed", "--json"}},
    {QStringLiteral("outdated"), {"--formula", "--formulae", "--cask", "--casks", "--greedy", "--quiet", "--json"}},
    {QStringLiteral("leaves"), {"--installed-on-request"}},
    {QStringLiteral("tap"), {"--force"}},
    {QStringLiteral("untap"), {"--force"}},
    {QStringLiteral("update"), {"--force", "--quiet"}},
    {QStringLiteral("cleanup"), {"--prune", "--dry-run"}},
    {QStringLiteral("autoremove"), {"--dry-run"}},
    {companionCommand, {"--formulae", "--casks", "--json"}},
};

// Commands whose output a person watches: they are the ones that get the invalid UTF-8 chunk.
const QStringList streamedCommands{QStringLiteral("install"),   QStringLiteral("uninstall"), QStringLiteral("upgrade"),
                                   QStringLiteral("reinstall"), QStringLiteral("tap"),       QStringLiteral("untap")};

const QStringList valueOptions{QStringLiteral("--appdir"), QStringLiteral("--fontdir")};

// A token as given, reduced to its bare form ("localtest/tools/hello-app" -> "hello-app").
QString bareToken(const QString& name)
{
    return name.section(QLatin1Char('/'), -1);
}

qint64 now()
{
    return QDateTime::currentSecsSinceEpoch();
}

} // namespace

SimulatorCommands::SimulatorCommands(QString prefix, QString dataFolder, QStringList arguments)
    : m_prefix(std::move(prefix))
    , m_dataFolder(std::move(dataFolder))
    , m_arguments(std::move(arguments))
    , m_catalogue(m_state, m_dataFolder)
    , m_records(m_prefix, m_state, m_catalogue)
{}

int SimulatorCommands::run()
{
    const int status = execute();
    // Invocations that end before the usual point (a failed sudo, a staged failure) are logged here.
    logInvocation();
    return status;
}

int SimulatorCommands::execute()
{
    QDir().mkpath(stateDirectory());
    QString error;
    std::optional<SimulatorState> state = SimulatorState::load(statePath(), &error);
    if (!state) {
        logInvocation();
        m_output = std::make_unique<SimulatorOutput>(SimulatorFaults());
        return fail(QStringLiteral("Error: brew-simulator: ") + error);
    }
    m_state = *state;
    const SimulatorFaults faults = m_state.faults();
    m_output = std::make_unique<SimulatorOutput>(faults);

    const std::optional<QString> usageError = parse(m_arguments, &m_options);
    const bool needsSudo = !usageError && faults.sudo.contains(m_options.command);
    if (!needsSudo) {
        logInvocation();
    }
    if (usageError) {
        return fail(*usageError);
    }
    m_output->setStreamed(streamedCommands.contains(m_options.command));

    if (m_options.command == companionCommand && !m_state.isTapped(companionTap)) {
        return fail(QStringLiteral("Error: Unknown command: ") + companionCommand);
    }
    if (faults.failCommands.contains(m_options.command)) {
        return failStaged(m_options.names.value(0));
    }
    for (const QString& name : std::as_const(m_options.names)) {
        if (faults.failTokens.contains(name) || faults.failTokens.contains(bareToken(name))) {
            return failStaged(name);
        }
    }
    if (needsSudo && !runSudo()) {
        return 1;
    }

    int status = dispatch();
    if (status == 0 && !commit()) {
        status = 1;
    }
    if (status == 0 && faults.exitAfterOutput) {
        status = *faults.exitAfterOutput;
    }
    return status;
}

std::optional<QString> SimulatorCommands::parse(const QStringList& arguments, Options* options) const
{
    if (arguments.isEmpty()) {
        return QStringLiteral("Example usage:\n  brew search TEXT|/REGEX/\n  brew info [FORMULA|CASK...]\n"
                              "  brew install FORMULA|CASK...\n  brew update\n  brew upgrade [FORMULA|CASK...]\n"
                              "  brew uninstall FORMULA|CASK...\n  brew list [FORMULA|CASK...]\n"
                              "Error: brew-simulator needs a command.");
    }
    options->command = arguments.first();
    if (options->command == QStringLiteral("-v")) {
        options->command = QStringLiteral("--version");
    }
    const auto accepted = acceptedOptions.constFind(options->command);
    if (accepted == acceptedOptions.constEnd()) {
        return QStringLiteral("Error: Unknown command: ") + options->command;
    }
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (!argument.startsWith(QLatin1Char('-'))) {
            options->names.append(argument);
            continue;
        }
        const QString flag = argument.section(QLatin1Char('='), 0, 0);
        if (!accepted->contains(flag)) {
            return QStringLiteral("Error: invalid option: ") + argument;
        }
        if (argument.contains(QLatin1Char('='))) {
            options->values.insert(flag, argument.section(QLatin1Char('='), 1));
        } else if (valueOptions.contains(flag)) {
            if (i + 1 >= arguments.size()) {
                return QStringLiteral("Error: missing argument: ") + flag;
            }
            options->values.insert(flag, arguments.at(++i));
        }
        options->flags.insert(flag);
    }
    // The companion's cask form passes a single blank where the formula form passes --json=v2.
    options->names.removeIf([](const QString& name) { return name.trimmed().isEmpty(); });
    return std::nullopt;
}

void SimulatorCommands::logInvocation(const std::optional<QString>& sudoPassword)
{
    if (m_logged) {
        return;
    }
    m_logged = true;
    QJsonObject environment;
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    const QStringList names = system.keys();
    for (const QString& name : names) {
        environment.insert(name, system.value(name));
    }
    QJsonObject entry{{QStringLiteral("arguments"), QJsonArray::fromStringList(m_arguments)},
                      {QStringLiteral("environment"), environment}};
    if (sudoPassword) {
        entry.insert(QStringLiteral("sudoPassword"), *sudoPassword);
    }
    // One unbuffered write in append mode: concurrent invocations never interleave their lines.
    QFile log(stateDirectory() + QStringLiteral("/invocations.jsonl"));
    if (log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        log.write(QJsonDocument(entry).toJson(QJsonDocument::Compact) + '\n');
    }
}

bool SimulatorCommands::catalogueReady()
{
    if (m_catalogueLoaded) {
        return true;
    }
    QString error;
    if (!m_catalogue.load(&error)) {
        m_output->err(QStringLiteral("Error: brew-simulator: ") + error);
        return false;
    }
    m_catalogueLoaded = true;
    return true;
}

void SimulatorCommands::change(const std::function<void(SimulatorState&)>& apply)
{
    apply(m_state);
    m_changes.append(apply);
}

bool SimulatorCommands::commit()
{
    if (m_changes.isEmpty()) {
        return true;
    }
    QString error;
    const bool saved = SimulatorState::update(
        statePath(),
        [this](SimulatorState& state) {
            for (const auto& apply : std::as_const(m_changes)) {
                apply(state);
            }
            state.writeFolders(m_prefix);
        },
        &error);
    if (!saved) {
        m_output->err(QStringLiteral("Error: brew-simulator: ") + error);
    }
    return saved;
}

int SimulatorCommands::fail(const QString& message)
{
    m_output->err(message);
    return 1;
}

int SimulatorCommands::failStaged(const QString& subject)
{
    const QString& command = m_options.command;
    const QString name = subject.isEmpty() ? command : subject;
    if (command == QStringLiteral("install") || command == QStringLiteral("upgrade") ||
        command == QStringLiteral("reinstall")) {
        const QString url = QStringLiteral("https://ghcr.io/v2/homebrew/core/%1/blobs/sha256:0").arg(bareToken(name));
        m_output->out(QStringLiteral("==> Fetching ") + name);
        m_output->out(QStringLiteral("==> Downloading ") + url);
        m_output->err(
            QStringLiteral("Error: %1: Failed to download resource \"%1\"\nDownload failed: %2").arg(name, url));
    } else if (command == QStringLiteral("uninstall")) {
        m_output->out(QStringLiteral("Uninstalling ") + m_prefix + QStringLiteral("/Cellar/") + bareToken(name));
        m_output->err(QStringLiteral("Error: Permission denied @ apply2files - ") + m_prefix +
                      QStringLiteral("/Cellar/") + bareToken(name));
    } else if (command == QStringLiteral("tap")) {
        const QString owner = name.section(QLatin1Char('/'), 0, 0);
        const QString repository = QStringLiteral("homebrew-") + name.section(QLatin1Char('/'), 1, 1);
        const QString remote = QStringLiteral("https://github.com/%1/%2").arg(owner, repository);
        m_output->err(QStringLiteral("==> Tapping ") + name);
        m_output->err(QStringLiteral("Cloning into '%1'...").arg(m_records.tapPath(name)));
        m_output->err(QStringLiteral("fatal: unable to access '%1/': Could not resolve host: github.com").arg(remote));
        m_output->err(QStringLiteral("Error: Failure while executing; `git clone %1 %2 --origin=origin --template= "
                                     "--config core.fsmonitor=false` exited with 128.")
                          .arg(remote, m_records.tapPath(name)));
    } else if (command == QStringLiteral("update")) {
        m_output->err(QStringLiteral("==> Updating Homebrew..."));
        m_output->err(QStringLiteral("fatal: unable to access 'https://github.com/Homebrew/brew/': Could not resolve "
                                     "host: github.com"));
        m_output->err(QStringLiteral("Error: Fetching %1 failed!").arg(m_prefix));
    } else {
        m_output->err(QStringLiteral("Error: Failure while executing; `%1/bin/brew %2` exited with 1.")
                          .arg(m_prefix, m_arguments.join(QLatin1Char(' '))));
    }
    return 1;
}

bool SimulatorCommands::runSudo()
{
    const QString subject = m_options.names.value(0, m_options.command);
    if (m_options.command == QStringLiteral("uninstall")) {
        m_output->out(
            QStringLiteral("==> Running uninstall process for %1; your password may be necessary.").arg(subject));
    } else {
        m_output->out(
            QStringLiteral("==> Running installer for %1 with sudo; the password may be necessary.").arg(subject));
    }

    // As sudo does: run the helper without arguments, take the first line of its output as the password.
    const QString askpass = qEnvironmentVariable("SUDO_ASKPASS");
    QStringList complaint;
    std::optional<QString> password;
    if (askpass.isEmpty()) {
        complaint << QStringLiteral("sudo: a terminal is required to read the password; either use the -S option to "
                                    "read from standard input or configure an askpass helper");
    } else {
        QProcess helper;
        helper.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        helper.start(askpass, QStringList());
        if (!helper.waitForStarted()) {
            complaint << QStringLiteral("sudo: unable to run %1: %2").arg(askpass, helper.errorString());
        } else if (!helper.waitForFinished(5 * 60 * 1000)) {
            helper.kill();
            helper.waitForFinished();
            complaint << QStringLiteral("sudo: timed out reading password");
        } else if (helper.exitStatus() != QProcess::NormalExit || helper.exitCode() != 0) {
            complaint << QStringLiteral("sudo: no password was provided");
        } else {
            password = QString::fromUtf8(helper.readAllStandardOutput().split('\n').first());
        }
    }
    logInvocation(password);
    if (password) {
        return true;
    }
    complaint << QStringLiteral("sudo: a password is required");
    m_output->err(complaint.join(QLatin1Char('\n')));
    m_output->err(QStringLiteral("Error: Failure while executing; `/usr/bin/sudo -E -- %1/bin/brew %2` exited with 1.")
                      .arg(m_prefix, m_arguments.join(QLatin1Char(' '))));
    return false;
}

int SimulatorCommands::dispatch()
{
    const QString& command = m_options.command;
    const bool cask = m_options.has(QStringLiteral("--cask")) || m_options.has(QStringLiteral("--casks"));
    const bool formula = m_options.has(QStringLiteral("--formula")) || m_options.has(QStringLiteral("--formulae"));
    if (cask && formula &&
        (command == QStringLiteral("install") || command == QStringLiteral("uninstall") ||
         command == QStringLiteral("upgrade") || command == QStringLiteral("reinstall"))) {
        return fail(QStringLiteral("Error: Options --formula and --cask are mutually exclusive."));
    }
    const Kind kind = cask ? Kind::Cask : Kind::Formula;

    if (command == QStringLiteral("--version")) {
        return version();
    }
    if (command == QStringLiteral("config")) {
        return config();
    }
    if (command == QStringLiteral("leaves")) {
        return catalogueReady() ? leaves() : 1;
    }
    if (command == QStringLiteral("autoremove")) {
        return catalogueReady() ? autoremove() : 1;
    }
    if (command == QStringLiteral("cleanup")) {
        return cleanup();
    }
    if (!catalogueReady()) {
        return 1;
    }
    if (command == QStringLiteral("install")) {
        return install(kind);
    }
    if (command == QStringLiteral("uninstall")) {
        return uninstall(kind);
    }
    if (command == QStringLiteral("upgrade")) {
        return upgrade(kind);
    }
    if (command == QStringLiteral("reinstall")) {
        return reinstall(kind);
    }
    if (command == QStringLiteral("info")) {
        return info();
    }
    if (command == QStringLiteral("tap-info")) {
        return tapInfo();
    }
    if (command == QStringLiteral("outdated")) {
        return outdated();
    }
    if (command == companionCommand) {
        return tapContentInfo();
    }
    if (command == QStringLiteral("tap")) {
        return tap();
    }
    if (command == QStringLiteral("untap")) {
        return untap();
    }
    if (command == QStringLiteral("update")) {
        return update();
    }
    return fail(QStringLiteral("Error: Unknown command: ") + command);
}

// ---- Read-only answers ---------------------------------------------------------------------------------------------

int SimulatorCommands::version()
{
    m_output->out(QStringLiteral("Homebrew ") + m_state.homebrewVersion);
    m_output->out(QStringLiteral("Homebrew/homebrew-core N/A"));
    return 0;
}

int SimulatorCommands::config()
{
    QStringList lines{
        QStringLiteral("HOMEBREW_VERSION: ") + m_state.homebrewVersion,
        QStringLiteral("ORIGIN: https://github.com/Homebrew/brew"),
        QStringLiteral("HEAD: ") +
            QString::fromLatin1(
                QCryptographicHash::hash(m_state.homebrewVersion.toUtf8(), QCryptographicHash::Sha1).toHex()),
        QStringLiteral("Last commit: never"),
        QStringLiteral("Core tap: N/A"),
        QStringLiteral("HOMEBREW_PREFIX: ") + m_prefix,
        QStringLiteral("HOMEBREW_REPOSITORY: ") + m_prefix,
        QStringLiteral("HOMEBREW_CELLAR: ") + m_prefix + QStringLiteral("/Cellar"),
        QStringLiteral("HOMEBREW_CASK_OPTS: []"),
        QStringLiteral("HOMEBREW_MAKE_JOBS: ") + QString::number(QThread::idealThreadCount()),
    };
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QStringList names = environment.keys();
    names.sort();
    for (const QString& name : std::as_const(names)) {
        if (name.startsWith(QStringLiteral("HOMEBREW_"))) {
            lines.append(name + QStringLiteral(": set"));
        }
    }
    lines << QStringLiteral("Homebrew Ruby: 3.1.2 => /usr/bin/ruby3.1") << QStringLiteral("CPU: simulated")
          << QStringLiteral("Kernel: ") + QSysInfo::kernelType() + QLatin1Char(' ') + QSysInfo::currentCpuArchitecture()
          << QStringLiteral("OS: ") + QSysInfo::prettyProductName();
    m_output->out(lines.join(QLatin1Char('\n')));
    return 0;
}

int SimulatorCommands::info()
{
    const bool casksOnly = m_options.has(QStringLiteral("--cask")) || m_options.has(QStringLiteral("--casks"));
    const bool formulaeOnly = m_options.has(QStringLiteral("--formula")) || m_options.has(QStringLiteral("--formulae"));
    const QString json = m_options.values.value(QStringLiteral("--json"));
    if (m_options.has(QStringLiteral("--json")) && json != QStringLiteral("v2")) {
        return fail(QStringLiteral("Error: brew-simulator answers info --json=v2 only."));
    }

    QJsonArray formulae;
    QJsonArray casks;
    if (m_options.has(QStringLiteral("--installed"))) {
        if (!casksOnly) {
            for (auto it = m_state.formulae.begin(); it != m_state.formulae.end(); ++it) {
                formulae.append(m_records.installedFormulaInfo(it.key()));
            }
        }
        if (!formulaeOnly) {
            for (auto it = m_state.casks.begin(); it != m_state.casks.end(); ++it) {
                casks.append(m_records.installedCaskInfo(it.key()));
            }
        }
    } else if (m_options.names.isEmpty()) {
        return fail(QStringLiteral("Error: Invalid usage: This command requires at least 1 formula or cask argument."));
    }
    for (const QString& name : std::as_const(m_options.names)) {
        const std::optional<QJsonObject> formula = casksOnly ? std::nullopt : m_catalogue.formula(name);
        const std::optional<QJsonObject> cask = formulaeOnly || formula ? std::nullopt : m_catalogue.cask(name);
        if (formula) {
            formulae.append(m_records.formulaInfo(*formula));
        } else if (cask) {
            casks.append(m_records.caskInfo(*cask));
        } else if (casksOnly) {
            return fail(QStringLiteral("Error: Cask '%1' is unavailable: No Cask with this name exists.").arg(name));
        } else if (formulaeOnly) {
            return fail(QStringLiteral("Error: No available formula with the name \"%1\".").arg(name));
        } else {
            return fail(QStringLiteral("Error: No available formula or cask with the name \"%1\".").arg(name));
        }
    }

    if (m_options.has(QStringLiteral("--json"))) {
        m_output->json(QJsonObject{{QStringLiteral("formulae"), formulae}, {QStringLiteral("casks"), casks}});
        return 0;
    }
    for (const QJsonValue& value : std::as_const(formulae)) {
        const QJsonObject record = value.toObject();
        m_output->out(
            QStringLiteral("==> %1: stable %2\n%3\n%4\n%5")
                .arg(record.value(QStringLiteral("full_name")).toString(), SimulatorRecords::formulaVersion(record),
                     record.value(QStringLiteral("desc")).toString(),
                     record.value(QStringLiteral("homepage")).toString(),
                     record.value(QStringLiteral("installed")).toArray().isEmpty() ? QStringLiteral("Not installed")
                                                                                   : QStringLiteral("Installed")));
    }
    for (const QJsonValue& value : std::as_const(casks)) {
        const QJsonObject record = value.toObject();
        m_output->out(QStringLiteral("==> %1: %2\n%3\n%4\n%5")
                          .arg(record.value(QStringLiteral("token")).toString(),
                               record.value(QStringLiteral("version")).toString(),
                               record.value(QStringLiteral("desc")).toString(),
                               record.value(QStringLiteral("homepage")).toString(),
                               record.value(QStringLiteral("installed")).isString() ? QStringLiteral("Installed")
                                                                                    : QStringLiteral("Not installed")));
    }
    return 0;
}

int SimulatorCommands::tapInfo()
{
    QStringList taps = m_options.names;
    if (m_options.has(QStringLiteral("--installed"))) {
        taps = m_state.taps;
        taps.sort();
    }
    QJsonArray records;
    for (const QString& tap : std::as_const(taps)) {
        if (!SimulatorRecords::validTapName(tap)) {
            return fail(QStringLiteral("Error: Invalid tap name: '%1'").arg(tap));
        }
        records.append(m_records.tapInfoRecord(tap.toLower()));
    }
    if (m_options.has(QStringLiteral("--json"))) {
        m_output->json(records);
        return 0;
    }
    if (taps.isEmpty() && !m_options.has(QStringLiteral("--installed"))) {
        m_output->out(
            QStringLiteral("%1, 0 private")
                .arg(SimulatorRecords::counted(m_state.taps.size(), QStringLiteral("tap"), QStringLiteral("taps"))));
        return 0;
    }
    for (const QJsonValue& value : std::as_const(records)) {
        const QJsonObject record = value.toObject();
        const QString name = record.value(QStringLiteral("name")).toString();
        if (!record.value(QStringLiteral("installed")).toBool()) {
            m_output->out(name + QStringLiteral(": Not installed"));
            continue;
        }
        m_output->out(QStringLiteral("%1: Installed\n%2\n%3\n%4\nFrom: %5")
                          .arg(name,
                               SimulatorRecords::counted(record.value(QStringLiteral("formula_names")).toArray().size(),
                                                         QStringLiteral("formula"), QStringLiteral("formulae")),
                               SimulatorRecords::counted(record.value(QStringLiteral("cask_tokens")).toArray().size(),
                                                         QStringLiteral("cask"), QStringLiteral("casks")),
                               record.value(QStringLiteral("path")).toString(),
                               record.value(QStringLiteral("remote")).toString()));
    }
    return 0;
}

int SimulatorCommands::outdated()
{
    const bool casksOnly = m_options.has(QStringLiteral("--cask")) || m_options.has(QStringLiteral("--casks"));
    const bool formulaeOnly = m_options.has(QStringLiteral("--formula")) || m_options.has(QStringLiteral("--formulae"));
    const bool quiet = m_options.has(QStringLiteral("--quiet"));

    QJsonArray formulae;
    QJsonArray casks;
    QStringList lines;
    if (!casksOnly) {
        for (auto it = m_state.outdatedFormulae.begin(); it != m_state.outdatedFormulae.end(); ++it) {
            const auto installed = m_state.formulae.constFind(it.key());
            if (installed == m_state.formulae.constEnd()) {
                continue;
            }
            const QString name = m_records.formulaName(it.key());
            formulae.append(QJsonObject{{QStringLiteral("name"), name},
                                        {QStringLiteral("installed_versions"), QJsonArray{installed->version}},
                                        {QStringLiteral("current_version"), it.value()},
                                        {QStringLiteral("pinned"), false},
                                        {QStringLiteral("pinned_version"), QJsonValue::Null}});
            lines.append(quiet ? name : QStringLiteral("%1 (%2) < %3").arg(name, installed->version, it.value()));
        }
    }
    if (!formulaeOnly) {
        for (auto it = m_state.outdatedCasks.begin(); it != m_state.outdatedCasks.end(); ++it) {
            const auto installed = m_state.casks.constFind(it.key());
            if (installed == m_state.casks.constEnd()) {
                continue;
            }
            casks.append(QJsonObject{{QStringLiteral("name"), it.key()},
                                     {QStringLiteral("installed_versions"), QJsonArray{installed->version}},
                                     {QStringLiteral("current_version"), it.value()}});
            lines.append(quiet ? it.key()
                               : QStringLiteral("%1 (%2) != %3").arg(it.key(), installed->version, it.value()));
        }
    }
    if (m_options.has(QStringLiteral("--json"))) {
        m_output->json(QJsonObject{{QStringLiteral("formulae"), formulae}, {QStringLiteral("casks"), casks}});
    } else if (!lines.isEmpty()) {
        m_output->out(lines.join(QLatin1Char('\n')));
    }
    return 0;
}

int SimulatorCommands::leaves()
{
    QStringList names;
    const QStringList tokens = m_state.leaves();
    for (const QString& token : tokens) {
        names.append(m_records.formulaName(token));
    }
    names.sort();
    if (!names.isEmpty()) {
        m_output->out(names.join(QLatin1Char('\n')));
    }
    return 0;
}

int SimulatorCommands::tapContentInfo()
{
    const bool casks = m_options.has(QStringLiteral("--casks"));
    const bool formulae = m_options.has(QStringLiteral("--formulae"));
    QJsonArray formulaRecords;
    QJsonArray caskRecords;
    for (const QString& tap : std::as_const(m_state.taps)) {
        if (SimulatorCatalogue::isCoreTap(tap)) {
            continue;
        }
        if (formulae || !casks) {
            const QList<QJsonObject> records = m_catalogue.formulaeOfTap(tap);
            for (const QJsonObject& record : records) {
                formulaRecords.append(m_records.formulaInfo(record));
            }
        }
        if (casks || !formulae) {
            const QList<QJsonObject> records = m_catalogue.casksOfTap(tap);
            for (const QJsonObject& record : records) {
                caskRecords.append(m_records.caskInfo(record));
            }
        }
    }
    m_output->json(QJsonObject{{QStringLiteral("formulae"), formulaRecords}, {QStringLiteral("casks"), caskRecords}});
    return 0;
}

// ---- Package commands ----------------------------------------------------------------------------------------------

int SimulatorCommands::install(Kind kind)
{
    if (m_options.names.isEmpty()) {
        return fail(QStringLiteral("Error: Invalid usage: This command requires at least 1 formula or cask argument."));
    }
    QList<QJsonObject> records;
    for (const QString& name : std::as_const(m_options.names)) {
        const std::optional<QJsonObject> record =
            kind == Kind::Cask ? m_catalogue.cask(name) : m_catalogue.formula(name);
        if (!record) {
            return fail(
                kind == Kind::Cask
                    ? QStringLiteral("Error: Cask '%1' is unavailable: No Cask with this name exists.").arg(name)
                    : QStringLiteral("Error: No available formula with the name \"%1\".").arg(name));
        }
        records.append(*record);
    }
    for (const QJsonObject& record : std::as_const(records)) {
        const int status = kind == Kind::Cask ? installCask(record) : installFormula(record);
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

int SimulatorCommands::installFormula(const QJsonObject& record)
{
    const QString token = record.value(QStringLiteral("name")).toString();
    const QString tap = record.value(QStringLiteral("tap")).toString();
    const QString name = m_records.formulaName(token);
    if (const auto installed = m_state.formulae.constFind(token); installed != m_state.formulae.constEnd()) {
        if (m_state.outdatedFormulae.contains(token)) {
            m_output->err(
                QStringLiteral("Warning: %1 %2 is already installed\nTo upgrade to %3, run:\n  brew upgrade %1")
                    .arg(name, installed->version, m_state.outdatedFormulae.value(token)));
        } else {
            m_output->err(QStringLiteral("Warning: %1 %2 is already installed and up-to-date.\nTo reinstall %2, run:\n"
                                         "  brew reinstall %1")
                              .arg(name, installed->version));
        }
        if (!installed->installedOnRequest) {
            change([token](SimulatorState& state) {
                if (state.formulae.contains(token)) {
                    state.formulae[token].installedOnRequest = true;
                }
            });
        }
        return 0;
    }

    const QList<QJsonObject> dependencies = m_records.dependencyOrder(record);
    QStringList dependencyNames;
    for (const QJsonObject& dependency : dependencies) {
        dependencyNames.append(m_records.formulaName(dependency.value(QStringLiteral("name")).toString()));
    }
    if (!dependencies.isEmpty()) {
        m_output->out(QStringLiteral("==> Fetching dependencies for %1: %2")
                          .arg(name, SimulatorRecords::sentence(dependencyNames)));
    }
    QList<QJsonObject> all = dependencies;
    all.append(record);
    for (const QJsonObject& each : std::as_const(all)) {
        const QString eachToken = each.value(QStringLiteral("name")).toString();
        const QString eachVersion = m_state.outdatedFormulae.value(eachToken, SimulatorRecords::formulaVersion(each));
        m_output->out(QStringLiteral("==> Fetching ") + m_records.formulaName(eachToken));
        m_output->out(QStringLiteral("==> Downloading ") + m_records.formulaUrl(each, eachVersion));
    }
    if (!SimulatorCatalogue::isCoreTap(tap)) {
        m_output->out(QStringLiteral("==> Installing %1 from %2").arg(token, tap));
    }
    if (!dependencies.isEmpty()) {
        m_output->out(QStringLiteral("==> Installing dependencies for %1: %2")
                          .arg(name, SimulatorRecords::sentence(dependencyNames)));
    }
    for (const QJsonObject& each : std::as_const(all)) {
        const QString eachToken = each.value(QStringLiteral("name")).toString();
        const QString eachVersion = m_state.outdatedFormulae.value(eachToken, SimulatorRecords::formulaVersion(each));
        const bool requested = eachToken == token;
        if (!requested) {
            m_output->out(
                QStringLiteral("==> Installing %1 dependency: %2").arg(name, m_records.formulaName(eachToken)));
        } else if (!dependencies.isEmpty() || SimulatorCatalogue::isCoreTap(tap)) {
            m_output->out(QStringLiteral("==> Installing ") + name);
        }
        m_output->out(m_records.beer(eachToken, eachVersion));

        SimulatorState::Formula entry;
        entry.version = eachVersion;
        entry.tap = each.value(QStringLiteral("tap")).toString();
        entry.dependencies = m_records.directDependencies(each);
        entry.installedOnRequest = requested;
        entry.installedTime = now();
        change([eachToken, entry](SimulatorState& state) {
            state.formulae.insert(eachToken, entry);
            state.outdatedFormulae.remove(eachToken);
            state.rememberDownload(eachToken, entry.version);
        });
    }
    return 0;
}

int SimulatorCommands::installCask(const QJsonObject& record)
{
    const QString token = record.value(QStringLiteral("token")).toString();
    if (m_state.casks.contains(token)) {
        m_output->err(QStringLiteral("Warning: Cask '%1' is already installed.\n\nTo re-install %1, run:\n"
                                     "  brew reinstall --cask %1")
                          .arg(token));
        return 0;
    }
    SimulatorState::Cask entry;
    entry.version = m_state.outdatedCasks.value(token, record.value(QStringLiteral("version")).toString());
    entry.tap = record.value(QStringLiteral("tap")).toString();
    entry.appdir = m_options.values.value(QStringLiteral("--appdir"));
    entry.fontdir = m_options.values.value(QStringLiteral("--fontdir"));
    entry.installedTime = now();

    m_output->out(QStringLiteral("==> Downloading ") + m_records.caskUrl(record, entry.version));
    m_output->out(QStringLiteral("==> Installing Cask ") + token);
    const QStringList moves = m_records.artifactLines(record, entry.appdir, entry.fontdir, false);
    for (const QString& line : moves) {
        m_output->out(line);
    }
    m_output->out(QStringLiteral("🍺  %1 was successfully installed!").arg(token));
    change([token, entry](SimulatorState& state) {
        state.casks.insert(token, entry);
        state.outdatedCasks.remove(token);
        state.rememberDownload(token, entry.version);
    });
    return 0;
}

int SimulatorCommands::uninstall(Kind kind)
{
    if (m_options.names.isEmpty()) {
        return fail(QStringLiteral("Error: Invalid usage: This command requires at least 1 formula or cask argument."));
    }
    QStringList tokens;
    for (const QString& name : std::as_const(m_options.names)) {
        const QString token = bareToken(name);
        if (kind == Kind::Cask && !m_state.casks.contains(token)) {
            return fail(QStringLiteral("Error: Cask '%1' is not installed.").arg(token));
        }
        if (kind == Kind::Formula && !m_state.formulae.contains(token)) {
            return fail(QStringLiteral("Error: No such keg: %1/Cellar/%2").arg(m_prefix, token));
        }
        tokens.append(token);
    }

    if (kind == Kind::Cask) {
        for (const QString& token : std::as_const(tokens)) {
            const SimulatorState::Cask entry = m_state.casks.value(token);
            m_output->out(QStringLiteral("==> Uninstalling Cask ") + token);
            const std::optional<QJsonObject> record = m_catalogue.cask(token);
            const QStringList removals =
                record ? m_records.artifactLines(*record, entry.appdir, entry.fontdir, true) : QStringList();
            for (const QString& line : removals) {
                m_output->out(line);
            }
            m_output->out(QStringLiteral("==> Purging files for version %1 of Cask %2").arg(entry.version, token));
            change([token](SimulatorState& state) { state.casks.remove(token); });
        }
        return 0;
    }

    if (!m_options.has(QStringLiteral("--ignore-dependencies"))) {
        for (const QString& token : std::as_const(tokens)) {
            QStringList dependents = m_state.dependents(token);
            dependents.removeIf([&tokens](const QString& dependent) { return tokens.contains(dependent); });
            if (!dependents.isEmpty()) {
                return fail(QStringLiteral("Error: Refusing to uninstall %1\nbecause it is required by %2, which %3 "
                                           "currently installed.\nYou can override this and force removal with:\n"
                                           "  brew uninstall --ignore-dependencies %4")
                                .arg(m_records.cellar(token, m_state.formulae.value(token).version),
                                     SimulatorRecords::sentence(dependents),
                                     dependents.size() == 1 ? QStringLiteral("is") : QStringLiteral("are"), token));
            }
        }
    }
    for (const QString& token : std::as_const(tokens)) {
        uninstallFormulaLines(token);
    }
    // Homebrew removes the dependencies that nothing needs any more right after an uninstall.
    const QStringList unneeded = m_state.unneededFormulae();
    const QStringList lines = autoremoveLines(unneeded);
    for (const QString& line : lines) {
        m_output->out(line);
    }
    return 0;
}

void SimulatorCommands::uninstallFormulaLines(const QString& token)
{
    m_output->out(m_records.uninstalling(token, m_state.formulae.value(token).version));
    change([token](SimulatorState& state) {
        state.formulae.remove(token);
        state.outdatedFormulae.remove(token);
    });
}

QStringList SimulatorCommands::autoremoveLines(const QStringList& tokens)
{
    if (tokens.isEmpty()) {
        return {};
    }
    QStringList lines{QStringLiteral("==> Autoremoving %1:")
                          .arg(SimulatorRecords::counted(tokens.size(), QStringLiteral("unneeded formula"),
                                                         QStringLiteral("unneeded formulae")))};
    for (const QString& token : tokens) {
        lines.append(m_records.formulaName(token));
    }
    for (const QString& token : tokens) {
        lines.append(m_records.uninstalling(token, m_state.formulae.value(token).version));
    }
    for (const QString& token : tokens) {
        change([token](SimulatorState& state) {
            state.formulae.remove(token);
            state.outdatedFormulae.remove(token);
        });
    }
    return lines;
}

int SimulatorCommands::upgrade(Kind kind)
{
    const bool explicitKind = m_options.has(QStringLiteral("--cask")) || m_options.has(QStringLiteral("--casks")) ||
                              m_options.has(QStringLiteral("--formula")) || m_options.has(QStringLiteral("--formulae"));
    QStringList formulae;
    QStringList casks;
    if (m_options.names.isEmpty()) {
        if (kind == Kind::Formula) {
            formulae = m_state.outdatedFormulae.keys();
        }
        if (kind == Kind::Cask || !explicitKind) {
            casks = m_state.outdatedCasks.keys();
        }
        formulae.removeIf([this](const QString& token) { return !m_state.formulae.contains(token); });
        casks.removeIf([this](const QString& token) { return !m_state.casks.contains(token); });
    }
    for (const QString& name : std::as_const(m_options.names)) {
        const QString token = bareToken(name);
        if (kind == Kind::Cask) {
            if (!m_state.casks.contains(token)) {
                return fail(
                    m_catalogue.cask(name)
                        ? QStringLiteral("Error: Cask '%1' is not installed.").arg(token)
                        : QStringLiteral("Error: Cask '%1' is unavailable: No Cask with this name exists.").arg(name));
            }
            if (m_state.outdatedCasks.contains(token)) {
                casks.append(token);
            } else {
                m_output->err(
                    QStringLiteral("Warning: Not upgrading %1, the latest version is already installed").arg(token));
            }
        } else {
            if (!m_state.formulae.contains(token)) {
                return fail(m_catalogue.formula(name)
                                ? QStringLiteral("Error: %1 not installed").arg(name)
                                : QStringLiteral("Error: No available formula with the name \"%1\".").arg(name));
            }
            if (m_state.outdatedFormulae.contains(token)) {
                formulae.append(token);
            } else {
                m_output->err(QStringLiteral("Warning: %1 %2 already installed")
                                  .arg(m_records.formulaName(token), m_state.formulae.value(token).version));
            }
        }
    }
    if (formulae.isEmpty() && casks.isEmpty()) {
        return 0;
    }

    QStringList summary;
    for (const QString& token : std::as_const(formulae)) {
        summary.append(QStringLiteral("%1 %2 -> %3")
                           .arg(m_records.formulaName(token), m_state.formulae.value(token).version,
                                m_state.outdatedFormulae.value(token)));
    }
    for (const QString& token : std::as_const(casks)) {
        summary.append(QStringLiteral("%1 %2 -> %3")
                           .arg(token, m_state.casks.value(token).version, m_state.outdatedCasks.value(token)));
    }
    m_output->out(QStringLiteral("==> Upgrading %1:\n%2")
                      .arg(SimulatorRecords::counted(summary.size(), QStringLiteral("outdated package"),
                                                     QStringLiteral("outdated packages")),
                           summary.join(QLatin1Char('\n'))));

    for (const QString& token : std::as_const(formulae)) {
        const QString name = m_records.formulaName(token);
        const QString oldVersion = m_state.formulae.value(token).version;
        const QString newVersion = m_state.outdatedFormulae.value(token);
        const QJsonObject record = m_catalogue.formula(token).value_or(QJsonObject());
        m_output->out(QStringLiteral("==> Fetching ") + name);
        m_output->out(QStringLiteral("==> Downloading ") + m_records.formulaUrl(record, newVersion));
        m_output->out(QStringLiteral("==> Upgrading ") + name);
        m_output->out(QStringLiteral("  %1 -> %2 ").arg(oldVersion, newVersion));
        m_output->out(m_records.beer(token, newVersion));
        change([token, oldVersion, newVersion](SimulatorState& state) {
            if (!state.formulae.contains(token)) {
                return;
            }
            SimulatorState::Formula& entry = state.formulae[token];
            entry.version = newVersion;
            entry.oldVersions.append(oldVersion);
            entry.installedTime = now();
            state.outdatedFormulae.remove(token);
            state.rememberDownload(token, newVersion);
        });
    }
    for (const QString& token : std::as_const(casks)) {
        const SimulatorState::Cask entry = m_state.casks.value(token);
        const QString newVersion = m_state.outdatedCasks.value(token);
        const QJsonObject record = m_catalogue.cask(token).value_or(QJsonObject());
        m_output->out(QStringLiteral("==> Upgrading ") + token);
        m_output->out(QStringLiteral("==> Downloading ") + m_records.caskUrl(record, newVersion));
        const QStringList removals = m_records.artifactLines(record, entry.appdir, entry.fontdir, true);
        for (const QString& line : removals) {
            m_output->out(line);
        }
        const QStringList moves = m_records.artifactLines(record, entry.appdir, entry.fontdir, false);
        for (const QString& line : moves) {
            m_output->out(line);
        }
        m_output->out(QStringLiteral("==> Purging files for version %1 of Cask %2").arg(entry.version, token));
        m_output->out(QStringLiteral("🍺  %1 was successfully upgraded!").arg(token));
        change([token, newVersion](SimulatorState& state) {
            if (!state.casks.contains(token)) {
                return;
            }
            state.casks[token].version = newVersion;
            state.casks[token].installedTime = now();
            state.outdatedCasks.remove(token);
            state.rememberDownload(token, newVersion);
        });
    }
    return 0;
}

int SimulatorCommands::reinstall(Kind kind)
{
    if (m_options.names.isEmpty()) {
        return fail(QStringLiteral("Error: Invalid usage: This command requires at least 1 formula or cask argument."));
    }
    for (const QString& name : std::as_const(m_options.names)) {
        const QString token = bareToken(name);
        if (kind == Kind::Cask && !m_state.casks.contains(token)) {
            return fail(QStringLiteral("Error: Cask '%1' is not installed.").arg(token));
        }
        if (kind == Kind::Formula && !m_state.formulae.contains(token)) {
            return fail(QStringLiteral("Error: %1 is not installed.").arg(name));
        }
    }
    for (const QString& name : std::as_const(m_options.names)) {
        const QString token = bareToken(name);
        if (kind == Kind::Formula) {
            const QString version = m_state.formulae.value(token).version;
            const QJsonObject record = m_catalogue.formula(token).value_or(QJsonObject());
            const QString url = m_records.formulaUrl(record, version);
            m_output->out(QStringLiteral("==> Fetching ") + m_records.formulaName(token));
            m_output->out(QStringLiteral("==> Downloading ") + url);
            m_output->out(QStringLiteral("Already downloaded: %1/downloads/%2--%3")
                              .arg(m_records.cachePath(),
                                   QString::fromLatin1(
                                       QCryptographicHash::hash(url.toUtf8(), QCryptographicHash::Sha256).toHex()),
                                   url.section(QLatin1Char('/'), -1)));
            m_output->out(QStringLiteral("==> Reinstalling %1 ").arg(m_records.formulaName(token)));
            m_output->out(m_records.beer(token, version));
            change([token](SimulatorState& state) {
                if (state.formulae.contains(token)) {
                    state.formulae[token].installedTime = now();
                }
            });
            continue;
        }

        SimulatorState::Cask entry = m_state.casks.value(token);
        const QJsonObject record = m_catalogue.cask(token).value_or(QJsonObject());
        const QString newAppdir = m_options.values.value(QStringLiteral("--appdir"), entry.appdir);
        const QString newFontdir = m_options.values.value(QStringLiteral("--fontdir"), entry.fontdir);
        m_output->out(QStringLiteral("==> Downloading ") + m_records.caskUrl(record, entry.version));
        m_output->out(QStringLiteral("==> Uninstalling Cask ") + token);
        const QStringList removals = m_records.artifactLines(record, entry.appdir, entry.fontdir, true);
        for (const QString& line : removals) {
            m_output->out(line);
        }
        m_output->out(QStringLiteral("==> Purging files for version %1 of Cask %2").arg(entry.version, token));
        m_output->out(QStringLiteral("==> Installing Cask ") + token);
        const QStringList moves = m_records.artifactLines(record, newAppdir, newFontdir, false);
        for (const QString& line : moves) {
            m_output->out(line);
        }
        m_output->out(QStringLiteral("🍺  %1 was successfully reinstalled!").arg(token));
        change([token, newAppdir, newFontdir](SimulatorState& state) {
            if (!state.casks.contains(token)) {
                return;
            }
            state.casks[token].appdir = newAppdir;
            state.casks[token].fontdir = newFontdir;
            state.casks[token].installedTime = now();
        });
    }
    return 0;
}

// ---- Taps ----------------------------------------------------------------------------------------------------------

int SimulatorCommands::tap()
{
    if (m_options.names.isEmpty()) {
        QStringList taps = m_state.taps;
        taps.sort();
        if (!taps.isEmpty()) {
            m_output->out(taps.join(QLatin1Char('\n')));
        }
        return 0;
    }
    const QString& given = m_options.names.first();
    if (!SimulatorRecords::validTapName(given)) {
        return fail(QStringLiteral("Error: Invalid tap name: '%1'").arg(given));
    }
    const QString name = given.toLower();
    if (m_state.isTapped(name)) {
        return 0;
    }
    if (!officialTaps.contains(name) && name != companionTap && !m_state.tapRecords.contains(name)) {
        return failStaged(name);
    }

    qsizetype formulae = 0;
    qsizetype casks = 0;
    if (name == SimulatorCatalogue::coreFormulaTap) {
        formulae = m_catalogue.formulaeOfTap(name).size();
    } else if (name == SimulatorCatalogue::coreCaskTap) {
        casks = m_catalogue.casksOfTap(name).size();
    } else {
        const QJsonObject records = m_state.tapRecords.value(name).toObject();
        formulae = records.value(QStringLiteral("formulae")).toArray().size();
        casks = records.value(QStringLiteral("casks")).toArray().size();
    }
    m_output->err(QStringLiteral("==> Tapping ") + name);
    m_output->err(QStringLiteral("Cloning into '%1'...").arg(m_records.tapPath(name)));
    m_output->err(QStringLiteral("done."));
    m_output->err(QStringLiteral("Tapped %1.")
                      .arg(SimulatorRecords::tapSummary(name, name == companionTap ? 1 : 0, casks, formulae)));
    change([name](SimulatorState& state) {
        if (!state.taps.contains(name)) {
            state.taps.append(name);
            state.taps.sort();
        }
    });
    return 0;
}

int SimulatorCommands::untap()
{
    if (m_options.names.isEmpty()) {
        return fail(QStringLiteral("Error: Invalid usage: This command requires at least 1 tap argument."));
    }
    const QString& given = m_options.names.first();
    if (!SimulatorRecords::validTapName(given)) {
        return fail(QStringLiteral("Error: Invalid tap name: '%1'").arg(given));
    }
    const QString name = given.toLower();
    if (!m_state.isTapped(name)) {
        return fail(QStringLiteral("Error: No available tap %1.").arg(name));
    }
    QStringList installed;
    for (auto it = m_state.formulae.begin(); it != m_state.formulae.end(); ++it) {
        if (m_records.formulaTap(it.key()) == name) {
            installed.append(it.key());
        }
    }
    for (auto it = m_state.casks.begin(); it != m_state.casks.end(); ++it) {
        if (m_records.caskTap(it.key()) == name) {
            installed.append(it.key());
        }
    }
    if (!installed.isEmpty() && !m_options.has(QStringLiteral("--force"))) {
        return fail(QStringLiteral("Error: Refusing to untap %1 because it contains the following installed formulae "
                                   "or casks:\n%2")
                        .arg(name, installed.join(QLatin1Char('\n'))));
    }

    const QJsonObject record = m_records.tapInfoRecord(name);
    const qsizetype commands = record.value(QStringLiteral("command_files")).toArray().size();
    const qsizetype casks = record.value(QStringLiteral("cask_tokens")).toArray().size();
    const qsizetype formulae = record.value(QStringLiteral("formula_names")).toArray().size();
    m_output->err(QStringLiteral("Untapping %1...").arg(name));
    m_output->err(QStringLiteral("Untapped %1.").arg(SimulatorRecords::tapSummary(name, commands, casks, formulae)));
    change([name](SimulatorState& state) { state.taps.removeAll(name); });
    return 0;
}

// ---- Maintenance ---------------------------------------------------------------------------------------------------

int SimulatorCommands::update()
{
    m_output->err(QStringLiteral("==> Updating Homebrew..."));
    const QMap<QString, QString> pendingFormulae = m_state.pendingFormulae;
    const QMap<QString, QString> pendingCasks = m_state.pendingCasks;
    change([pendingFormulae, pendingCasks](SimulatorState& state) {
        state.outdatedFormulae.insert(pendingFormulae);
        state.outdatedCasks.insert(pendingCasks);
        state.pendingFormulae.clear();
        state.pendingCasks.clear();
        state.lastUpdate = QDateTime::currentDateTimeUtc();
    });
    if (pendingFormulae.isEmpty() && pendingCasks.isEmpty()) {
        m_output->out(QStringLiteral("Already up-to-date."));
        return 0;
    }

    QStringList taps;
    for (auto it = pendingFormulae.begin(); it != pendingFormulae.end(); ++it) {
        taps.append(m_records.formulaTap(it.key()));
    }
    for (auto it = pendingCasks.begin(); it != pendingCasks.end(); ++it) {
        taps.append(m_records.caskTap(it.key()));
    }
    taps.removeDuplicates();
    taps.sort();
    QStringList report{QStringLiteral("Updated %1 (%2).")
                           .arg(SimulatorRecords::counted(taps.size(), QStringLiteral("tap"), QStringLiteral("taps")),
                                taps.join(QStringLiteral(", ")))};

    QStringList formulae;
    for (auto it = m_state.outdatedFormulae.begin(); it != m_state.outdatedFormulae.end(); ++it) {
        if (m_state.formulae.contains(it.key())) {
            formulae.append(it.key());
        }
    }
    QStringList casks;
    for (auto it = m_state.outdatedCasks.begin(); it != m_state.outdatedCasks.end(); ++it) {
        if (m_state.casks.contains(it.key())) {
            casks.append(it.key());
        }
    }
    if (!formulae.isEmpty()) {
        report << QStringLiteral("==> Outdated Formulae") << formulae.join(QLatin1Char('\n'));
    }
    if (!casks.isEmpty()) {
        report << QStringLiteral("==> Outdated Casks") << casks.join(QLatin1Char('\n'));
    }
    const qsizetype count = formulae.size() + casks.size();
    if (count > 0) {
        QStringList kinds;
        if (!formulae.isEmpty()) {
            kinds.append(SimulatorRecords::counted(formulae.size(), QStringLiteral("outdated formula"),
                                                   QStringLiteral("outdated formulae")));
        }
        if (!casks.isEmpty()) {
            kinds.append(SimulatorRecords::counted(casks.size(), QStringLiteral("outdated cask"),
                                                   QStringLiteral("outdated casks")));
        }
        const QString them = count == 1 ? QStringLiteral("it") : QStringLiteral("them");
        report << QString() << QStringLiteral("You have %1 installed.").arg(SimulatorRecords::sentence(kinds))
               << QStringLiteral("You can upgrade %1 with brew upgrade").arg(them)
               << QStringLiteral("or list %1 with brew outdated.").arg(them);
    }
    m_output->err(report.join(QLatin1Char('\n')));
    return 0;
}

int SimulatorCommands::cleanup()
{
    const QString prune = m_options.values.value(QStringLiteral("--prune"));
    if (m_options.has(QStringLiteral("--prune")) && prune != QStringLiteral("all")) {
        bool numeric = false;
        prune.toInt(&numeric);
        if (!numeric) {
            return fail(QStringLiteral("Error: Invalid usage: --prune= must be a number of days or \"all\"."));
        }
    }
    const bool all = prune == QStringLiteral("all");

    QStringList lines;
    qint64 freed = 0;
    for (auto it = m_state.formulae.begin(); it != m_state.formulae.end(); ++it) {
        for (const QString& old : std::as_const(it->oldVersions)) {
            const SimulatorRecords::Footprint size = SimulatorRecords::footprint(it.key() + old);
            lines.append(QStringLiteral("Removing: %1... (%2 files, %3)")
                             .arg(m_records.cellar(it.key(), old), QString::number(size.files),
                                  SimulatorRecords::readableSize(size.bytes)));
            freed += size.bytes;
        }
    }
    QStringList removedDownloads;
    for (const QString& download : std::as_const(m_state.downloads)) {
        const QString token = download.section(QStringLiteral("--"), 0, 0);
        const QString version = download.section(QStringLiteral("--"), 1);
        const bool current =
            m_state.formulae.value(token).version == version || m_state.casks.value(token).version == version;
        if (all || !current) {
            const qint64 bytes = 150 + SimulatorRecords::footprint(download).bytes % 100;
            lines.append(QStringLiteral("Removing: %1/%2.tar.gz... (%3)")
                             .arg(m_records.cachePath(), download, SimulatorRecords::readableSize(bytes)));
            freed += bytes;
            removedDownloads.append(download);
        }
    }
    if (lines.isEmpty()) {
        return 0;
    }
    lines.append(QStringLiteral("==> This operation has freed approximately %1 of disk space.")
                     .arg(SimulatorRecords::readableSize(freed)));
    m_output->out(lines.join(QLatin1Char('\n')));
    change([removedDownloads](SimulatorState& state) {
        for (SimulatorState::Formula& formula : state.formulae) {
            formula.oldVersions.clear();
        }
        for (const QString& download : removedDownloads) {
            state.downloads.removeAll(download);
        }
    });
    return 0;
}

int SimulatorCommands::autoremove()
{
    const QStringList lines = autoremoveLines(m_state.unneededFormulae());
    for (const QString& line : lines) {
        m_output->out(line);
    }
    return 0;
}
