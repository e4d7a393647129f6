#include "catalogue/EntityDescription.h"

#include "catalogue/CaskKind.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

using Type = EntityDescription::Type;

EntityDescription::Attribute text(const char* name)
{
    return {QString::fromLatin1(name), Type::Text, {}};
}

EntityDescription::Attribute flag(const char* name, bool defaultValue = false)
{
    return {QString::fromLatin1(name), Type::Boolean, defaultValue};
}

QString quoted(const QString& identifier)
{
    return QLatin1Char('"') + QString(identifier).replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
}

constexpr const char* kindLabelColumn = "kindLabel";

// A rebuild writes thousands of these, and a JSON document per list would cost more than the row's insert.
QString jsonArray(const QStringList& list)
{
    QString json;
    json.reserve(2 + list.size() * 12);
    json += QLatin1Char('[');
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i > 0) {
            json += QLatin1Char(',');
        }
        json += QLatin1Char('"');
        for (const QChar character : list.at(i)) {
            switch (character.unicode()) {
            case u'"':
                json += QLatin1String("\\\"");
                break;
            case u'\\':
                json += QLatin1String("\\\\");
                break;
            default:
                if (character.unicode() < 0x20) {
                    json += QStringLiteral("\\u%1").arg(character.unicode(), 4, 16, QLatin1Char('0'));
                } else {
                    json += character;
                }
            }
        }
        json += QLatin1Char('"');
    }
    json += QLatin1Char(']');
    return json;
}

} // namespace

EntityDescription::EntityDescription(QString name, QList<Attribute> attributes)
    : m_name(std::move(name))
    , m_attributes(std::move(attributes))
{
    for (const Attribute& attribute : m_attributes) {
        // A list column holds JSON text: predicates on it would compare that text, not the list.
        if (attribute.type != Type::StringList) {
            m_columns.insert(attribute.name, attribute.name);
        }
    }
    if (m_name == QLatin1String("Cask")) {
        m_columns.insert(QStringLiteral("kind.label"), QString::fromLatin1(kindLabelColumn));
        m_derivedColumnsSql = QStringLiteral(", %1 TEXT GENERATED ALWAYS AS (%2) VIRTUAL")
                                  .arg(quoted(QString::fromLatin1(kindLabelColumn)),
                                       CaskKind::sqlLabelExpression(quoted(QStringLiteral("artifacts"))));
    }
}

const QList<const EntityDescription*>& EntityDescription::all()
{
    static const EntityDescription formula(QStringLiteral("Formula"),
                                           {text("token"), text("name"), text("tap"), text("desc"), text("website"),
                                            text("license"), flag("installed"), flag("outdated"), flag("isLeaf")});
    static const EntityDescription cask(QStringLiteral("Cask"), {text("token"),
                                                                 text("name"),
                                                                 text("tap"),
                                                                 text("desc"),
                                                                 text("website"),
                                                                 text("version"),
                                                                 flag("installed"),
                                                                 flag("outdated"),
                                                                 {QStringLiteral("artifacts"), Type::StringList, {}}});
    // A repository record without a "local" value counts as local.
    static const EntityDescription tap(QStringLiteral("Tap"),
                                       {text("token"), text("user"), text("repo"), flag("official"), text("remote"),
                                        flag("installed"), flag("local", true), text("desc"), flag("hasFormulas"),
                                        flag("hasCasks"), flag("hasCommands")});
    static const QList<const EntityDescription*> entities{&formula, &cask, &tap};
    return entities;
}

const EntityDescription* EntityDescription::named(QStringView name)
{
    for (const EntityDescription* entity : all()) {
        if (entity->name() == name) {
            return entity;
        }
    }
    return nullptr;
}

const EntityDescription::Attribute* EntityDescription::attribute(QStringView name) const
{
    for (const Attribute& attribute : m_attributes) {
        if (attribute.name == name) {
            return &attribute;
        }
    }
    return nullptr;
}

QString EntityDescription::createTableSql() const
{
    QStringList columns{QStringLiteral("rowid INTEGER PRIMARY KEY")};
    for (const Attribute& attribute : m_attributes) {
        if (attribute.type == Type::Boolean) {
            columns.append(QStringLiteral("%1 INTEGER NOT NULL DEFAULT %2")
                               .arg(quoted(attribute.name))
                               .arg(attribute.defaultValue.toBool() ? 1 : 0));
        } else {
            columns.append(quoted(attribute.name) + QLatin1String(" TEXT"));
        }
    }
    return QStringLiteral("CREATE TABLE %1 (%2%3)")
        .arg(quoted(m_name), columns.join(QLatin1String(", ")), m_derivedColumnsSql);
}

QVariant EntityDescription::toSql(const Attribute& attribute, const QVariant& value) const
{
    switch (attribute.type) {
    case Type::Boolean:
        return qint64(value.isValid() ? value.toBool() : attribute.defaultValue.toBool());
    case Type::StringList:
        if (!value.isValid() || value.isNull()) {
            return {};
        }
        return jsonArray(value.toStringList());
    case Type::Text:
        if (!value.isValid() || value.isNull()) {
            return {};
        }
        return value.toString();
    }
    return {};
}

QVariant EntityDescription::fromSql(const Attribute& attribute, const QVariant& value) const
{
    switch (attribute.type) {
    case Type::Boolean:
        return value.isValid() ? value.toLongLong() != 0 : attribute.defaultValue.toBool();
    case Type::StringList: {
        if (!value.isValid()) {
            return {};
        }
        QStringList list;
        for (const QJsonValue& item : QJsonDocument::fromJson(value.toString().toUtf8()).array()) {
            list.append(item.toString());
        }
        return list;
    }
    case Type::Text:
        return value.isValid() ? QVariant(value.toString()) : QVariant();
    }
    return {};
}
