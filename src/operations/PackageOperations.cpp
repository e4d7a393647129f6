#include "operations/PackageOperations.h"

#include "activities/ApplicationState.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/ManagedObjectContext.h"
#include "catalogue/Package.h"
#include "foundation/Logging.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewCommands.h"
#include "operations/OperationConfirmation.h"

namespace {

using Kind = PackageOperation::Kind;

// The whole of one command, on a worker: nothing here touches an object of the GUI thread.
Result<void> perform(CoreDataManager& store, const Homebrew::Commands& commands,
                     const std::function<Result<void>(Kind, ManagedObject&)>& refresh, Kind kind,
                     PackageOperation::Persona persona, const ObjectID& id, const Homebrew::Locations& locations)
{
    Result<std::unique_ptr<ManagedObjectContext>> context = store.newBackgroundContext();
    if (!context) {
        return context.error();
    }
    Result<ManagedObject*> found = context.value()->existingObject(id);
    if (!found) {
        return found.error();
    }
    ManagedObject& record = *found.value();
    return commands.run(PackageOperation::arguments(kind, persona, record.token()),
                        PackageOperation::extraArguments(kind, persona, locations), record.name(),
                        PackageOperation::activityKind(kind), [&]() -> Result<void> {
                            if (Result<void> refreshed = refresh(kind, record); !refreshed) {
                                return refreshed;
                            }
                            // The store hands the saved changes to the view context by itself.
                            return context.value()->save();
                        });
}

} // namespace

PackageOperations::PackageOperations(PackageOperation::Persona persona, const Services& services, Refresh refresh,
                                     QObject* parent)
    : QObject(parent)
    , m_persona(persona)
    , m_services(services)
    , m_refresh(std::move(refresh))
{
    qRegisterMetaType<PackageOperation::Kind>();
}

QList<QPointer<Package>> PackageOperations::offering(Kind kind, const QList<Package*>& records)
{
    QList<QPointer<Package>> result;
    for (Package* record : records) {
        if (record && PackageOperation::isOfferedBy(kind, *record)) {
            result.append(record);
        }
    }
    return result;
}

QStringList PackageOperations::names(const QList<QPointer<Package>>& records)
{
    QStringList result;
    for (const QPointer<Package>& record : records) {
        if (record) {
            result.append(record->name());
        }
    }
    return result;
}

void PackageOperations::confirmThen(Kind kind, const Alert& alert, std::function<void()> proceed)
{
    OperationConfirmation::ask(m_services.alerter, m_services.defaults, alert, this,
                               [this, kind, proceed = std::move(proceed)](bool confirmed) {
                                   if (confirmed) {
                                       proceed();
                                   } else {
                                       Q_EMIT requestSettled(kind, {});
                                   }
                               });
}

void PackageOperations::run(Kind kind, const QList<QPointer<Package>>& records, const Homebrew::Locations& locations)
{
    QStringList tokens;
    for (const QPointer<Package>& record : records) {
        if (record && PackageOperation::isOfferedBy(kind, *record)) {
            tokens.append(record->token());
            start(kind, record, locations);
        }
    }
    Q_EMIT requestSettled(kind, tokens);
}

void PackageOperations::start(Kind kind, Package* record, const Homebrew::Locations& locations)
{
    const QString token = record->token();
    qCInfo(lcCorvel, "%s", qUtf8Printable(PackageOperation::startLine(kind, token)));
    record->setBusy(true);
    m_services.state.setBusy(true);

    const QString tap = record->value(u"tap").toString();
    const std::optional<QString> repository = tap.isEmpty() ? std::nullopt : std::optional(tap);
    // Only the identity crosses to the worker; the record object belongs to the GUI thread's context.
    Threading::runInBackground([self = QPointer<PackageOperations>(this), store = &m_services.store,
                                commands = &m_services.commands, refresh = m_refresh, persona = m_persona, kind,
                                id = record->objectID(), locations, guard = QPointer<Package>(record), token,
                                repository] {
        const Result<void> outcome = perform(*store, *commands, refresh, kind, persona, id, locations);
        // The pointers are only read on the GUI thread, where their objects live and die.
        Threading::runOnGuiThread([self, kind, guard, token, repository, outcome] {
            if (self) {
                self->finish(kind, guard, token, repository, outcome);
            }
        });
    });
}

void PackageOperations::finish(Kind kind, const QPointer<Package>& record, const QString& token,
                               const std::optional<QString>& tap, const Result<void>& outcome)
{
    if (record) {
        record->setBusy(false);
    }
    // One flag for all operations: the first to end clears it, even while others still run.
    m_services.state.setBusy(false);
    if (outcome) {
        qCInfo(lcCorvel, "%s", qUtf8Printable(PackageOperation::successLine(kind, m_persona, token)));
        didSucceed(kind, token, tap);
        Q_EMIT operationFinished(kind, token, true, QString());
        return;
    }
    qCWarning(lcCorvel, "%s", qUtf8Printable(PackageOperation::failureLine(kind, token, outcome.error())));
    Alert alert;
    alert.style = Alert::Style::Warning;
    alert.message = PackageOperation::failureMessage(kind, token);
    // What went wrong in brew's own words is in the activity's transcript; the alert names the kind of failure.
    alert.informativeText = outcome.error().description();
    alert.buttons = {tr("OK")};
    m_services.alerter.present(alert, [](AlertResponse) {});
    Q_EMIT operationFinished(kind, token, false, outcome.error().description());
}
