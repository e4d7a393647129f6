#include "catalogue/SortDescriptor.h"

#include "catalogue/Predicate.h"

#include <QCollator>
#include <QStringList>
#include <sqlite3.h>

namespace {

// The ranks of SQLite's own order, so that the in-memory and the SQL order agree: missing, numbers, text.
int rankOf(const QVariant& value)
{
    if (KeyValue::isMissing(value)) {
        return 0;
    }
    return KeyValue::isNumber(value) ? 1 : 2;
}

QCollator textCollator()
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

int compareValues(const QVariant& left, const QVariant& right, const QCollator& collator)
{
    const int leftRank = rankOf(left);
    const int rightRank = rankOf(right);
    if (leftRank != rightRank) {
        return leftRank < rightRank ? -1 : 1;
    }
    switch (leftRank) {
    case 0:
        return 0;
    case 1: {
        const double a = left.toDouble();
        const double b = right.toDouble();
        return a < b ? -1 : (b < a ? 1 : 0);
    }
    default:
        return collator.compare(left.toString(), right.toString());
    }
}

bool lessThanWith(const KeyValueRecord& left, const KeyValueRecord& right, const QList<SortDescriptor>& descriptors,
                  const QCollator& collator)
{
    for (const SortDescriptor& descriptor : descriptors) {
        const int order = compareValues(left.value(descriptor.key), right.value(descriptor.key), collator);
        if (order != 0) {
            return descriptor.ascending ? order < 0 : order > 0;
        }
    }
    return false;
}

int collate(void* context, int leftSize, const void* left, int rightSize, const void* right)
{
    const auto* collator = static_cast<const QCollator*>(context);
    return collator->compare(QString::fromUtf8(static_cast<const char*>(left), leftSize),
                             QString::fromUtf8(static_cast<const char*>(right), rightSize));
}

void destroyCollator(void* context)
{
    delete static_cast<QCollator*>(context);
}

} // namespace

bool SortDescriptor::lessThan(const KeyValueRecord& left, const KeyValueRecord& right,
                              const QList<SortDescriptor>& descriptors)
{
    return lessThanWith(left, right, descriptors, textCollator());
}

SortDescriptor::Comparator SortDescriptor::comparator(const QList<SortDescriptor>& descriptors)
{
    return [descriptors, collator = textCollator()](const KeyValueRecord& left, const KeyValueRecord& right) {
        return lessThanWith(left, right, descriptors, collator);
    };
}

QString SortDescriptor::toSql(const QList<SortDescriptor>& descriptors, const QHash<QString, QString>& columns)
{
    QStringList terms;
    for (const SortDescriptor& descriptor : descriptors) {
        const auto column = columns.constFind(descriptor.key);
        if (column == columns.constEnd()) {
            continue;
        }
        QString name = *column;
        name.replace(QLatin1Char('"'), QLatin1String("\"\""));
        terms.append(QStringLiteral("\"%1\" COLLATE corvel_localized %2")
                         .arg(name, descriptor.ascending ? QLatin1String("ASC") : QLatin1String("DESC")));
    }
    return terms.isEmpty() ? QString() : QLatin1String("ORDER BY ") + terms.join(QLatin1String(", "));
}

Result<void> SortDescriptor::registerSqlCollation(sqlite3* connection)
{
    auto* collator = new QCollator(textCollator());
    const int status =
        sqlite3_create_collation_v2(connection, "corvel_localized", SQLITE_UTF8, collator, collate, destroyCollator);
    if (status != SQLITE_OK) {
        // SQLite calls the destructor itself only when registration succeeded.
        delete collator;
        return Error(
            QStringLiteral("PredicateError"), 3,
            QStringLiteral("Unable to register the text collation: %1").arg(QString::fromUtf8(sqlite3_errstr(status))));
    }
    return {};
}
