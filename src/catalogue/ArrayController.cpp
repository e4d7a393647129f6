#include "catalogue/ArrayController.h"

#include "catalogue/ChangeSet.h"
#include "catalogue/ManagedObjectContext.h"

#include <QSet>
#include <algorithm>

namespace {

// Beyond this many new records one fetch of the whole entity is cheaper than reading them one by one.
constexpr qsizetype individualInsertLimit = 64;

// The keys whose folded text the controller keeps, in the order of Entry::folded.
constexpr std::array<QStringView, 3> searchKeys{u"token", u"name", u"desc"};

// An object as the filter predicate sees it: its searchable text from the controller's copy, the rest from the
// object itself.
class SearchRecord final : public KeyValueRecord {
public:
    SearchRecord(const ManagedObject& object, const std::array<QStringView, 3>& folded)
        : m_object(object)
        , m_folded(folded)
    {}

    QVariant value(QStringView keyPath) const override { return m_object.value(keyPath); }

    std::optional<QStringView> foldedValue(QStringView keyPath) const override
    {
        for (std::size_t i = 0; i < searchKeys.size(); ++i) {
            if (keyPath == searchKeys[i]) {
                return m_folded[i];
            }
        }
        return m_object.foldedValue(keyPath);
    }

private:
    const ManagedObject& m_object;
    const std::array<QStringView, 3>& m_folded;
};

} // namespace

ArrayController::ArrayController(ManagedObjectContext* context, const QString& entityName, QObject* parent)
    : QObject(parent)
    , m_context(context)
    , m_entityName(entityName)
{
    if (m_context) {
        connect(m_context, &ManagedObjectContext::objectsDidChange, this, &ArrayController::contextObjectsDidChange);
        connect(m_context, &ManagedObjectContext::didSave, this, &ArrayController::contextObjectsDidChange);
    }
}

ArrayController::~ArrayController() = default;

Result<void> ArrayController::fetch()
{
    if (!m_context) {
        return Error(QStringLiteral("ArrayController"), 1, QStringLiteral("The managed object context is gone."));
    }
    const Result<QList<ManagedObject*>> fetched = m_context->fetch(m_entityName);
    if (!fetched) {
        return fetched.error();
    }
    for (ManagedObject* object : fetched.value()) {
        adopt(object);
    }
    m_contentSorted = false;
    m_viewStale = true;
    rearrange();
    return {};
}

void ArrayController::setFetchPredicate(const Predicate& predicate)
{
    m_fetchPredicate = predicate;
    m_viewStale = true;
    rearrange();
}

void ArrayController::setFilterPredicate(const Predicate& predicate)
{
    m_filterPredicate = predicate;
    rearrange();
}

void ArrayController::setSortDescriptors(const QList<SortDescriptor>& descriptors)
{
    if (descriptors == m_sortDescriptors) {
        return;
    }
    m_sortDescriptors = descriptors;
    m_sortKeys.clear();
    for (const SortDescriptor& descriptor : descriptors) {
        m_sortKeys.insert(descriptor.key);
    }
    m_contentSorted = false;
    rearrange();
}

void ArrayController::contextObjectsDidChange(const ChangeSet& changes)
{
    // Objects the context dropped are still alive now but gone from its registry, so they are recognised by
    // their state rather than looked up.
    const QSet<ObjectID> deleted(changes.deleted.cbegin(), changes.deleted.cend());
    const auto removedFrom = std::remove_if(m_content.begin(), m_content.end(), [&](const Entry& entry) {
        return entry.object->isDeleted() || deleted.contains(entry.object->objectID());
    });
    for (auto it = removedFrom; it != m_content.end(); ++it) {
        disconnect(it->object, nullptr, this, nullptr);
        m_members.remove(it->object);
    }
    m_content.erase(removedFrom, m_content.end());
    m_searchTextStale = true;

    QList<ObjectID> inserted;
    for (const ObjectID& id : changes.inserted) {
        if (id.entity == m_entityName) {
            inserted.append(id);
        }
    }
    if (inserted.size() > individualInsertLimit) {
        const Result<QList<ManagedObject*>> fetched = m_context->fetch(m_entityName);
        if (fetched) {
            for (ManagedObject* object : fetched.value()) {
                adopt(object);
            }
        }
    } else {
        for (const ObjectID& id : std::as_const(inserted)) {
            const Result<ManagedObject*> object = m_context->existingObject(id);
            if (object) {
                adopt(object.value());
            }
        }
    }
    // Updated records may have changed anything the order or the predicates read.
    m_contentSorted = false;
    m_viewStale = true;
    rearrange();
}

void ArrayController::objectValueChanged(const QString& key)
{
    auto* object = qobject_cast<ManagedObject*>(sender());
    // A cask's picture arrives for each visible row; no filter or order reads it, so the arrangement stands.
    if (key == u"icon") {
        if (object) {
            Q_EMIT arrangedObjectValueChanged(object, key);
        }
        return;
    }
    if (key == u"token" || m_sortKeys.contains(key)) {
        m_contentSorted = false;
    }
    if (std::find(searchKeys.cbegin(), searchKeys.cend(), key) != searchKeys.cend()) {
        m_searchTextStale = true;
    }
    m_viewStale = true;
    if (object) {
        Q_EMIT arrangedObjectValueChanged(object, key);
    }
    // Actions often touch many objects in a row (all marked busy); one arrangement afterwards covers them all.
    if (!m_rearrangePending) {
        m_rearrangePending = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_rearrangePending = false;
                rearrange();
            },
            Qt::QueuedConnection);
    }
}

void ArrayController::adopt(ManagedObject* object)
{
    if (object == nullptr || object->isDeleted() || object->entity().name() != m_entityName ||
        m_members.contains(object)) {
        return;
    }
    m_members.insert(object);
    m_content.append({object, false});
    m_searchTextStale = true;
    m_contentSorted = false;
    connect(object, &ManagedObject::valueChanged, this, &ArrayController::objectValueChanged);
    connect(object, &QObject::destroyed, this, [this, object] { forget(object); });
}

void ArrayController::forget(ManagedObject* object)
{
    // Only reached if the object goes without the context announcing it; never leave a dangling pointer behind.
    if (!m_members.remove(object)) {
        return;
    }
    m_content.removeIf([object](const Entry& entry) { return entry.object == object; });
    m_searchTextStale = true;
    if (m_arrangedObjects.contains(object)) {
        Q_EMIT arrangedObjectsAboutToChange();
        m_arrangedObjects.removeAll(object);
        Q_EMIT arrangedObjectsChanged();
    }
}

void ArrayController::sortContent()
{
    const SortDescriptor::Comparator byDescriptors = SortDescriptor::comparator(m_sortDescriptors);
    std::stable_sort(m_content.begin(), m_content.end(), [&](const Entry& left, const Entry& right) {
        if (byDescriptors(*left.object, *right.object)) {
            return true;
        }
        if (byDescriptors(*right.object, *left.object)) {
            return false;
        }
        return left.object->token() < right.object->token();
    });
    m_contentSorted = true;
    m_searchTextStale = true;
}

void ArrayController::collectSearchText()
{
    qsizetype length = 0;
    for (const Entry& entry : std::as_const(m_content)) {
        for (const QStringView key : searchKeys) {
            length += entry.object->foldedValue(key).value_or(QStringView()).size();
        }
    }
    m_searchText.clear();
    m_searchText.reserve(length);
    for (const Entry& entry : std::as_const(m_content)) {
        for (const QStringView key : searchKeys) {
            m_searchText += entry.object->foldedValue(key).value_or(QStringView());
        }
    }
    // Views only once the buffer is complete: it must not move under them.
    qsizetype start = 0;
    for (Entry& entry : m_content) {
        for (std::size_t i = 0; i < searchKeys.size(); ++i) {
            const qsizetype size = entry.object->foldedValue(searchKeys[i]).value_or(QStringView()).size();
            entry.folded[i] = QStringView(m_searchText).sliced(start, size);
            start += size;
        }
    }
    m_searchTextStale = false;
}

void ArrayController::rearrange()
{
    if (!m_contentSorted) {
        sortContent();
    }
    if (m_viewStale) {
        // The view's predicate reads plain attributes, which cost a lookup each: judge it only when the records
        // or the predicate change, so that a keystroke evaluates the search alone.
        for (Entry& entry : m_content) {
            entry.inView = m_fetchPredicate.evaluate(*entry.object);
        }
        m_viewStale = false;
    }
    if (m_searchTextStale) {
        collectSearchText();
    }
    QList<ManagedObject*> arranged;
    arranged.reserve(m_content.size());
    for (const Entry& entry : std::as_const(m_content)) {
        if (entry.inView && m_filterPredicate.evaluate(SearchRecord(*entry.object, entry.folded))) {
            arranged.append(entry.object);
        }
    }
    if (arranged == m_arrangedObjects) {
        return;
    }
    Q_EMIT arrangedObjectsAboutToChange();
    m_arrangedObjects.swap(arranged);
    Q_EMIT arrangedObjectsChanged();
}
