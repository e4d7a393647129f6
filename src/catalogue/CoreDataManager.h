// Owns the catalogue's SQLite store ("Corvel X.sqlite" in the application data folder) and hands out its
// contexts: the GUI thread's view context and background contexts, whose saves reach the view by themselves.
#pragma once

#include "catalogue/ChangeSet.h"
#include "catalogue/ManagedObjectContext.h"
#include "foundation/Result.h"

#include <QObject>
#include <QPointer>
#include <memory>

class CoreDataManager : public QObject {
    Q_OBJECT

public:
    // Bumped whenever the tables change shape; a store of any other version is rebuilt empty, which costs no
    // more than a synchronisation.
    static constexpr int schemaVersion = 1;

    explicit CoreDataManager(QString storePath = defaultStorePath(), QObject* parent = nullptr);
    ~CoreDataManager() override;

    // Created on first use, on the GUI thread.
    static CoreDataManager& shared();
    static QString defaultStorePath();

    const QString& storePath() const { return m_storePath; }

    // Opens the store, creating it (and its folder) or rebuilding an unknown schema as needed.
    Result<void> loadPersistentStores();

    // The contexts load the store on first use; a store that cannot be opened ends the program with
    // "Unresolved error " and the reason, since nothing works without it.
    ManagedObjectContext* viewContext();
    ManagedObjectContext* backgroundContext();
    // A context of its own for one worker. Fails with "Missing managed object context" when no connection to the
    // store can be had.
    Result<std::unique_ptr<ManagedObjectContext>> newBackgroundContext();

    // Applies identifiers changed elsewhere (by a batch request) to each listed context.
    static Result<void> mergeChangesFromRemoteContextSave(const ChangeSet& changes,
                                                          const QList<ManagedObjectContext*>& contexts);

private:
    void ensureLoaded();
    Result<std::unique_ptr<ManagedObjectContext>> makeContext();

    QString m_storePath;
    bool m_loaded = false;
    std::unique_ptr<ManagedObjectContext> m_viewContext;
    std::unique_ptr<ManagedObjectContext> m_backgroundContext;
};
