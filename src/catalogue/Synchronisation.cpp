#include "catalogue/Synchronisation.h"

#include "activities/Activity.h"
#include "activities/ActivityCenter.h"
#include "activities/Notifications.h"
#include "catalogue/CoreDataManager.h"
#include "catalogue/HomebrewSources.h"
#include "catalogue/ManagedObjectContext.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewCommands.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QMap>
#include <QSemaphore>
#include <atomic>
#include <iterator>
#include <optional>

namespace {

const QString tapEntity = QStringLiteral("Tap");
const QString caskEntity = QStringLiteral("Cask");
const QString formulaEntity = QStringLiteral("Formula");

// The repositories whose packages come from the public catalogue. brew lists their packages by bare token, and
// the catalogue's records do not always say which repository they belong to.
bool isCoreTap(const QString& tap)
{
    return tap == u"homebrew/core" || tap == u"homebrew/cask";
}

// A package as brew's lists print it: "owner/repository/token" outside the core repositories.
QString listedName(const QString& token, const std::optional<QString>& tap)
{
    return tap && !tap->isEmpty() && !isCoreTap(*tap) ? *tap + QLatin1Char('/') + token : token;
}

// The records that the names of a brew list stand for. A bare token matches the records of that token in any
// repository (brew prints the casks of other repositories bare as well); "owner/repository/token" matches only the
// record of that repository, so that a repository's namesake of a core package keeps its own flags.
Result<Predicate> namesPredicate(const QStringList& names)
{
    QStringList bare;
    QMap<QString, QStringList> qualified;
    for (const QString& name : names) {
        const qsizetype slash = name.lastIndexOf(QLatin1Char('/'));
        const QString tap = name.left(slash);
        const QString token = name.mid(slash + 1);
        if (slash < 0) {
            bare.append(name);
        } else if (isCoreTap(tap)) {
            bare.append(token);
        } else if (tap.count(QLatin1Char('/')) == 1 && !token.isEmpty()) {
            qualified[tap].append(token);
        } else {
            bare.append(name); // not a shape brew prints: it can only match a record of that very token
        }
    }

    QList<Predicate> alternatives;
    if (!bare.isEmpty()) {
        Result<Predicate> predicate = Predicate::parse(QStringLiteral("token in %@"), {bare});
        if (!predicate) {
            return predicate.error();
        }
        alternatives.append(predicate.value());
    }
    for (auto it = qualified.cbegin(); it != qualified.cend(); ++it) {
        Result<Predicate> predicate = Predicate::parse(QStringLiteral("tap == %@ AND token in %@"), {it.key(), *it});
        if (!predicate) {
            return predicate.error();
        }
        alternatives.append(predicate.value());
    }
    return Predicate::orPredicate(alternatives);
}

// The one stored record of a package that brew describes with its repository.
Result<Predicate> recordPredicate(const QString& token, const std::optional<QString>& tap)
{
    if (tap && !tap->isEmpty() && !isCoreTap(*tap)) {
        return Predicate::parse(QStringLiteral("token == %@ AND tap == %@"), {token, *tap});
    }
    return Predicate::parse(QStringLiteral("token == %@"), {token});
}

// Absent values are left out, so that the column takes its default (none).
void insertOptional(QVariantHash& values, const QString& key, const std::optional<QString>& value)
{
    if (value) {
        values.insert(key, *value);
    }
}

void insertWebsite(QVariantHash& values, const FailableCodable<QUrl>& website)
{
    if (website) {
        values.insert(QStringLiteral("website"), website->toString());
    }
}

void fillFormula(const Homebrew::Formula& formula, QVariantHash& values)
{
    values.insert(QStringLiteral("token"), formula.token);
    values.insert(QStringLiteral("name"), formula.name);
    insertOptional(values, QStringLiteral("tap"), formula.tap);
    insertOptional(values, QStringLiteral("desc"), formula.desc);
    insertWebsite(values, formula.website);
    insertOptional(values, QStringLiteral("license"), formula.license.optional());
}

void fillCask(const Homebrew::Cask& cask, QVariantHash& values)
{
    values.insert(QStringLiteral("token"), cask.token);
    values.insert(QStringLiteral("name"), cask.displayName());
    insertOptional(values, QStringLiteral("tap"), cask.tap);
    insertOptional(values, QStringLiteral("desc"), cask.desc);
    insertWebsite(values, cask.website);
    if (std::optional<QStringList> artifacts = cask.artifactTypes()) {
        values.insert(QStringLiteral("artifacts"), *artifacts);
    }
}

void fillTap(const Homebrew::Tap& tap, QVariantHash& values)
{
    values.insert(QStringLiteral("token"), tap.token);
    values.insert(QStringLiteral("user"), tap.user);
    values.insert(QStringLiteral("repo"), tap.repo);
    values.insert(QStringLiteral("official"), tap.official);
    insertOptional(values, QStringLiteral("remote"), tap.remote);
    values.insert(QStringLiteral("installed"), tap.installed);
    // Older brew versions leave "local" out; such a repository counts as local.
    values.insert(QStringLiteral("local"), tap.local.value_or(true));
    values.insert(QStringLiteral("hasFormulas"), tap.hasFormulas());
    values.insert(QStringLiteral("hasCasks"), tap.hasCasks());
    values.insert(QStringLiteral("hasCommands"), tap.hasCommands());
}

Error interruptedError()
{
    return Error(QStringLiteral("Synchronisation"), 1,
                 Synchronisation::tr("The synchronisation was stopped before it ended"));
}

} // namespace

// What one pass shares between the GUI thread and its worker. The worker alone uses the context and the sources;
// the GUI thread alone touches the view context, through the calls the worker hands it and waits for.
struct Synchronisation::Pass : std::enable_shared_from_this<Pass> {
    Pass(Synchronisation* owner, Form form, const Homebrew::Sources& sources, CoreDataManager& store)
        : owner(owner)
        , form(form)
        , sources(sources)
        , store(store)
    {}

    Result<void> runStep(SyncSteps::Step step);
    // Runs work on the GUI thread and waits for its outcome; fails at once once the pass is abandoned.
    Result<void> onGuiThread(std::function<Result<void>()> work);
    Result<void> merge(const ChangeSet& changes);

    template <class Record>
    Result<void> rebuildLibrary(const QString& entity, Result<std::vector<Record>> core,
                                Result<std::vector<Record>> (Homebrew::Sources::*tapRecords)() const,
                                void (*fill)(const Record&, QVariantHash&));
    template <class Record>
    Result<void> replace(const QString& entity, const std::vector<Record>& records,
                         void (*fill)(const Record&, QVariantHash&));
    Result<void> markInstalledApps();
    Result<void> markInstalledScripts();
    Result<void> flag(const QString& entity, const Result<QStringList>& names, const QString& attribute);

    // The context of every hop to the GUI thread; never dereferenced on the worker.
    Synchronisation* const owner;
    const Form form;
    const Homebrew::Sources& sources;
    CoreDataManager& store;
    std::unique_ptr<ManagedObjectContext> context;
    std::optional<Error> contextError;

    std::atomic<bool> abandoned = false;
    // Released by each call the worker waits for, and by abandon().
    QSemaphore wake;
    // Released once the worker has let go of everything it was given.
    QSemaphore stopped;
    // Written on the GUI thread before wake is released.
    Result<void> guiOutcome;
};

Result<void> Synchronisation::Pass::runStep(SyncSteps::Step step)
{
    switch (step) {
    case SyncSteps::taps: {
        Result<std::vector<Homebrew::Tap>> taps = sources.installedTaps();
        if (!taps) {
            return taps.error();
        }
        return replace(tapEntity, taps.value(), fillTap);
    }
    case SyncSteps::appsCore:
        return rebuildLibrary(caskEntity, sources.allCasks(), &Homebrew::Sources::tapCasks, fillCask);
    case SyncSteps::installedApps:
        return markInstalledApps();
    case SyncSteps::outdatedApps:
        return flag(caskEntity, sources.outdatedCasks(), QStringLiteral("outdated"));
    case SyncSteps::scriptsCore:
        return rebuildLibrary(formulaEntity, sources.allFormulae(), &Homebrew::Sources::tapFormulae, fillFormula);
    case SyncSteps::installedScripts:
        return markInstalledScripts();
    case SyncSteps::sourceScripts:
        return flag(formulaEntity, sources.leaves(), QStringLiteral("isLeaf"));
    case SyncSteps::outdatedScripts:
        return flag(formulaEntity, sources.outdatedFormulae(), QStringLiteral("outdated"));
    case SyncSteps::completed:
    case SyncSteps::failed:
        break;
    }
    return {};
}

Result<void> Synchronisation::Pass::onGuiThread(std::function<Result<void>()> work)
{
    if (abandoned) {
        return interruptedError();
    }
    Threading::runOnGuiThread(owner, [self = shared_from_this(), work = std::move(work)] {
        self->guiOutcome = work();
        self->wake.release();
    });
    wake.acquire();
    if (abandoned) {
        return interruptedError();
    }
    return guiOutcome;
}

Result<void> Synchronisation::Pass::merge(const ChangeSet& changes)
{
    if (changes.isEmpty()) {
        return {};
    }
    CoreDataManager* manager = &store;
    return onGuiThread([manager, changes] {
        return CoreDataManager::mergeChangesFromRemoteContextSave(changes, {manager->viewContext()});
    });
}

template <class Record>
Result<void> Synchronisation::Pass::rebuildLibrary(const QString& entity, Result<std::vector<Record>> core,
                                                   Result<std::vector<Record>> (Homebrew::Sources::*tapRecords)() const,
                                                   void (*fill)(const Record&, QVariantHash&))
{
    if (!core) {
        qCWarning(lcCorvel, "Unable to fetch core: %s", qUtf8Printable(core.error().description()));
        return core.error();
    }
    Result<std::vector<Record>> tapped = (sources.*tapRecords)();
    if (!tapped) {
        return tapped.error();
    }
    std::vector<Record>& records = core.value();
    records.insert(records.end(), std::make_move_iterator(tapped.value().begin()),
                   std::make_move_iterator(tapped.value().end()));
    return replace(entity, records, fill);
}

// No matching of old against new records: the whole entity is emptied and refilled, and the flag steps that follow
// set the flags afresh.
template <class Record>
Result<void> Synchronisation::Pass::replace(const QString& entity, const std::vector<Record>& records,
                                            void (*fill)(const Record&, QVariantHash&))
{
    Result<QList<ObjectID>> deleted = context->batchDelete(entity, Predicate());
    if (!deleted) {
        return deleted.error();
    }
    ChangeSet deletions;
    deletions.deleted = std::move(deleted.value());
    if (Result<void> merged = merge(deletions); !merged) {
        return merged;
    }

    std::size_t next = 0;
    Result<QList<ObjectID>> inserted = context->batchInsert(entity, [&](QVariantHash& values) {
        if (next == records.size()) {
            return false;
        }
        fill(records[next++], values);
        return true;
    });
    if (!inserted) {
        return inserted.error();
    }
    ChangeSet insertions;
    insertions.inserted = std::move(inserted.value());
    return merge(insertions);
}

Result<void> Synchronisation::Pass::markInstalledApps()
{
    Result<std::vector<Homebrew::Cask>> installed = sources.installedCasks();
    if (!installed) {
        return installed.error();
    }
    for (const Homebrew::Cask& cask : installed.value()) {
        Result<Predicate> predicate = recordPredicate(cask.token, cask.tap);
        if (!predicate) {
            return predicate.error();
        }
        Result<QList<ManagedObject*>> found = context->fetch(caskEntity, predicate.value(), {}, 1);
        if (!found) {
            return found.error();
        }
        // Installed from a repository that the library does not list: nothing to mark, and nothing is made up.
        if (found.value().isEmpty()) {
            continue;
        }
        ManagedObject* record = found.value().constFirst();
        record->setValue(u"version", cask.version ? QVariant(*cask.version) : QVariant());
        record->setValue(u"installed", true);
    }
    if (!context->hasChanges()) {
        return {};
    }
    if (Result<void> saved = context->save(); !saved) {
        return saved;
    }
    // The store merges a save into the view context by itself, queued on the GUI thread ahead of this empty call;
    // waiting for it keeps the next step from starting before the view has the new flags.
    return onGuiThread([] { return Result<void>(); });
}

Result<void> Synchronisation::Pass::markInstalledScripts()
{
    Result<std::vector<Homebrew::Formula>> installed = sources.installedFormulae();
    if (!installed) {
        return installed.error();
    }
    QStringList names;
    names.reserve(qsizetype(installed.value().size()));
    for (const Homebrew::Formula& formula : installed.value()) {
        names.append(listedName(formula.token, formula.tap));
    }
    return flag(formulaEntity, names, QStringLiteral("installed"));
}

// Only ever sets the flag: clearing it is left to the next rebuild of the library.
Result<void> Synchronisation::Pass::flag(const QString& entity, const Result<QStringList>& names,
                                         const QString& attribute)
{
    if (!names) {
        return names.error();
    }
    if (names.value().isEmpty()) {
        return {};
    }
    Result<Predicate> predicate = namesPredicate(names.value());
    if (!predicate) {
        return predicate.error();
    }
    Result<QList<ObjectID>> updated = context->batchUpdate(entity, predicate.value(), {{attribute, true}});
    if (!updated) {
        return updated.error();
    }
    ChangeSet changes;
    changes.updated = std::move(updated.value());
    return merge(changes);
}

Synchronisation::Synchronisation(CoreDataManager& store, const Homebrew::Sources& sources, Defaults& defaults,
                                 ActivityCenter& activityCenter, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_sources(sources)
    , m_defaults(defaults)
    , m_activityCenter(activityCenter)
{
    // The application waits for the shared pool when it ends: a pass must not be waiting for the GUI thread then.
    if (auto* app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, &Synchronisation::abandon);
    }
}

Synchronisation::~Synchronisation()
{
    if (const std::shared_ptr<Pass> pass = m_pass) {
        abandon();
        pass->stopped.acquire();
    }
}

Synchronisation& Synchronisation::shared()
{
    static Synchronisation* instance = [] {
        const QUrl catalogueBase(Bundle::main().infoString(QStringLiteral("TW_HOMEBREW_API_URL")).value_or(QString()));
        // Lives as long as the process, like the shared objects it uses.
        static const Homebrew::Sources sources(Homebrew::Commands::shared(), catalogueBase, HttpClient::shared());
        return new Synchronisation(CoreDataManager::shared(), sources, Defaults::standard(), ActivityCenter::shared(),
                                   QCoreApplication::instance());
    }();
    return *instance;
}

bool Synchronisation::start(Form form)
{
    if (m_running) {
        return false;
    }
    auto pass = std::make_shared<Pass>(this, form, m_sources, m_store);
    if (Result<std::unique_ptr<ManagedObjectContext>> context = m_store.newBackgroundContext()) {
        pass->context = std::move(context.value());
    } else {
        pass->contextError = context.error();
    }
    m_pass = pass;
    m_running = true;
    m_started = true;
    m_form = form;
    m_activityCenter.post(
        Activity::make(tr("Catalogue"), form == Form::full ? tr("Synchronise") : tr("Fast synchronise")));
    enter(SyncSteps::taps);
    Threading::runInBackground([pass] { run(pass); });
    return true;
}

QString Synchronisation::progressLabel() const
{
    return m_started ? SyncSteps::label(m_step) : QString();
}

void Synchronisation::enter(SyncSteps::Step step)
{
    m_step = step;
    m_progress = SyncSteps::progress(step, m_form == Form::fast);
    Q_EMIT stepChanged(step, m_progress);
    Q_EMIT Notifications::instance().synchronisationStepChanged(step, m_progress);
}

void Synchronisation::finish(const std::shared_ptr<Pass>& pass, bool succeeded, const QString& errorDescription)
{
    if (pass != m_pass) {
        return;
    }
    m_pass.reset();
    m_running = false;
    if (succeeded) {
        const QDateTime now = QDateTime::currentDateTime();
        if (pass->form == Form::full) {
            m_defaults.setValue(PreferenceKeys::LastSyncTime, now);
        }
        m_defaults.setValue(PreferenceKeys::LastFastSyncTime, now);
    }
    enter(succeeded ? SyncSteps::completed : SyncSteps::failed);
    Q_EMIT finished(succeeded, errorDescription);
    Q_EMIT Notifications::instance().synchronisationFinished(succeeded, errorDescription);
}

void Synchronisation::abandon()
{
    if (m_pass && !m_pass->abandoned.exchange(true)) {
        m_pass->wake.release();
    }
}

void Synchronisation::run(const std::shared_ptr<Pass>& pass)
{
    Synchronisation* owner = pass->owner;
    Result<void> outcome;
    if (pass->contextError) {
        outcome = *pass->contextError;
    }
    const QList<SyncSteps::Step>& sequence =
        pass->form == Form::full ? SyncSteps::fullSequence() : SyncSteps::fastSequence();
    for (qsizetype i = 0; outcome && i < sequence.size(); ++i) {
        const SyncSteps::Step step = sequence.at(i);
        if (step == SyncSteps::completed) {
            break;
        }
        if (pass->abandoned) {
            outcome = interruptedError();
            break;
        }
        // start() announced the first step itself.
        if (i > 0) {
            Threading::runOnGuiThread(owner, [owner, step] { owner->enter(step); });
        }
        outcome = pass->runStep(step);
    }
    if (!outcome) {
        qCWarning(lcCorvel, "Unable to synchronise: %s", qUtf8Printable(outcome.error().description()));
    }

    pass->context.reset();
    const bool succeeded = outcome.ok();
    const QString description = succeeded ? QString() : outcome.error().description();
    Threading::runOnGuiThread(owner,
                              [owner, pass, succeeded, description] { owner->finish(pass, succeeded, description); });
    pass->stopped.release();
}
