// One key of an ordering of catalogue records, as the tables and fetches use it: text compares
// case-insensitively in the user's locale, missing values come first, and equal records keep their order.
#pragma once

#include "catalogue/KeyValueRecord.h"
#include "foundation/Result.h"

#include <QHash>
#include <QList>
#include <QString>
#include <functional>

struct sqlite3;

class SortDescriptor {
public:
    QString key;
    bool ascending = true;

    using Comparator = std::function<bool(const KeyValueRecord&, const KeyValueRecord&)>;

    // Compares by the first descriptor whose values differ; records equal under all of them are not less, so
    // std::stable_sort keeps their order.
    static bool lessThan(const KeyValueRecord& left, const KeyValueRecord& right,
                         const QList<SortDescriptor>& descriptors);
    // The same order with one collator built up front, for sorting many records.
    static Comparator comparator(const QList<SortDescriptor>& descriptors);

    // An ORDER BY clause ("ORDER BY ...", or empty without any mapped key) in the same order; the connection
    // must have had registerSqlCollation() called. Keys without a column are left out: every record lacks them.
    static QString toSql(const QList<SortDescriptor>& descriptors, const QHash<QString, QString>& columns);

    // Installs the collation "corvel_localized", the text order of lessThan(), on the connection.
    static Result<void> registerSqlCollation(sqlite3* connection);

    bool operator==(const SortDescriptor&) const = default;
};
