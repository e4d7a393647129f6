#include "operations/Repositories.h"

#include "activities/ApplicationState.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/Tap.h"
#include "diagnostics/Analytics.h"
#include "foundation/Alerter.h"
#include "foundation/HttpClient.h"
#include "foundation/Logging.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewCommands.h"
#include "operations/DefaultTaps.h"

#include <QPointer>
#include <QRegularExpression>
#include <memory>

namespace {

const QString tapEntity = QStringLiteral("Tap");
const QString errorDomain = QStringLiteral("Repositories");

enum ErrorCode {
    InvalidName = 1,
    InvalidGithubRepository = 2,
};

// What a worker hands back: the command's outcome and the records it changed behind the view context's back.
struct WorkOutcome {
    Result<void> result;
    ChangeSet changes;
};

QString verb(Repositories::Operation operation)
{
    return operation == Repositories::Operation::install ? QStringLiteral("Install") : QStringLiteral("Uninstall");
}

// Creates or updates the stored record of one repository from brew's answer, as the synchronisation fills it.
Result<void> store(ManagedObjectContext& context, const Homebrew::Tap& tap)
{
    Result<QList<ManagedObject*>> found = context.fetch(tapEntity, QStringLiteral("token == %@"), {tap.token}, {}, 1);
    if (!found) {
        return found.error();
    }
    ManagedObject* record = found.value().isEmpty() ? context.insertNewObject(tapEntity) : found.value().first();
    const auto optional = [](const std::optional<QString>& value) { return value ? QVariant(*value) : QVariant(); };
    record->setValue(u"token", tap.token);
    record->setValue(u"user", tap.user);
    record->setValue(u"repo", tap.repo);
    record->setValue(u"official", tap.official);
    record->setValue(u"remote", optional(tap.remote));
    record->setValue(u"installed", tap.installed);
    // A record without a "local" value counts as local, as in the synchronisation.
    record->setValue(u"local", tap.local.value_or(true));
    record->setValue(u"hasFormulas", tap.hasFormulas());
    record->setValue(u"hasCasks", tap.hasCasks());
    record->setValue(u"hasCommands", tap.hasCommands());
    return context.save();
}

// Drops a removed repository from the catalogue. Its apps and scripts go too, since no synchronisation lists them
// any more (brew refuses to untap while one of them is installed); the primary libraries' packages come from the
// public catalogue and stay.
Result<void> forget(ManagedObjectContext& context, const QString& name, ChangeSet& changes)
{
    Result<Predicate> tapPredicate = Predicate::parse(QStringLiteral("token == %@"), {name});
    if (!tapPredicate) {
        return tapPredicate.error();
    }
    Result<QList<ObjectID>> deleted = context.batchDelete(tapEntity, tapPredicate.value());
    if (!deleted) {
        return deleted.error();
    }
    changes.deleted.append(deleted.value());
    if (DefaultTaps::isPrimary(name)) {
        return {};
    }
    Result<Predicate> packagePredicate = Predicate::parse(QStringLiteral("tap == %@"), {name});
    if (!packagePredicate) {
        return packagePredicate.error();
    }
    for (const QString& entity : {QStringLiteral("Formula"), QStringLiteral("Cask")}) {
        deleted = context.batchDelete(entity, packagePredicate.value());
        if (!deleted) {
            return deleted.error();
        }
        changes.deleted.append(deleted.value());
    }
    return {};
}

} // namespace

Repositories::Repositories(CoreDataManager& store, const Homebrew::Commands& commands, const Homebrew::Sources& sources,
                           HttpClient& httpClient, QUrl githubApiBase, ApplicationState& state, Alerter& alerter,
                           Analytics& analytics, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_commands(commands)
    , m_sources(sources)
    , m_httpClient(httpClient)
    , m_githubApiBase(std::move(githubApiBase))
    , m_state(state)
    , m_alerter(alerter)
    , m_analytics(analytics)
{}

bool Repositories::isValidName(const QString& name)
{
    static const QRegularExpression shape(QStringLiteral("^[A-Za-z0-9_-]+/[A-Za-z0-9_-]+$"));
    return shape.match(name).hasMatch();
}

QString Repositories::progressText(Operation operation)
{
    return operation == Operation::install ? tr("Adding repository...") : tr("Uninstalling repository...");
}

void Repositories::install(const QString& name)
{
    if (!isValidName(name)) {
        fail(Operation::install, name,
             Error(errorDomain, InvalidName,
                   tr("\"%1\" is not a repository name: it must have the form owner/name").arg(name)));
        return;
    }
    perform(
        Operation::install, name,
        [this, name](ManagedObjectContext& background, ChangeSet&) {
            Result<Homebrew::Tap> tap = get(name);
            return tap ? store(background, tap.value()) : Result<void>(tap.error());
        },
        [this, name](bool busy) { setBusy(name, busy); });
}

void Repositories::perform(Operation operation, const QString& name, const StoreUpdate& afterCommand,
                           const std::function<void(bool busy)>& markRecord)
{
    const bool installing = operation == Operation::install;
    qCInfo(lcCorvel, installing ? "Installing %s" : "Uninstalling %s", qUtf8Printable(name));
    Q_EMIT started(operation, name);
    markRecord(true);
    m_state.setBusy(true);

    Result<std::unique_ptr<ManagedObjectContext>> created = m_store.newBackgroundContext();
    auto context = std::make_shared<Result<std::unique_ptr<ManagedObjectContext>>>(std::move(created));
    const Repositories* self = this;
    const QStringList arguments{installing ? QStringLiteral("tap") : QStringLiteral("untap"), name};
    Threading::runAsync<WorkOutcome>(
        [self, context, name, operation, arguments, afterCommand] {
            if (!*context) {
                return WorkOutcome{context->error(), {}};
            }
            ManagedObjectContext& background = *context->value();
            WorkOutcome outcome;
            outcome.result = self->m_commands.run(arguments, {}, name, verb(operation),
                                                  [&] { return afterCommand(background, outcome.changes); });
            context->value().reset();
            return outcome;
        },
        this,
        [this, name, operation, installing, markRecord](const WorkOutcome& outcome) {
            markRecord(false);
            m_state.setBusy(false);
            if (!outcome.changes.isEmpty()) {
                if (const Result<void> merged =
                        CoreDataManager::mergeChangesFromRemoteContextSave(outcome.changes, {m_store.viewContext()});
                    !merged) {
                    qCWarning(lcCorvel, "Unable to show the removal of %s: %s", qUtf8Printable(name),
                              qUtf8Printable(merged.error().description()));
                }
            }
            if (!outcome.result) {
                fail(operation, name, outcome.result.error());
                return;
            }
            qCInfo(lcCorvel, installing ? "%s repository installed" : "%s repository uninstalled",
                   qUtf8Printable(name));
            m_analytics.repositoryEvent(verb(operation), name);
            Q_EMIT finished(operation, name, true, QString());
        });
}

bool Repositories::uninstall(Tap* tap)
{
    if (!tap || !tap->uninstallable()) {
        return false;
    }
    const QString name = tap->token();
    Alert alert;
    alert.style = Alert::Style::Warning;
    alert.message = tr("Are you sure you want to uninstall '%1'?").arg(name);
    alert.buttons = {tr("Uninstall"), tr("Cancel")};
    QPointer<Tap> guard(tap);
    QPointer<Repositories> self(this);
    m_alerter.present(alert, [self, guard, name](AlertResponse response) {
        if (!self) {
            return;
        }
        // The record may have become busy (or gone) while the question was open.
        if (response.button != 0 || !guard || !guard->uninstallable()) {
            Q_EMIT self->cancelled(name);
            return;
        }
        self->runUninstall(guard);
    });
    return true;
}

void Repositories::runUninstall(Tap* tap)
{
    perform(
        Operation::uninstall, tap->token(),
        [name = tap->token()](ManagedObjectContext& background, ChangeSet& changes) {
            return forget(background, name, changes);
        },
        // Marked on the object itself: once untapped, its record is no longer in the store to be found by name.
        [guard = QPointer<Tap>(tap)](bool busy) {
            if (guard) {
                guard->setBusy(busy);
            }
        });
}

Result<Homebrew::Tap> Repositories::get(const QString& name) const
{
    return m_sources.tap(name);
}

std::optional<Repositories::GithubLocation> Repositories::githubLocation(const QString& tapName)
{
    if (!isValidName(tapName)) {
        return std::nullopt;
    }
    const QString owner = tapName.section(QLatin1Char('/'), 0, 0);
    const QString name = tapName.section(QLatin1Char('/'), 1, 1);
    const QString prefix = QStringLiteral("homebrew-");
    return GithubLocation{owner, name.startsWith(prefix) ? name : prefix + name};
}

QUrl Repositories::githubRepositoryUrl(const GithubLocation& location) const
{
    QUrl url = m_githubApiBase;
    QString path = url.path();
    while (path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    url.setPath(path + QStringLiteral("/repos/") + location.owner + QLatin1Char('/') + location.repository);
    return url;
}

Result<Homebrew::GithubRepository> Repositories::fetchGithubRepository(const QString& owner,
                                                                       const QString& repository) const
{
    const auto isSegment = [](const QString& part) {
        return !part.isEmpty() && !part.contains(QLatin1Char('/')) && part != u"." && part != u"..";
    };
    if (!isSegment(owner) || !isSegment(repository)) {
        return Error(errorDomain, InvalidGithubRepository,
                     tr("\"%1/%2\" is not a GitHub repository").arg(owner, repository));
    }
    const Result<QByteArray> body = m_httpClient.get(githubRepositoryUrl({owner, repository}));
    if (!body) {
        return body.error();
    }
    return RailsJSONDecoder().decode<Homebrew::GithubRepository>(body.value());
}

void Repositories::fetchDescription(const QString& tapName, QObject* context,
                                    std::function<void(std::optional<QString>)> done) const
{
    const Repositories* self = this;
    Threading::runAsync<std::optional<QString>>(
        [self, tapName]() -> std::optional<QString> {
            const std::optional<GithubLocation> location = githubLocation(tapName);
            if (!location) {
                return std::nullopt;
            }
            Result<Homebrew::GithubRepository> repository =
                self->fetchGithubRepository(location->owner, location->repository);
            if (!repository) {
                // Only a missing description in a list: not worth troubling anyone with.
                qCDebug(lcCorvel, "No description of %s from GitHub: %s", qUtf8Printable(tapName),
                        qUtf8Printable(repository.error().description()));
                return std::nullopt;
            }
            return repository.value().description;
        },
        context, std::move(done));
}

void Repositories::fail(Operation operation, const QString& name, const Error& error)
{
    Alert alert;
    alert.style = Alert::Style::Warning;
    if (operation == Operation::install) {
        qCWarning(lcCorvel, "Unable to install %s: %s", qUtf8Printable(name), qUtf8Printable(error.description()));
        alert.message = tr("Unable to install '%1'").arg(name);
    } else {
        qCWarning(lcCorvel, "Unable to uninstall %s: %s", qUtf8Printable(name), qUtf8Printable(error.description()));
        alert.message = tr("Unable to uninstall '%1'").arg(name);
    }
    alert.informativeText = error.description();
    alert.buttons = {tr("OK")};
    m_alerter.present(alert, [](AlertResponse) {});
    Q_EMIT finished(operation, name, false, error.description());
}

void Repositories::setBusy(const QString& name, bool busy)
{
    // brew takes tap names case-insensitively and stores them in lower case.
    Result<QList<ManagedObject*>> found =
        m_store.viewContext()->fetch(tapEntity, QStringLiteral("token == %@"), {name.toLower()}, {}, 1);
    if (found && !found.value().isEmpty()) {
        found.value().first()->setBusy(busy);
    }
}
