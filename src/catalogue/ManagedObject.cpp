#include "catalogue/ManagedObject.h"

#include <QUrl>

namespace {

// The in-memory form of an attribute value, so that values compare equal with what the store gives back.
QVariant normalized(const EntityDescription::Attribute& attribute, const QVariant& value)
{
    if (!value.isValid() || value.isNull()) {
        return attribute.type == EntityDescription::Type::Boolean ? QVariant(attribute.defaultValue.toBool())
                                                                  : QVariant();
    }
    switch (attribute.type) {
    case EntityDescription::Type::Boolean:
        return value.toBool();
    case EntityDescription::Type::StringList:
        return value.toStringList();
    case EntityDescription::Type::Text:
        return value.typeId() == QMetaType::QUrl ? value.toUrl().toString() : value.toString();
    }
    return {};
}

} // namespace

ManagedObject::ManagedObject(const EntityDescription& entity, ManagedObjectContext* context)
    : m_entity(entity)
    , m_context(context)
{
    for (const EntityDescription::Attribute& attribute : entity.attributes()) {
        m_values.insert(attribute.name, normalized(attribute, {}));
    }
    m_committed = m_values;
}

QVariant ManagedObject::value(QStringView keyPath) const
{
    if (keyPath == u"isBusy") {
        return m_busy;
    }
    if (m_entity.attribute(keyPath)) {
        return m_values.value(keyPath.toString());
    }
    return derivedValue(keyPath);
}

std::optional<QStringView> ManagedObject::foldedValue(QStringView keyPath) const
{
    if (keyPath == u"token") {
        return m_foldedToken;
    }
    if (keyPath == u"name") {
        return m_foldedName;
    }
    if (keyPath == u"desc") {
        return m_foldedDesc;
    }
    return std::nullopt;
}

bool ManagedObject::setValue(QStringView key, const QVariant& value)
{
    if (key == u"isBusy") {
        setBusy(value.toBool());
        return true;
    }
    const EntityDescription::Attribute* attribute = m_entity.attribute(key);
    if (!attribute) {
        return setDerivedValue(key, value);
    }
    const QVariant newValue = normalized(*attribute, value);
    if (m_values.value(attribute->name) == newValue) {
        return true;
    }
    if (m_committed.value(attribute->name) == newValue) {
        m_changedKeys.remove(attribute->name);
    } else {
        m_changedKeys.insert(attribute->name);
    }
    setPrimitiveValue(attribute->name, newValue);
    return true;
}

void ManagedObject::setBusy(bool busy)
{
    if (m_busy == busy) {
        return;
    }
    m_busy = busy;
    announce(QStringLiteral("isBusy"));
}

QVariant ManagedObject::derivedValue(QStringView keyPath) const
{
    Q_UNUSED(keyPath);
    return {};
}

bool ManagedObject::setDerivedValue(QStringView key, const QVariant& value)
{
    Q_UNUSED(key);
    Q_UNUSED(value);
    return false;
}

QStringList ManagedObject::keysDerivedFrom(QStringView key) const
{
    Q_UNUSED(key);
    return {};
}

void ManagedObject::absorbStoreValues(const QVariantHash& row)
{
    for (const EntityDescription::Attribute& attribute : m_entity.attributes()) {
        const QVariant stored = normalized(attribute, row.value(attribute.name));
        const bool changedHere = m_changedKeys.contains(attribute.name);
        if (!changedHere || stored != m_committed.value(attribute.name)) {
            m_changedKeys.remove(attribute.name);
            if (m_values.value(attribute.name) != stored) {
                setPrimitiveValue(attribute.name, stored);
            }
        }
        m_committed.insert(attribute.name, stored);
    }
}

void ManagedObject::setPrimitiveValue(const QString& name, const QVariant& value)
{
    m_values.insert(name, value);
    if (name == u"token") {
        m_foldedToken = value.toString().toCaseFolded();
    } else if (name == u"name") {
        m_foldedName = value.toString().toCaseFolded();
    } else if (name == u"desc") {
        m_foldedDesc = value.toString().toCaseFolded();
    }
    announce(name);
}

void ManagedObject::announce(const QString& key)
{
    Q_EMIT valueChanged(key);
    for (const QString& derived : keysDerivedFrom(key)) {
        Q_EMIT valueChanged(derived);
    }
}
