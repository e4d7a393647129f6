#include "catalogue/CoreDataManager.h"

#include "catalogue/CoreDataManagerError.h"
#include "foundation/Threading.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <sqlite3.h>

namespace {

Error sqliteError(sqlite3* connection, int status)
{
    return Error(QStringLiteral("SQLite"), status,
                 QString::fromUtf8(connection ? sqlite3_errmsg(connection) : sqlite3_errstr(status)));
}

Result<void> execute(sqlite3* connection, const QString& sql)
{
    const QByteArray text = sql.toUtf8();
    if (const int status = sqlite3_exec(connection, text.constData(), nullptr, nullptr, nullptr); status != SQLITE_OK) {
        return sqliteError(connection, status);
    }
    return {};
}

Result<qint64> queryInteger(sqlite3* connection, const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    int status = sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
    if (status == SQLITE_OK) {
        status = sqlite3_step(statement);
    }
    if (status != SQLITE_ROW) {
        const Error error = sqliteError(connection, status);
        sqlite3_finalize(statement);
        return error;
    }
    const qint64 value = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return value;
}

// The tables of this version exist exactly when the version mark is ours and every entity has its table.
Result<bool> hasCurrentSchema(sqlite3* connection)
{
    const Result<qint64> version = queryInteger(connection, "PRAGMA user_version");
    if (!version) {
        return version.error();
    }
    if (version.value() != CoreDataManager::schemaVersion) {
        return false;
    }
    const Result<qint64> tables = queryInteger(
        connection, "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name IN ('Formula', 'Cask', 'Tap')");
    if (!tables) {
        return tables.error();
    }
    return tables.value() == EntityDescription::all().size();
}

Result<void> rebuildSchema(sqlite3* connection)
{
    QStringList statements{QStringLiteral("BEGIN IMMEDIATE")};
    for (const EntityDescription* entity : EntityDescription::all()) {
        statements.append(QStringLiteral("DROP TABLE IF EXISTS \"%1\"").arg(entity->name()));
        statements.append(entity->createTableSql());
        // Synchronisation and the operations find records by token.
        statements.append(QStringLiteral("CREATE INDEX \"%1_token\" ON \"%1\" (\"token\")").arg(entity->name()));
    }
    statements.append(QStringLiteral("PRAGMA user_version = %1").arg(CoreDataManager::schemaVersion));
    statements.append(QStringLiteral("COMMIT"));
    if (const Result<void> built = execute(connection, statements.join(QLatin1String(";\n"))); !built) {
        execute(connection, QStringLiteral("ROLLBACK"));
        return built;
    }
    return {};
}

} // namespace

CoreDataManager::CoreDataManager(QString storePath, QObject* parent)
    : QObject(parent)
    , m_storePath(std::move(storePath))
{}

CoreDataManager::~CoreDataManager() = default;

CoreDataManager& CoreDataManager::shared()
{
    static CoreDataManager* manager = new CoreDataManager(defaultStorePath(), QCoreApplication::instance());
    return *manager;
}

QString CoreDataManager::defaultStorePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/Corvel X.sqlite");
}

Result<void> CoreDataManager::loadPersistentStores()
{
    if (m_loaded) {
        return {};
    }
    const QString folder = QFileInfo(m_storePath).absolutePath();
    if (!QDir().mkpath(folder)) {
        return Error(QStringLiteral("CoreDataManager"), 1, QStringLiteral("Cannot create the folder %1").arg(folder));
    }
    sqlite3* connection = nullptr;
    const QByteArray path = m_storePath.toUtf8();
    int status = sqlite3_open_v2(path.constData(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    const auto fail = [&](const Error& error) {
        sqlite3_close_v2(connection);
        return Result<void>(error);
    };
    if (status != SQLITE_OK) {
        return fail(sqliteError(connection, status));
    }
    sqlite3_busy_timeout(connection, 30000);
    // WAL lets the view context read while a background context writes.
    if (const Result<void> wal = execute(connection, QStringLiteral("PRAGMA journal_mode = WAL")); !wal) {
        return fail(wal.error());
    }
    const Result<bool> current = hasCurrentSchema(connection);
    if (!current) {
        return fail(current.error());
    }
    if (!current.value()) {
        if (const Result<void> rebuilt = rebuildSchema(connection); !rebuilt) {
            return fail(rebuilt.error());
        }
    }
    sqlite3_close_v2(connection);
    m_loaded = true;
    return {};
}

void CoreDataManager::ensureLoaded()
{
    if (const Result<void> loaded = loadPersistentStores(); !loaded) {
        qFatal("Unresolved error %s", qUtf8Printable(loaded.error().description()));
    }
}

Result<std::unique_ptr<ManagedObjectContext>> CoreDataManager::makeContext()
{
    if (!m_loaded) {
        return CoreDataManagerError::missingManagedObjectContext();
    }
    Result<std::unique_ptr<ManagedObjectContext>> context = ManagedObjectContext::open(m_storePath);
    if (!context) {
        return CoreDataManagerError::missingManagedObjectContext();
    }
    // Background saves reach the view context by themselves, on its thread.
    ManagedObjectContext* background = context.value().get();
    // Connected to this manager so that a context outliving it stops merging.
    connect(
        background, &ManagedObjectContext::didSave, this,
        [this](const ChangeSet& changes) {
            Threading::runOnGuiThread(this, [this, changes] {
                if (m_viewContext) {
                    m_viewContext->mergeChanges(changes);
                }
            });
        },
        Qt::DirectConnection);
    return context;
}

ManagedObjectContext* CoreDataManager::viewContext()
{
    if (!m_viewContext) {
        ensureLoaded();
        Result<std::unique_ptr<ManagedObjectContext>> context = ManagedObjectContext::open(m_storePath);
        if (!context) {
            qFatal("Unresolved error %s", qUtf8Printable(context.error().description()));
        }
        m_viewContext = std::move(context.value());
    }
    return m_viewContext.get();
}

ManagedObjectContext* CoreDataManager::backgroundContext()
{
    if (!m_backgroundContext) {
        ensureLoaded();
        Result<std::unique_ptr<ManagedObjectContext>> context = makeContext();
        if (!context) {
            qFatal("Unresolved error %s", qUtf8Printable(context.error().description()));
        }
        m_backgroundContext = std::move(context.value());
    }
    return m_backgroundContext.get();
}

Result<std::unique_ptr<ManagedObjectContext>> CoreDataManager::newBackgroundContext()
{
    if (const Result<void> loaded = loadPersistentStores(); !loaded) {
        return CoreDataManagerError::missingManagedObjectContext();
    }
    return makeContext();
}

Result<void> CoreDataManager::mergeChangesFromRemoteContextSave(const ChangeSet& changes,
                                                                const QList<ManagedObjectContext*>& contexts)
{
    for (ManagedObjectContext* context : contexts) {
        if (!context) {
            return CoreDataManagerError::missingManagedObjectContext();
        }
        if (const Result<void> merged = context->mergeChanges(changes); !merged) {
            return merged;
        }
    }
    return {};
}
