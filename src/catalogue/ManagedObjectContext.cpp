#include "catalogue/ManagedObjectContext.h"

#include "catalogue/Cask.h"
#include "catalogue/Formula.h"
#include "catalogue/Tap.h"
#include "foundation/Threading.h"

#include <QCoreApplication>
#include <QStringList>
#include <algorithm>
#include <sqlite3.h>

namespace {

const QString contextDomain = QStringLiteral("ManagedObjectContext");

Error sqliteError(sqlite3* connection, int status)
{
    const char* message = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(status);
    return Error(QStringLiteral("SQLite"), status, QString::fromUtf8(message));
}

QString quoted(const QString& identifier)
{
    return QLatin1Char('"') + QString(identifier).replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
}

// One prepared statement, finalised on scope exit.
class Statement {
public:
    Statement(sqlite3* connection, const QString& sql)
        : m_connection(connection)
    {
        const QByteArray text = sql.toUtf8();
        m_status = sqlite3_prepare_v2(connection, text.constData(), int(text.size()), &m_statement, nullptr);
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool prepared() const { return m_status == SQLITE_OK; }
    Error error() const { return sqliteError(m_connection, sqlite3_errcode(m_connection)); }

    bool bind(const QVariantList& values)
    {
        reset();
        for (int i = 0; i < values.size(); ++i) {
            if (!bindValue(i, values.at(i))) {
                return false;
            }
        }
        return true;
    }

    void reset()
    {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }

    // index counts from 0. Text is copied, so value may go before the step.
    bool bindValue(int index, const QVariant& value)
    {
        switch (value.typeId()) {
        case QMetaType::UnknownType:
            return sqlite3_bind_null(m_statement, index + 1) == SQLITE_OK;
        case QMetaType::Bool:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            return sqlite3_bind_int64(m_statement, index + 1, value.toLongLong()) == SQLITE_OK;
        case QMetaType::Double:
        case QMetaType::Float:
            return sqlite3_bind_double(m_statement, index + 1, value.toDouble()) == SQLITE_OK;
        default:
            if (value.isNull()) {
                return sqlite3_bind_null(m_statement, index + 1) == SQLITE_OK;
            }
            if (value.typeId() == QMetaType::QString) {
                const QString& text = *static_cast<const QString*>(value.constData());
                const void* characters = text.isNull() ? static_cast<const void*>(u"") : text.utf16();
                return sqlite3_bind_text16(m_statement, index + 1, characters, int(text.size() * sizeof(char16_t)),
                                           SQLITE_TRANSIENT) == SQLITE_OK;
            }
            const QByteArray text = value.toString().toUtf8();
            return sqlite3_bind_text(m_statement, index + 1, text.constData(), int(text.size()), SQLITE_TRANSIENT) ==
                   SQLITE_OK;
        }
    }

    // Binds the string held by value without a copy: value must outlive the step.
    bool bindText(int index, const QVariant& value)
    {
        const QString& text = *static_cast<const QString*>(value.constData());
        // A null pointer would store NULL; an empty string is text.
        const void* characters = text.isNull() ? static_cast<const void*>(u"") : text.utf16();
        return sqlite3_bind_text16(m_statement, index + 1, characters, int(text.size() * sizeof(char16_t)),
                                   SQLITE_STATIC) == SQLITE_OK;
    }

    // SQLITE_ROW, SQLITE_DONE or an error status.
    int step() { return sqlite3_step(m_statement); }

    QVariant column(int index) const
    {
        switch (sqlite3_column_type(m_statement, index)) {
        case SQLITE_NULL:
            return {};
        case SQLITE_INTEGER:
            return qint64(sqlite3_column_int64(m_statement, index));
        case SQLITE_FLOAT:
            return sqlite3_column_double(m_statement, index);
        default:
            return QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(m_statement, index)),
                                     sqlite3_column_bytes(m_statement, index));
        }
    }

    // Steps to the end, collecting the first column of each row (the RETURNING rowid).
    Result<QList<qint64>> collectRowids()
    {
        QList<qint64> rowids;
        int status;
        while ((status = step()) == SQLITE_ROW) {
            rowids.append(sqlite3_column_int64(m_statement, 0));
        }
        if (status != SQLITE_DONE) {
            return error();
        }
        return rowids;
    }

private:
    sqlite3* m_connection;
    sqlite3_stmt* m_statement = nullptr;
    int m_status = SQLITE_OK;
};

Result<void> execute(sqlite3* connection, const char* sql)
{
    if (const int status = sqlite3_exec(connection, sql, nullptr, nullptr, nullptr); status != SQLITE_OK) {
        return sqliteError(connection, status);
    }
    return {};
}

// Runs work inside one write transaction, rolled back when it fails.
template <class T>
Result<T> inTransaction(sqlite3* connection, const std::function<Result<T>()>& work)
{
    if (const Result<void> begun = execute(connection, "BEGIN IMMEDIATE"); !begun) {
        return begun.error();
    }
    Result<T> result = work();
    if (!result) {
        execute(connection, "ROLLBACK");
        return result;
    }
    if (const Result<void> committed = execute(connection, "COMMIT"); !committed) {
        execute(connection, "ROLLBACK");
        return committed.error();
    }
    return result;
}

QString selectColumns(const EntityDescription& entity)
{
    QStringList columns{QStringLiteral("rowid")};
    for (const EntityDescription::Attribute& attribute : entity.attributes()) {
        columns.append(quoted(attribute.name));
    }
    return QStringLiteral("SELECT %1 FROM %2").arg(columns.join(QLatin1String(", ")), quoted(entity.name()));
}

QVariantHash readRow(const EntityDescription& entity, const Statement& statement)
{
    QVariantHash row;
    int index = 1;
    for (const EntityDescription::Attribute& attribute : entity.attributes()) {
        row.insert(attribute.name, entity.fromSql(attribute, statement.column(index++)));
    }
    return row;
}

QList<ObjectID> objectIDs(const QString& entity, const QList<qint64>& rowids)
{
    QList<ObjectID> ids;
    ids.reserve(rowids.size());
    for (const qint64 rowid : rowids) {
        ids.append({entity, rowid});
    }
    return ids;
}

} // namespace

ManagedObject* ManagedObjectContext::makeObject(const EntityDescription& entity)
{
    if (entity.name() == u"Formula") {
        return new Formula(entity, this);
    }
    if (entity.name() == u"Cask") {
        return new Cask(entity, this);
    }
    return new Tap(entity, this);
}

ManagedObjectContext::ManagedObjectContext(sqlite3* connection, QString storePath)
    : m_connection(connection)
    , m_storePath(std::move(storePath))
{}

ManagedObjectContext::~ManagedObjectContext()
{
    // The objects refer to this context; they go first.
    qDeleteAll(m_objects);
    qDeleteAll(m_retiredObjects);
    sqlite3_close_v2(m_connection);
}

Result<std::unique_ptr<ManagedObjectContext>> ManagedObjectContext::open(const QString& storePath)
{
    sqlite3* connection = nullptr;
    const QByteArray path = storePath.toUtf8();
    const int status =
        sqlite3_open_v2(path.constData(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (status != SQLITE_OK) {
        const Error error = sqliteError(connection, status);
        sqlite3_close_v2(connection);
        return error;
    }
    std::unique_ptr<ManagedObjectContext> context(new ManagedObjectContext(connection, storePath));
    // Background and view contexts write the same file; a writer waits for the other rather than failing.
    sqlite3_busy_timeout(connection, 30000);
    // With WAL this survives any crash of the program; only a power cut can lose the last commits, and the
    // catalogue is rebuilt by the next synchronisation anyway. Commits stop waiting for the disk.
    // A rebuild touches every page of a library; the default cache (2 MB) would spill them mid-transaction.
    if (const Result<void> relaxed = execute(connection, "PRAGMA synchronous = NORMAL; PRAGMA cache_size = -32768");
        !relaxed) {
        return relaxed.error();
    }
    if (const Result<void> registered = Predicate::registerSqlFunctions(connection); !registered) {
        return registered.error();
    }
    if (const Result<void> registered = SortDescriptor::registerSqlCollation(connection); !registered) {
        return registered.error();
    }
    return context;
}

Result<const EntityDescription*> ManagedObjectContext::entityNamed(const QString& name) const
{
    if (const EntityDescription* entity = EntityDescription::named(name)) {
        return entity;
    }
    return Error(contextDomain, UnknownEntity, QStringLiteral("Unknown entity \"%1\"").arg(name));
}

ManagedObject* ManagedObjectContext::objectForRow(const EntityDescription& entity, qint64 rowid,
                                                  const QVariantHash& row)
{
    const ObjectID id{entity.name(), rowid};
    if (ManagedObject* object = m_objects.value(id)) {
        object->absorbStoreValues(row);
        return object;
    }
    ManagedObject* object = makeObject(entity);
    object->m_objectID = id;
    object->absorbStoreValues(row);
    m_objects.insert(id, object);
    return object;
}

Result<QList<ManagedObject*>> ManagedObjectContext::fetch(const QString& entityName, const Predicate& predicate,
                                                          const QList<SortDescriptor>& sortDescriptors, int limit)
{
    const Result<const EntityDescription*> entity = entityNamed(entityName);
    if (!entity) {
        return entity.error();
    }
    const SqlColumnMap& columns = entity.value()->columns();
    const Result<SqlFragment> where = predicate.toSql(columns);
    if (!where) {
        return where.error();
    }
    // Keys without a column (derived values) can only be ordered in memory, and the limit must wait for that.
    const bool sortInStore = std::all_of(sortDescriptors.cbegin(), sortDescriptors.cend(),
                                         [&](const SortDescriptor& sort) { return columns.contains(sort.key); });
    QString sql = selectColumns(*entity.value()) + QLatin1String(" WHERE ") + where.value().where;
    if (sortInStore) {
        sql += QLatin1Char(' ') + SortDescriptor::toSql(sortDescriptors, columns);
        if (limit > 0) {
            sql += QStringLiteral(" LIMIT %1").arg(limit);
        }
    }
    Statement statement(m_connection, sql);
    if (!statement.prepared() || !statement.bind(where.value().bindings)) {
        return statement.error();
    }
    QList<ManagedObject*> objects;
    int status;
    while ((status = statement.step()) == SQLITE_ROW) {
        ManagedObject* object =
            objectForRow(*entity.value(), statement.column(0).toLongLong(), readRow(*entity.value(), statement));
        if (!object->isDeleted()) {
            objects.append(object);
        }
    }
    if (status != SQLITE_DONE) {
        return statement.error();
    }
    if (!sortInStore) {
        std::stable_sort(objects.begin(), objects.end(),
                         [comparator = SortDescriptor::comparator(sortDescriptors)](const ManagedObject* left,
                                                                                    const ManagedObject* right) {
                             return comparator(*left, *right);
                         });
        if (limit > 0 && objects.size() > limit) {
            objects.resize(limit);
        }
    }
    return objects;
}

Result<QList<ManagedObject*>> ManagedObjectContext::fetch(const QString& entity, const QString& format,
                                                          const QVariantList& arguments,
                                                          const QList<SortDescriptor>& sortDescriptors, int limit)
{
    const Result<Predicate> predicate = Predicate::parse(format, arguments);
    if (!predicate) {
        return predicate.error();
    }
    return fetch(entity, predicate.value(), sortDescriptors, limit);
}

ManagedObject* ManagedObjectContext::insertNewObject(const QString& entityName)
{
    const EntityDescription* entity = EntityDescription::named(entityName);
    if (!entity) {
        return nullptr;
    }
    ManagedObject* object = makeObject(*entity);
    object->m_objectID = {entity->name(), m_nextTemporaryRowid--};
    m_objects.insert(object->m_objectID, object);
    m_insertedObjects.append(object);
    return object;
}

void ManagedObjectContext::deleteObject(ManagedObject* object)
{
    if (!object || object->managedObjectContext() != this || object->isDeleted()) {
        return;
    }
    if (object->isInserted()) {
        // Never stored: nothing to remove from the store.
        m_insertedObjects.removeOne(object);
        forget(object);
        retire(object);
        return;
    }
    object->m_deleted = true;
    m_deletedObjects.append(object);
}

Result<ManagedObject*> ManagedObjectContext::existingObject(const ObjectID& id)
{
    if (ManagedObject* object = m_objects.value(id)) {
        return object;
    }
    const Result<const EntityDescription*> entity = entityNamed(id.entity);
    if (!entity) {
        return entity.error();
    }
    const Result<QHash<qint64, QVariantHash>> rows = readRows(*entity.value(), {id.rowid});
    if (!rows) {
        return rows.error();
    }
    if (!rows.value().contains(id.rowid)) {
        return Error(contextDomain, MissingRecord,
                     QStringLiteral("No %1 record with identifier %2").arg(id.entity).arg(id.rowid));
    }
    return objectForRow(*entity.value(), id.rowid, rows.value().value(id.rowid));
}

bool ManagedObjectContext::hasChanges() const
{
    return !m_insertedObjects.isEmpty() || !m_deletedObjects.isEmpty() ||
           std::any_of(m_objects.cbegin(), m_objects.cend(),
                       [](const ManagedObject* object) { return object->isUpdated(); });
}

Result<QHash<qint64, QVariantHash>> ManagedObjectContext::readRows(const EntityDescription& entity,
                                                                   const QList<qint64>& rowids)
{
    QHash<qint64, QVariantHash> rows;
    // Bounded by SQLite's parameter limit, and keeps each statement small.
    constexpr qsizetype chunkSize = 500;
    for (qsizetype start = 0; start < rowids.size(); start += chunkSize) {
        const QList<qint64> chunk = rowids.mid(start, chunkSize);
        QStringList placeholders(chunk.size(), QStringLiteral("?"));
        QVariantList bindings;
        for (const qint64 rowid : chunk) {
            bindings.append(rowid);
        }
        Statement statement(m_connection,
                            selectColumns(entity) +
                                QStringLiteral(" WHERE rowid IN (%1)").arg(placeholders.join(QLatin1String(", "))));
        if (!statement.prepared() || !statement.bind(bindings)) {
            return statement.error();
        }
        int status;
        while ((status = statement.step()) == SQLITE_ROW) {
            rows.insert(statement.column(0).toLongLong(), readRow(entity, statement));
        }
        if (status != SQLITE_DONE) {
            return statement.error();
        }
    }
    return rows;
}

Result<void> ManagedObjectContext::save()
{
    if (!hasChanges()) {
        return {};
    }
    struct Written {
        ManagedObject* object;
        qint64 rowid;
        QVariantHash row; // the record as it now is in the store
    };
    QList<Written> inserted;
    QList<Written> updated;
    QList<ManagedObject*> vanished; // changed here, but deleted in the store meanwhile
    const Result<void> saved = inTransaction<void>(m_connection, [&]() -> Result<void> {
        for (ManagedObject* object : std::as_const(m_insertedObjects)) {
            const EntityDescription& entity = object->entity();
            QStringList columns;
            QVariantList values;
            for (const EntityDescription::Attribute& attribute : entity.attributes()) {
                columns.append(quoted(attribute.name));
                values.append(entity.toSql(attribute, object->m_values.value(attribute.name)));
            }
            Statement statement(m_connection,
                                QStringLiteral("INSERT INTO %1 (%2) VALUES (%3) RETURNING rowid")
                                    .arg(quoted(entity.name()), columns.join(QLatin1String(", ")),
                                         QStringList(columns.size(), QStringLiteral("?")).join(QLatin1String(", "))));
            if (!statement.prepared() || !statement.bind(values)) {
                return statement.error();
            }
            const Result<QList<qint64>> rowids = statement.collectRowids();
            if (!rowids || rowids.value().size() != 1) {
                return rowids ? statement.error() : rowids.error();
            }
            inserted.append({object, rowids.value().constFirst(), object->m_values});
        }
        for (ManagedObject* object : std::as_const(m_objects)) {
            if (!object->isUpdated() || object->isInserted() || object->isDeleted()) {
                continue;
            }
            const EntityDescription& entity = object->entity();
            const qint64 rowid = object->objectID().rowid;
            const Result<QHash<qint64, QVariantHash>> current = readRows(entity, {rowid});
            if (!current) {
                return current.error();
            }
            if (!current.value().contains(rowid)) {
                vanished.append(object);
                continue;
            }
            QVariantHash row = current.value().value(rowid);
            QStringList assignments;
            QVariantList values;
            for (const QString& key : object->changedKeys()) {
                // Changed in the store since this object read it: the store's value stands.
                if (row.value(key) != object->m_committed.value(key)) {
                    continue;
                }
                assignments.append(quoted(key) + QLatin1String(" = ?"));
                values.append(entity.toSql(*entity.attribute(key), object->m_values.value(key)));
                row.insert(key, object->m_values.value(key));
            }
            if (!assignments.isEmpty()) {
                values.append(rowid);
                Statement statement(m_connection,
                                    QStringLiteral("UPDATE %1 SET %2 WHERE rowid = ?")
                                        .arg(quoted(entity.name()), assignments.join(QLatin1String(", "))));
                if (!statement.prepared() || !statement.bind(values) || statement.step() != SQLITE_DONE) {
                    return statement.error();
                }
            }
            updated.append({object, rowid, row});
        }
        for (ManagedObject* object : std::as_const(m_deletedObjects)) {
            Statement statement(m_connection,
                                QStringLiteral("DELETE FROM %1 WHERE rowid = ?").arg(quoted(object->entity().name())));
            if (!statement.prepared() || !statement.bind({object->objectID().rowid}) ||
                statement.step() != SQLITE_DONE) {
                return statement.error();
            }
        }
        return {};
    });
    if (!saved) {
        return saved;
    }

    ChangeSet changes;
    for (const Written& written : std::as_const(inserted)) {
        m_objects.remove(written.object->m_objectID);
        written.object->m_objectID.rowid = written.rowid;
        m_objects.insert(written.object->m_objectID, written.object);
        written.object->m_changedKeys.clear();
        written.object->absorbStoreValues(written.row);
        changes.inserted.append(written.object->m_objectID);
    }
    m_insertedObjects.clear();
    for (const Written& written : std::as_const(updated)) {
        written.object->absorbStoreValues(written.row);
        written.object->m_changedKeys.clear();
        changes.updated.append(written.object->m_objectID);
    }
    for (ManagedObject* object : std::exchange(m_deletedObjects, {})) {
        changes.deleted.append(object->m_objectID);
        forget(object);
        retire(object);
    }
    for (ManagedObject* object : std::as_const(vanished)) {
        forget(object);
        object->m_deleted = true;
        retire(object);
    }
    Q_EMIT didSave(changes);
    return {};
}

Result<QList<ObjectID>> ManagedObjectContext::batchDelete(const QString& entityName, const Predicate& predicate)
{
    const Result<const EntityDescription*> entity = entityNamed(entityName);
    if (!entity) {
        return entity.error();
    }
    const Result<SqlFragment> where = predicate.toSql(entity.value()->columns());
    if (!where) {
        return where.error();
    }
    const Result<QList<qint64>> rowids = inTransaction<QList<qint64>>(m_connection, [&]() -> Result<QList<qint64>> {
        // Listing first and deleting without RETURNING lets SQLite empty a whole table at once, as a rebuild does.
        Statement listing(m_connection,
                          QStringLiteral("SELECT rowid FROM %1 WHERE %2").arg(quoted(entityName), where.value().where));
        if (!listing.prepared() || !listing.bind(where.value().bindings)) {
            return listing.error();
        }
        const Result<QList<qint64>> rowids = listing.collectRowids();
        if (!rowids || rowids.value().isEmpty()) {
            return rowids;
        }
        const bool everything = where.value().where == u"1";
        Statement deletion(
            m_connection,
            QStringLiteral("DELETE FROM %1%2")
                .arg(quoted(entityName), everything ? QString() : QLatin1String(" WHERE ") + where.value().where));
        if (!deletion.prepared() || !deletion.bind(everything ? QVariantList() : where.value().bindings) ||
            deletion.step() != SQLITE_DONE) {
            return deletion.error();
        }
        return rowids;
    });
    if (!rowids) {
        return rowids.error();
    }
    return objectIDs(entityName, rowids.value());
}

Result<QList<ObjectID>> ManagedObjectContext::batchInsert(const QString& entityName, const BatchInsertHandler& handler)
{
    const Result<const EntityDescription*> entity = entityNamed(entityName);
    if (!entity) {
        return entity.error();
    }
    const QList<EntityDescription::Attribute>& attributes = entity.value()->attributes();
    QStringList columns;
    for (const EntityDescription::Attribute& attribute : attributes) {
        columns.append(quoted(attribute.name));
    }
    // A rebuild inserts thousands of rows, so each row is bound straight from the handler's values: no RETURNING
    // (the rowid is the connection's last insert), no intermediate row, and the handler's hash keeps its nodes.
    const Result<QList<qint64>> rowids = inTransaction<QList<qint64>>(m_connection, [&]() -> Result<QList<qint64>> {
        Statement statement(m_connection,
                            QStringLiteral("INSERT INTO %1 (%2) VALUES (%3)")
                                .arg(quoted(entityName), columns.join(QLatin1String(", ")),
                                     QStringList(columns.size(), QStringLiteral("?")).join(QLatin1String(", "))));
        if (!statement.prepared()) {
            return statement.error();
        }
        QList<qint64> inserted;
        QVariantHash values;
        QList<bool> bound(attributes.size());
        while (true) {
            for (QVariant& value : values) {
                value = QVariant();
            }
            if (!handler(values)) {
                break;
            }
            statement.reset();
            std::fill(bound.begin(), bound.end(), false);
            for (auto it = values.cbegin(); it != values.cend(); ++it) {
                if (!it.value().isValid()) {
                    continue; // left out this time
                }
                const auto attribute = std::find_if(attributes.cbegin(), attributes.cend(),
                                                    [&](const auto& candidate) { return candidate.name == it.key(); });
                if (attribute == attributes.cend()) {
                    return Error(contextDomain, UnknownAttribute,
                                 QStringLiteral("%1 has no attribute \"%2\"").arg(entityName, it.key()));
                }
                const auto index = std::distance(attributes.cbegin(), attribute);
                bound[index] = true;
                // Text is bound as the handler's own string, which outlives the step.
                const bool bindable =
                    attribute->type == EntityDescription::Type::Text && it.value().typeId() == QMetaType::QString
                        ? statement.bindText(int(index), it.value())
                        : statement.bindValue(int(index), entity.value()->toSql(*attribute, it.value()));
                if (!bindable) {
                    return statement.error();
                }
            }
            for (qsizetype index = 0; index < attributes.size(); ++index) {
                if (!bound[index] &&
                    !statement.bindValue(int(index), entity.value()->toSql(attributes[index], QVariant()))) {
                    return statement.error();
                }
            }
            if (statement.step() != SQLITE_DONE) {
                return statement.error();
            }
            inserted.append(sqlite3_last_insert_rowid(m_connection));
        }
        return inserted;
    });
    if (!rowids) {
        return rowids.error();
    }
    return objectIDs(entityName, rowids.value());
}

Result<QList<ObjectID>> ManagedObjectContext::batchUpdate(const QString& entityName, const Predicate& predicate,
                                                          const QVariantHash& propertiesToUpdate)
{
    const Result<const EntityDescription*> entity = entityNamed(entityName);
    if (!entity) {
        return entity.error();
    }
    const Result<SqlFragment> where = predicate.toSql(entity.value()->columns());
    if (!where) {
        return where.error();
    }
    QStringList assignments;
    QVariantList bindings;
    for (auto it = propertiesToUpdate.cbegin(); it != propertiesToUpdate.cend(); ++it) {
        const EntityDescription::Attribute* attribute = entity.value()->attribute(it.key());
        if (!attribute) {
            return Error(contextDomain, UnknownAttribute,
                         QStringLiteral("%1 has no attribute \"%2\"").arg(entityName, it.key()));
        }
        assignments.append(quoted(attribute->name) + QLatin1String(" = ?"));
        bindings.append(entity.value()->toSql(*attribute, it.value()));
    }
    if (assignments.isEmpty()) {
        return QList<ObjectID>();
    }
    bindings.append(where.value().bindings);
    const Result<QList<qint64>> rowids = inTransaction<QList<qint64>>(m_connection, [&]() -> Result<QList<qint64>> {
        Statement statement(m_connection,
                            QStringLiteral("UPDATE %1 SET %2 WHERE %3 RETURNING rowid")
                                .arg(quoted(entityName), assignments.join(QLatin1String(", ")), where.value().where));
        if (!statement.prepared() || !statement.bind(bindings)) {
            return statement.error();
        }
        return statement.collectRowids();
    });
    if (!rowids) {
        return rowids.error();
    }
    return objectIDs(entityName, rowids.value());
}

Result<void> ManagedObjectContext::mergeChanges(const ChangeSet& changes)
{
    QList<ManagedObject*> dropped;
    for (const ObjectID& id : changes.deleted) {
        if (ManagedObject* object = m_objects.value(id)) {
            dropped.append(object);
        }
    }
    QHash<QString, QList<qint64>> refreshed;
    for (const ObjectID& id : changes.updated) {
        if (m_objects.contains(id)) {
            refreshed[id.entity].append(id.rowid);
        }
    }
    for (auto it = refreshed.cbegin(); it != refreshed.cend(); ++it) {
        const Result<const EntityDescription*> entity = entityNamed(it.key());
        if (!entity) {
            return entity.error();
        }
        const Result<QHash<qint64, QVariantHash>> rows = readRows(*entity.value(), it.value());
        if (!rows) {
            return rows.error();
        }
        for (const qint64 rowid : it.value()) {
            ManagedObject* object = m_objects.value({it.key(), rowid});
            if (rows.value().contains(rowid)) {
                object->absorbStoreValues(rows.value().value(rowid));
            } else if (!dropped.contains(object)) {
                dropped.append(object); // gone from the store since
            }
        }
    }
    for (ManagedObject* object : std::as_const(dropped)) {
        object->m_deleted = true;
        forget(object);
    }
    Q_EMIT objectsDidChange(changes);
    retire(dropped);
    return {};
}

void ManagedObjectContext::retire(ManagedObject* object)
{
    retire(QList<ManagedObject*>{object});
}

void ManagedObjectContext::retire(const QList<ManagedObject*>& objects)
{
    if (objects.isEmpty()) {
        return;
    }
    // Whoever still holds the objects hears of their removal first, so they cannot go at once. Only the GUI thread
    // surely runs an event loop to delete them later, all in one event: a rebuild drops thousands at a time.
    // Elsewhere the context keeps them until it goes itself.
    if (Threading::isGuiThread() && thread() == QThread::currentThread()) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [objects] { qDeleteAll(objects); }, Qt::QueuedConnection);
    } else {
        m_retiredObjects.append(objects);
    }
}

void ManagedObjectContext::forget(ManagedObject* object)
{
    m_objects.remove(object->objectID());
    m_insertedObjects.removeOne(object);
    m_deletedObjects.removeOne(object);
}
