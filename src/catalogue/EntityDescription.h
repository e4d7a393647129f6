// The stored shape of one catalogue entity: its table and attributes with their types and defaults, from which
// the store builds its schema, reads and writes rows, and maps predicate key paths to columns.
#pragma once

#include "catalogue/Predicate.h"

#include <QList>
#include <QString>
#include <QVariant>

class EntityDescription {
public:
    enum class Type {
        Text,       // QString; also URLs, kept as their text so predicates compare them as text
        Boolean,    // bool, stored as 0/1
        StringList, // QStringList, stored as a JSON array
    };

    struct Attribute {
        QString name;
        Type type = Type::Text;
        QVariant defaultValue; // invalid: none (only optional text and lists have none)
    };

    static const QList<const EntityDescription*>& all();
    // nullptr for an unknown entity name.
    static const EntityDescription* named(QStringView name);

    const QString& name() const { return m_name; }
    const QList<Attribute>& attributes() const { return m_attributes; }
    const Attribute* attribute(QStringView name) const;
    // Predicate key paths -> columns, including derived columns the store computes (a cask's "kind.label").
    const SqlColumnMap& columns() const { return m_columns; }

    QString createTableSql() const;
    // The store's representation of an in-memory value, and back.
    QVariant toSql(const Attribute& attribute, const QVariant& value) const;
    QVariant fromSql(const Attribute& attribute, const QVariant& value) const;

private:
    EntityDescription(QString name, QList<Attribute> attributes);

    QString m_name;
    QList<Attribute> m_attributes;
    SqlColumnMap m_columns;
    QString m_derivedColumnsSql;
};
