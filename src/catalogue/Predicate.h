// A fetch and filter condition over catalogue records, parsed from the application's format strings
// ("token in %@", "name CONTAINS[c] %@", "installed == YES", AND/OR/NOT). One parsed predicate both judges
// in-memory records and compiles to an SQLite WHERE clause, and the two give the same answers.
#pragma once

#include "catalogue/KeyValueRecord.h"
#include "foundation/Result.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QVariantList>
#include <memory>

struct sqlite3;

// A WHERE clause with its positional ("?") parameters, in order.
struct SqlFragment {
    QString where;
    QVariantList bindings;
};

// Key path -> column name of one table. Key paths without a column behave as an attribute the record lacks.
using SqlColumnMap = QHash<QString, QString>;

class Predicate {
public:
    // Codes of the "PredicateError" domain.
    enum ErrorCode {
        SyntaxError = 1,
        ArgumentError = 2,
        SqlError = 3,
    };

    // The predicate every record satisfies.
    Predicate();

    static Result<Predicate> parse(const QString& format, const QVariantList& arguments = {});

    static Predicate truePredicate();
    static Predicate falsePredicate();
    // An empty conjunction is true, an empty disjunction false.
    static Predicate andPredicate(const QList<Predicate>& predicates);
    static Predicate orPredicate(const QList<Predicate>& predicates);
    static Predicate notPredicate(const Predicate& predicate);

    bool evaluate(const KeyValueRecord& record) const;

    // Missing values follow the evaluator: they equal only a nil argument, so "key != %@" matches them, and
    // they contain and belong to nothing. The connection must have had registerSqlFunctions() called for a
    // case-insensitive containment. An IN list takes one parameter per member; beyond SQLite's limit of
    // 32,766 parameters per statement the compilation fails.
    Result<SqlFragment> toSql(const SqlColumnMap& columns) const;

    // A format string that parses back to the same predicate, arguments written in place.
    QString format() const;

    // Installs corvel_casefold(text), the Unicode case folding the evaluator uses, since SQLite's own lower()
    // folds ASCII only.
    static Result<void> registerSqlFunctions(sqlite3* connection);

    struct Node;

private:
    explicit Predicate(std::shared_ptr<const Node> root);

    std::shared_ptr<const Node> m_root;
};
