#include "app/OperationCommands.h"

#include "activities/Transcript.h"
#include "app/CommandLineTool.h"
#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/Formula.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Tap.h"
#include "diagnostics/Analytics.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "homebrew/HomebrewCommands.h"
#include "operations/AppOperations.h"
#include "operations/Maintenance.h"
#include "operations/Repositories.h"
#include "operations/ScriptOperations.h"
#include "search/SearchPredicates.h"

#include <QEventLoop>

namespace {

using Kind = PackageOperation::Kind;
using Persona = PackageOperation::Persona;

QUrl bundleUrl(const QString& key)
{
    return QUrl(Bundle::main().infoString(key).value_or(QString()));
}

// Why a known record does not take the operation; a fresh process has no busy records.
QString notOffered(Kind kind, Persona persona, const QString& token)
{
    const QString noun = persona == Persona::apps ? QStringLiteral("app") : QStringLiteral("script");
    switch (kind) {
    case Kind::install:
    case Kind::installInFolder:
        return QStringLiteral("the %1 '%2' is already installed").arg(noun, token);
    case Kind::upgrade:
        return QStringLiteral("the %1 '%2' has no upgrade").arg(noun, token);
    case Kind::uninstall:
    case Kind::reinstall:
    case Kind::move:
        break;
    }
    return QStringLiteral("the %1 '%2' is not installed").arg(noun, token);
}

} // namespace

OperationCommands::OperationCommands(QTextStream& out, QTextStream& err, bool confirm)
    : m_out(out)
    , m_err(err)
    , m_alerter(err, confirm)
    , m_state(Defaults::standard())
    , m_sources(std::make_unique<Homebrew::Sources>(
          Homebrew::Commands::shared(), bundleUrl(QStringLiteral("TW_HOMEBREW_API_URL")), HttpClient::shared()))
{}

OperationCommands::~OperationCommands() = default;

int OperationCommands::runPackages(Kind kind, Persona persona, const QStringList& tokens)
{
    const QString entity = persona == Persona::apps ? QStringLiteral("Cask") : QStringLiteral("Formula");
    ManagedObjectContext* context = CoreDataManager::shared().viewContext();
    QList<Package*> records;
    QStringList unknown;
    for (const QString& token : tokens) {
        const Result<QList<ManagedObject*>> found =
            context->fetch(entity, QStringLiteral("token == %@"), {token}, {}, 1);
        if (!found) {
            return fail(found.error().description());
        }
        auto* record = found.value().isEmpty() ? nullptr : qobject_cast<Package*>(found.value().constFirst());
        if (!record) {
            unknown.append(token);
        } else if (!records.contains(record)) {
            records.append(record);
        }
    }
    // Nothing runs on a mistyped list: half of an uninstall is worse than none.
    if (!unknown.isEmpty()) {
        const QString noun = persona == Persona::apps ? QStringLiteral("app") : QStringLiteral("script");
        for (const QString& token : std::as_const(unknown)) {
            m_err << "corvel-x: no " << noun << " '" << token << "' in the catalogue" << '\n';
        }
        m_err << "corvel-x: nothing was done (a package added to Homebrew lately needs 'corvel-x sync' first)"
              << Qt::endl;
        return CommandLineTool::failure;
    }

    bool skipped = false;
    records.removeIf([&](Package* record) {
        if (PackageOperation::isOfferedBy(kind, *record)) {
            return false;
        }
        m_err << "corvel-x: " << notOffered(kind, persona, record->token()) << Qt::endl;
        skipped = true;
        return true;
    });
    if (records.isEmpty()) {
        return CommandLineTool::failure;
    }

    int status = CommandLineTool::success;
    const PackageOperations::Services services{
        CoreDataManager::shared(), Homebrew::Commands::shared(), m_state, Defaults::standard(), m_alerter,
        Analytics::shared()};
    if (persona == Persona::apps) {
        AppOperations operations(services, *m_sources, m_folderChooser);
        QList<Cask*> apps;
        for (Package* record : std::as_const(records)) {
            apps.append(qobject_cast<Cask*>(record));
        }
        status = awaitPackages(operations, [&] {
            switch (kind) {
            case Kind::install:
                operations.install(apps);
                break;
            case Kind::uninstall:
                operations.uninstall(apps);
                break;
            case Kind::upgrade:
                operations.upgrade(apps);
                break;
            default:
                operations.reinstall(apps);
                break;
            }
        });
    } else {
        ScriptOperations operations(services);
        QList<Formula*> scripts;
        for (Package* record : std::as_const(records)) {
            scripts.append(qobject_cast<Formula*>(record));
        }
        status = awaitPackages(operations, [&] {
            switch (kind) {
            case Kind::install:
                operations.install(scripts);
                break;
            case Kind::uninstall:
                operations.uninstall(scripts);
                break;
            case Kind::upgrade:
                operations.upgrade(scripts);
                break;
            default:
                operations.reinstall(scripts);
                break;
            }
        });
    }
    return skipped ? CommandLineTool::failure : status;
}

int OperationCommands::upgradeAllApps()
{
    ArrayController apps(CoreDataManager::shared().viewContext(), QStringLiteral("Cask"));
    apps.setFilterPredicate(SearchPredicates::defaultFilter());
    apps.setSortDescriptors({SortDescriptor{QStringLiteral("name"), true}});
    if (const Result<void> fetched = apps.fetch(); !fetched) {
        return fail(fetched.error().description());
    }
    const PackageOperations::Services services{
        CoreDataManager::shared(), Homebrew::Commands::shared(), m_state, Defaults::standard(), m_alerter,
        Analytics::shared()};
    AppOperations operations(services, *m_sources, m_folderChooser);
    return awaitPackages(operations, [&] { operations.upgradeAll(apps); });
}

int OperationCommands::awaitPackages(PackageOperations& operations, const std::function<void()>& request)
{
    QEventLoop loop;
    bool done = false;
    bool failed = false;
    qsizetype running = 0;
    const auto finish = [&] {
        done = true;
        loop.exit();
    };
    streamTranscript(loop);
    QObject::connect(&operations, &PackageOperations::requestSettled, &loop, [&](Kind, const QStringList& tokens) {
        running = tokens.size();
        if (tokens.isEmpty()) {
            finish();
        }
    });
    QObject::connect(&operations, &PackageOperations::operationFinished, &loop,
                     [&](Kind kind, const QString& token, bool succeeded, const QString&) {
                         // A failure has been reported on standard error by the alert already.
                         if (succeeded) {
                             m_out << PackageOperation::successLine(kind, operations.persona(), token) << Qt::endl;
                         } else {
                             failed = true;
                         }
                         if (--running == 0) {
                             finish();
                         }
                     });
    request();
    if (!done) {
        loop.exec();
    }
    return failed || m_alerter.declined() ? CommandLineTool::failure : CommandLineTool::success;
}

int OperationCommands::tap(const QString& name)
{
    Repositories repositories(CoreDataManager::shared(), Homebrew::Commands::shared(), *m_sources, HttpClient::shared(),
                              bundleUrl(QStringLiteral("TW_GITHUB_API_URL")), m_state, m_alerter, Analytics::shared());
    QEventLoop loop;
    bool done = false;
    bool succeeded = false;
    streamTranscript(loop);
    QObject::connect(&repositories, &Repositories::finished, &loop,
                     [&](Repositories::Operation, const QString& tapName, bool ok, const QString&) {
                         if (ok) {
                             m_out << tapName << " repository installed" << Qt::endl;
                         }
                         succeeded = ok;
                         done = true;
                         loop.exit();
                     });
    repositories.install(name);
    if (!done) {
        loop.exec();
    }
    return succeeded ? CommandLineTool::success : CommandLineTool::failure;
}

int OperationCommands::untap(const QString& name)
{
    // brew keeps repository names in lower case and takes them in any.
    const Result<QList<ManagedObject*>> found = CoreDataManager::shared().viewContext()->fetch(
        QStringLiteral("Tap"), QStringLiteral("token == %@"), {name.toLower()}, {}, 1);
    if (!found) {
        return fail(found.error().description());
    }
    Tap* tap = found.value().isEmpty() ? nullptr : qobject_cast<Tap*>(found.value().constFirst());
    if (!tap || !tap->installed()) {
        return fail(QStringLiteral("the repository '%1' is not installed").arg(name));
    }

    Repositories repositories(CoreDataManager::shared(), Homebrew::Commands::shared(), *m_sources, HttpClient::shared(),
                              bundleUrl(QStringLiteral("TW_GITHUB_API_URL")), m_state, m_alerter, Analytics::shared());
    QEventLoop loop;
    bool succeeded = false;
    streamTranscript(loop);
    QObject::connect(&repositories, &Repositories::finished, &loop,
                     [&](Repositories::Operation, const QString& tapName, bool ok, const QString&) {
                         if (ok) {
                             m_out << tapName << " repository uninstalled" << Qt::endl;
                         }
                         succeeded = ok;
                         loop.exit();
                     });
    QObject::connect(&repositories, &Repositories::cancelled, &loop, [&loop] { loop.exit(); });
    if (!repositories.uninstall(tap)) {
        return fail(QStringLiteral("the repository '%1' cannot be removed now").arg(name));
    }
    // The question is answered from the event loop, so nothing has ended yet.
    loop.exec();
    return succeeded ? CommandLineTool::success : CommandLineTool::failure;
}

int OperationCommands::maintain(MaintenanceJob::Kind kind)
{
    Maintenance maintenance(Homebrew::Commands::shared(), Defaults::standard(), m_alerter);
    QEventLoop loop;
    bool succeeded = false;
    QObject::connect(&maintenance, &Maintenance::jobFinished, &loop,
                     [&](MaintenanceJob::Kind job, bool ok, const Error&) {
                         // These jobs run silently; the outcome is all there is to show.
                         if (ok) {
                             m_out << MaintenanceJob::successLogLine(job) << Qt::endl;
                         }
                         succeeded = ok;
                         loop.exit();
                     });
    if (!maintenance.perform(kind)) {
        return fail(QStringLiteral("the job is already running"));
    }
    loop.exec();
    return succeeded ? CommandLineTool::success : CommandLineTool::failure;
}

void OperationCommands::streamTranscript(QEventLoop& loop)
{
    Transcript& transcript = Transcript::shared();
    QObject::connect(&transcript, &Transcript::messagesAppended, &loop, [this, &transcript](int first, int last) {
        const QList<TranscriptMessage>& messages = transcript.messages();
        for (int i = first; i <= last && i < messages.size(); ++i) {
            m_out << messages.at(i).string() << '\n';
        }
        m_out.flush();
    });
}

int OperationCommands::fail(const QString& message)
{
    m_err << "corvel-x: " << message << Qt::endl;
    return CommandLineTool::failure;
}
