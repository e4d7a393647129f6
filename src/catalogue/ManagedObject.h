// A catalogue record as one store context sees it: stored values (unsaved changes apart from what the store
// had), transient busy state, and the key-value access and change announcements predicates and views rely on.
#pragma once

#include "catalogue/EntityDescription.h"
#include "catalogue/KeyValueRecord.h"
#include "catalogue/ObjectID.h"

#include <QObject>
#include <QSet>
#include <QVariantHash>

class ManagedObjectContext;

class ManagedObject : public QObject, public KeyValueRecord {
    Q_OBJECT

public:
    const EntityDescription& entity() const { return m_entity; }
    const ObjectID& objectID() const { return m_objectID; }
    ManagedObjectContext* managedObjectContext() const { return m_context; }

    // Unsaved state within the context.
    bool isInserted() const { return m_objectID.isTemporary(); }
    bool isUpdated() const { return !m_changedKeys.isEmpty(); }
    bool isDeleted() const { return m_deleted; }
    const QSet<QString>& changedKeys() const { return m_changedKeys; }

    QVariant value(QStringView keyPath) const override;
    std::optional<QStringView> foldedValue(QStringView keyPath) const override;

    // Writes a stored attribute (noting it as an unsaved change) or a writable derived key. False for a key that
    // cannot be written, which stays unchanged.
    bool setValue(QStringView key, const QVariant& value);

    QString token() const { return storedText(u"token"); }
    QString name() const { return storedText(u"name"); }
    bool isBusy() const { return m_busy; }
    void setBusy(bool busy);

Q_SIGNALS:
    // The value at key has (or may have) changed; derived keys are announced along with what they depend on.
    void valueChanged(const QString& key);

protected:
    ManagedObject(const EntityDescription& entity, ManagedObjectContext* context);

    QVariant storedValue(QStringView name) const { return m_values.value(name.toString()); }
    QString storedText(QStringView name) const { return m_values.value(name.toString()).toString(); }
    bool storedFlag(QStringView name) const { return m_values.value(name.toString()).toBool(); }

    // Values beyond the stored attributes and isBusy; invalid for an unknown key.
    virtual QVariant derivedValue(QStringView keyPath) const;
    virtual bool setDerivedValue(QStringView key, const QVariant& value);
    // The derived keys to announce when key changes.
    virtual QStringList keysDerivedFrom(QStringView key) const;

private:
    friend class ManagedObjectContext;

    // Sets the value read from the store for each attribute: an attribute changed here but also changed in the
    // store since it was read takes the store's value; other unsaved changes are kept.
    void absorbStoreValues(const QVariantHash& row);
    void setPrimitiveValue(const QString& name, const QVariant& value);
    void announce(const QString& key);

    const EntityDescription& m_entity;
    ManagedObjectContext* m_context;
    ObjectID m_objectID;
    QVariantHash m_values;
    QVariantHash m_committed; // as last read from or written to the store
    QSet<QString> m_changedKeys;
    bool m_busy = false;
    bool m_deleted = false;
    // Searches fold these on every keystroke over the whole catalogue, so they are folded once per change.
    QString m_foldedToken;
    QString m_foldedName;
    QString m_foldedDesc;
};
