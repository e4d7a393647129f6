// Keeps the records of one entity that a table shows: those of the view context matching the table's view
// (fetch predicate) and search (filter predicate), in the table's order, following the context's changes.
#pragma once

#include "catalogue/ManagedObject.h"
#include "catalogue/ManagedObjectContext.h"
#include "catalogue/Predicate.h"
#include "catalogue/SortDescriptor.h"
#include "foundation/Result.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <array>

struct ChangeSet;

class ArrayController : public QObject {
    Q_OBJECT

public:
    ArrayController(ManagedObjectContext* context, const QString& entityName, QObject* parent = nullptr);
    ~ArrayController() override;

    ManagedObjectContext* managedObjectContext() const { return m_context; }
    const QString& entityName() const { return m_entityName; }

    // Reads the entity's objects from the context and arranges them; the store is read only here (and for
    // records other contexts insert later).
    Result<void> fetch();

    const Predicate& fetchPredicate() const { return m_fetchPredicate; }
    void setFetchPredicate(const Predicate& predicate);
    const Predicate& filterPredicate() const { return m_filterPredicate; }
    // Called on every keystroke of a search: narrows the already sorted content without sorting again.
    void setFilterPredicate(const Predicate& predicate);
    const QList<SortDescriptor>& sortDescriptors() const { return m_sortDescriptors; }
    void setSortDescriptors(const QList<SortDescriptor>& descriptors);

    // The objects matching both predicates, in the order of the descriptors, equal ones by token. Merges and
    // saves show at once; edits of single objects (busy, installed) once control returns to the event loop.
    const QList<ManagedObject*>& arrangedObjects() const { return m_arrangedObjects; }

Q_SIGNALS:
    // Around every change of arrangedObjects(), and only when it really changes; a model resets between the two.
    void arrangedObjectsAboutToChange();
    void arrangedObjectsChanged();
    // An object of the content announced a change of key, whether or not it is arranged right now; views repaint
    // its row without waiting for a rearrangement, which may not even move it.
    void arrangedObjectValueChanged(ManagedObject* object, const QString& key);

private:
    void contextObjectsDidChange(const ChangeSet& changes);
    void objectValueChanged(const QString& key);
    void adopt(ManagedObject* object);
    void forget(ManagedObject* object);
    void sortContent();
    void collectSearchText();
    void rearrange();

    QPointer<ManagedObjectContext> m_context;
    QString m_entityName;
    Predicate m_fetchPredicate;
    Predicate m_filterPredicate;
    QList<SortDescriptor> m_sortDescriptors;
    QSet<QString> m_sortKeys;
    struct Entry {
        ManagedObject* object;
        bool inView; // matches the fetch predicate
        // The object's folded token, name and description, within m_searchText.
        std::array<QStringView, 3> folded{};
    };
    // Every fetched object of the entity, kept sorted so that filtering never sorts.
    QList<Entry> m_content;
    QSet<const ManagedObject*> m_members;
    QList<ManagedObject*> m_arrangedObjects;
    // The folded search text of the whole content end to end in content order: a keystroke reads this one block
    // instead of the scattered objects, which costs far less than their cache misses.
    QString m_searchText;
    bool m_searchTextStale = true;
    bool m_contentSorted = true;
    bool m_viewStale = false;
    bool m_rearrangePending = false;
};
