// A working view of the store: one SQLite connection plus one object per record it handed out (keyed by
// ObjectID) with their unsaved changes; the view context serves the GUI thread, each background one a worker.
#pragma once

#include "catalogue/ChangeSet.h"
#include "catalogue/ManagedObject.h"
#include "catalogue/Predicate.h"
#include "catalogue/SortDescriptor.h"
#include "foundation/Result.h"

#include <QHash>
#include <QObject>
#include <functional>
#include <memory>

struct sqlite3;

class ManagedObjectContext : public QObject {
    Q_OBJECT

public:
    // Codes of the "ManagedObjectContext" domain; SQLite's own failures have the domain "SQLite".
    enum ErrorCode {
        UnknownEntity = 1,
        UnknownAttribute = 2,
        MissingRecord = 3,
    };

    // Opens a connection to an existing store file.
    static Result<std::unique_ptr<ManagedObjectContext>> open(const QString& storePath);
    ~ManagedObjectContext() override;

    // Records of entity matching predicate, in the order of the descriptors (store order without any), at most
    // limit of them (all for 0). Objects already registered here are returned as they are, with what changed in
    // the store since they were read absorbed as a merge would.
    Result<QList<ManagedObject*>> fetch(const QString& entity, const Predicate& predicate = {},
                                        const QList<SortDescriptor>& sortDescriptors = {}, int limit = 0);
    // Parses format with arguments first; a bad format is the fetch's error.
    Result<QList<ManagedObject*>> fetch(const QString& entity, const QString& format, const QVariantList& arguments,
                                        const QList<SortDescriptor>& sortDescriptors = {}, int limit = 0);

    // A new record, stored by the next save; nullptr for an unknown entity.
    ManagedObject* insertNewObject(const QString& entity);
    // Removes object from the store at the next save.
    void deleteObject(ManagedObject* object);
    ManagedObject* registeredObject(const ObjectID& id) const { return m_objects.value(id); }
    // The object of a stored record, read from the store unless registered already.
    Result<ManagedObject*> existingObject(const ObjectID& id);

    bool hasChanges() const;
    // Writes the unsaved changes in one transaction, if there are any. A change to an attribute that the store
    // changed meanwhile is dropped in favour of the store's value; the other changes are written.
    Result<void> save();

    // Each runs as one statement in one transaction, bypassing the objects of every context, and returns the
    // identifiers of the records it touched: merge them into the contexts that must see the change.
    Result<QList<ObjectID>> batchDelete(const QString& entity, const Predicate& predicate);
    // handler fills the attribute values of one new record per call and returns false (its values unused) once
    // the source is exhausted. Attributes it leaves out take their defaults.
    using BatchInsertHandler = std::function<bool(QVariantHash& values)>;
    Result<QList<ObjectID>> batchInsert(const QString& entity, const BatchInsertHandler& handler);
    Result<QList<ObjectID>> batchUpdate(const QString& entity, const Predicate& predicate,
                                        const QVariantHash& propertiesToUpdate);

    // Brings registered objects in line with changes made elsewhere: deleted ones are dropped (and deleted
    // later), updated ones re-read with the store winning per attribute; inserted ones need nothing to become
    // fetchable. objectsDidChange announces all of it, even when nothing here was registered.
    Result<void> mergeChanges(const ChangeSet& changes);

Q_SIGNALS:
    // After a merge. Objects listed as deleted are still alive during the emission.
    void objectsDidChange(const ChangeSet& changes);
    // After a successful save, with the permanent identifiers of the records it wrote.
    void didSave(const ChangeSet& changes);

private:
    ManagedObjectContext(sqlite3* connection, QString storePath);

    ManagedObject* makeObject(const EntityDescription& entity);
    Result<const EntityDescription*> entityNamed(const QString& name) const;
    ManagedObject* objectForRow(const EntityDescription& entity, qint64 rowid, const QVariantHash& row);
    Result<QHash<qint64, QVariantHash>> readRows(const EntityDescription& entity, const QList<qint64>& rowids);
    void forget(ManagedObject* object);
    void retire(ManagedObject* object);
    void retire(const QList<ManagedObject*>& objects);

    sqlite3* m_connection;
    QString m_storePath;
    QHash<ObjectID, ManagedObject*> m_objects;
    QList<ManagedObject*> m_insertedObjects;
    QList<ManagedObject*> m_deletedObjects;
    QList<ManagedObject*> m_retiredObjects;
    qint64 m_nextTemporaryRowid = -1;
};
