// Predicates and sort descriptors: the in-memory evaluation and the SQL compilation, run against a real SQLite
// database, must pick and order the same records.
#include "catalogue/Predicate.h"
#include "catalogue/SortDescriptor.h"

#include <QDate>
#include <QTest>
#include <algorithm>
#include <sqlite3.h>

namespace {

// A record over a map of attribute values; with folding on it keeps case-folded texts as the entities will.
class MapRecord : public KeyValueRecord {
public:
    MapRecord(QVariantMap values, bool folding)
        : m_values(std::move(values))
    {
        for (auto it = m_values.cbegin(); folding && it != m_values.cend(); ++it) {
            if (it->typeId() == QMetaType::QString) {
                m_folded.insert(it.key(), it->toString().toCaseFolded());
            }
        }
    }

    QVariant value(QStringView keyPath) const override { return m_values.value(keyPath.toString()); }
    std::optional<QStringView> foldedValue(QStringView keyPath) const override
    {
        const auto it = m_folded.constFind(keyPath.toString());
        return it == m_folded.cend() ? std::nullopt : std::optional<QStringView>(*it);
    }

private:
    QVariantMap m_values;
    QHash<QString, QString> m_folded;
};

// Missing keys are attributes the record lacks: the formulae have no kind label, one record no description.
const QList<QVariantMap> fixtures = {
    {{"token", "firefox"},
     {"name", "Firefox"},
     {"desc", "Web browser"},
     {"installed", true},
     {"outdated", false},
     {"kind.label", "App"},
     {"size", 3}},
    {{"token", "font-fira-code"},
     {"name", "Fira Code"},
     {"desc", "Monospaced font with ligatures"},
     {"installed", false},
     {"outdated", false},
     {"kind.label", "Font"},
     {"size", 1}},
    {{"token", "wget"},
     {"name", "wget"},
     {"desc", "Internet file retriever"},
     {"installed", true},
     {"outdated", true},
     {"size", 2}},
    {{"token", "strasse-tool"}, {"name", "STRASSE Tool"}, {"installed", false}, {"outdated", false}, {"size", 2}},
    {{"token", "cafe"},
     {"name", "Café Ölkännchen"},
     {"desc", "Ünïcode DESCRIPTION"},
     {"installed", false},
     {"outdated", true},
     {"kind.label", "App"}},
    {{"token", "omega"},
     {"name", "ΣΊΣΥΦΟΣ"},
     {"desc", "Greek ΣΟΦΊΑ"},
     {"installed", true},
     {"outdated", false},
     {"kind.label", "Mixed"},
     {"size", 10}},
};

const SqlColumnMap columns = {{"token", "token"},       {"name", "name"},
                              {"desc", "desc"},         {"installed", "installed"},
                              {"outdated", "outdated"}, {"kind.label", "kind label"},
                              {"size", "size"}};

void bind(sqlite3_stmt* statement, int index, const QVariant& value)
{
    if (!value.isValid()) {
        sqlite3_bind_null(statement, index);
    } else if (value.typeId() == QMetaType::QString) {
        sqlite3_bind_text(statement, index, value.toString().toUtf8().constData(), -1, SQLITE_TRANSIENT);
    } else if (value.typeId() == QMetaType::Double) {
        sqlite3_bind_double(statement, index, value.toDouble());
    } else {
        sqlite3_bind_int64(statement, index, value.toLongLong());
    }
}

QStringList allTokens()
{
    QStringList tokens;
    for (const QVariantMap& fixture : fixtures) {
        tokens.append(fixture.value("token").toString());
    }
    return tokens;
}

QStringList tokensExcept(const QStringList& excluded)
{
    QStringList tokens = allTokens();
    tokens.removeIf([&](const QString& token) { return excluded.contains(token); });
    return tokens;
}

} // namespace

class TestPredicate : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void evaluatorAndSqlAgree_data();
    void evaluatorAndSqlAgree();
    void programmaticPredicatesAgree();
    void largeTokenLists();
    void malformedFormats_data();
    void malformedFormats();
    void sortDescriptorsOrder_data();
    void sortDescriptorsOrder();

private:
    QStringList evaluate(const Predicate& predicate, bool folding) const;
    QStringList select(const Predicate& predicate);
    QStringList select(const QString& whereAndOrder, const QVariantList& bindings);

    sqlite3* m_database = nullptr;
};

void TestPredicate::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QCOMPARE(sqlite3_open(":memory:", &m_database), SQLITE_OK);
    QVERIFY(Predicate::registerSqlFunctions(m_database).ok());
    QVERIFY(SortDescriptor::registerSqlCollation(m_database).ok());
    QCOMPARE(sqlite3_exec(m_database,
                          "CREATE TABLE record (token TEXT NOT NULL, name TEXT, desc TEXT, installed INTEGER, "
                          "outdated INTEGER, \"kind label\" TEXT, size INTEGER)",
                          nullptr, nullptr, nullptr),
             SQLITE_OK);
    sqlite3_stmt* insert = nullptr;
    QCOMPARE(sqlite3_prepare_v2(m_database, "INSERT INTO record VALUES (?, ?, ?, ?, ?, ?, ?)", -1, &insert, nullptr),
             SQLITE_OK);
    for (const QVariantMap& fixture : fixtures) {
        int index = 0;
        for (const char* key : {"token", "name", "desc", "installed", "outdated", "kind.label", "size"}) {
            bind(insert, ++index, fixture.value(QString::fromLatin1(key)));
        }
        QCOMPARE(sqlite3_step(insert), SQLITE_DONE);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
}

void TestPredicate::cleanupTestCase()
{
    sqlite3_close(m_database);
}

QStringList TestPredicate::evaluate(const Predicate& predicate, bool folding) const
{
    QStringList tokens;
    for (const QVariantMap& fixture : fixtures) {
        if (predicate.evaluate(MapRecord(fixture, folding))) {
            tokens.append(fixture.value("token").toString());
        }
    }
    return tokens;
}

QStringList TestPredicate::select(const Predicate& predicate)
{
    const Result<SqlFragment> sql = predicate.toSql(columns);
    if (!sql) {
        qWarning() << sql.error().description();
        return {QStringLiteral("<no SQL>")};
    }
    return select(QStringLiteral("WHERE ") + sql.value().where + QStringLiteral(" ORDER BY rowid"),
                  sql.value().bindings);
}

QStringList TestPredicate::select(const QString& whereAndOrder, const QVariantList& bindings)
{
    sqlite3_stmt* statement = nullptr;
    const QByteArray query = ("SELECT token FROM record " + whereAndOrder).toUtf8();
    if (sqlite3_prepare_v2(m_database, query.constData(), -1, &statement, nullptr) != SQLITE_OK) {
        qWarning() << query << sqlite3_errmsg(m_database);
        return {QStringLiteral("<invalid SQL>")};
    }
    for (int i = 0; i < bindings.size(); ++i) {
        bind(statement, i + 1, bindings.at(i));
    }
    QStringList tokens;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        tokens.append(QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))));
    }
    sqlite3_finalize(statement);
    return tokens;
}

void TestPredicate::evaluatorAndSqlAgree_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<QStringList>("expected");

    const QString search = "name CONTAINS[c] %@ OR token CONTAINS[c] %@ OR desc CONTAINS[c] %@ OR kind.label "
                           "CONTAINS[c] %@";
    QTest::newRow("installed") << "installed == YES" << QVariantList{} << QStringList{"firefox", "wget", "omega"};
    QTest::newRow("available") << "installed == NO" << QVariantList{}
                               << QStringList{"font-fira-code", "strasse-tool", "cafe"};
    QTest::newRow("bool argument") << "outdated == %@" << QVariantList{true} << QStringList{"wget", "cafe"};
    QTest::newRow("kind filter") << "kind.label == %@" << QVariantList{"App"} << QStringList{"firefox", "cafe"};
    QTest::newRow("kind is case-sensitive") << "kind.label == %@" << QVariantList{"app"} << QStringList{};
    QTest::newRow("negated kind keeps records without one")
        << "NOT kind.label == %@" << QVariantList{"App"}
        << QStringList{"font-fira-code", "wget", "strasse-tool", "omega"};
    QTest::newRow("not equal keeps missing")
        << "kind.label != %@" << QVariantList{"Font"} << tokensExcept({"font-fira-code"});
    QTest::newRow("missing equals nil") << "desc == nil" << QVariantList{} << QStringList{"strasse-tool"};
    QTest::newRow("present") << "desc != %@" << QVariantList{QVariant()} << tokensExcept({"strasse-tool"});
    QTest::newRow("number") << "size == 2" << QVariantList{} << QStringList{"wget", "strasse-tool"};
    QTest::newRow("contains[c]") << "name CONTAINS[c] %@" << QVariantList{"FIR"}
                                 << QStringList{"firefox", "font-fira-code"};
    QTest::newRow("contains is case-sensitive") << "name CONTAINS %@" << QVariantList{"ire"} << QStringList{"firefox"};
    QTest::newRow("contains misses other case") << "name CONTAINS %@" << QVariantList{"fir"} << QStringList{};
    QTest::newRow("contains[c] beyond ASCII") << "name CONTAINS[c] %@" << QVariantList{"ölKÄNN"} << QStringList{"cafe"};
    QTest::newRow("contains[c] Greek") << "desc CONTAINS[c] 'σοφία'" << QVariantList{} << QStringList{"omega"};
    QTest::newRow("contains[c] Greek final sigma")
        << "name CONTAINS[c] %@" << QVariantList{"σίσυφος"} << QStringList{"omega"};
    QTest::newRow("empty needle matches nothing") << "token CONTAINS[c] %@" << QVariantList{""} << QStringList{};
    QTest::newRow("negated contains keeps missing")
        << "NOT desc CONTAINS[c] %@" << QVariantList{"BROWSER"} << tokensExcept({"firefox"});
    QTest::newRow("search keystroke") << search << QVariantList{"app", "app", "app", "app"}
                                      << QStringList{"firefox", "cafe"};
    QTest::newRow("token in") << "token in %@" << QVariantList{QStringList{"wget", "firefox", "absent"}}
                              << QStringList{"firefox", "wget"};
    QTest::newRow("in empty list") << "token IN %@" << QVariantList{QStringList{}} << QStringList{};
    QTest::newRow("not in empty list") << "NOT token IN %@" << QVariantList{QStringList{}} << allTokens();
    QTest::newRow("in skips missing") << "NOT kind.label IN %@" << QVariantList{QStringList{"App", "Mixed"}}
                                      << QStringList{"font-fira-code", "wget", "strasse-tool"};
    QTest::newRow("in literal list") << "size IN {1, 10}" << QVariantList{} << QStringList{"font-fira-code", "omega"};
    QTest::newRow("and, or, parentheses")
        << "installed == YES AND (kind.label == 'App' OR desc CONTAINS[c] \"RETRIEVER\")" << QVariantList{}
        << QStringList{"firefox", "wget"};
    QTest::newRow("symbols") << "!(installed == YES) && (name CONTAINS[c] %@ || token == %@)"
                             << QVariantList{"É", "strasse-tool"} << QStringList{"strasse-tool", "cafe"};
    QTest::newRow("and binds tighter than or") << "outdated == YES OR installed == YES AND size == 10" << QVariantList{}
                                               << QStringList{"wget", "cafe", "omega"};
    QTest::newRow("unknown key equals nil") << "version == %@" << QVariantList{QVariant()} << allTokens();
    QTest::newRow("unknown key contains nothing") << "version CONTAINS[c] 'a'" << QVariantList{} << QStringList{};
    QTest::newRow("true") << "TRUEPREDICATE" << QVariantList{} << allTokens();
    QTest::newRow("not false") << "NOT FALSEPREDICATE" << QVariantList{} << allTokens();
}

void TestPredicate::evaluatorAndSqlAgree()
{
    QFETCH(QString, format);
    QFETCH(QVariantList, arguments);
    QFETCH(QStringList, expected);

    const Result<Predicate> predicate = Predicate::parse(format, arguments);
    QVERIFY2(predicate.ok(), qPrintable(predicate.ok() ? QString() : predicate.error().description()));
    QCOMPARE(evaluate(predicate.value(), true), expected);
    QCOMPARE(evaluate(predicate.value(), false), expected);
    QCOMPARE(select(predicate.value()), expected);

    // The readable form parses back to a predicate that picks the same records.
    const Result<Predicate> reparsed = Predicate::parse(predicate.value().format());
    QVERIFY2(reparsed.ok(), qPrintable(predicate.value().format()));
    QCOMPARE(evaluate(reparsed.value(), true), expected);
    QCOMPARE(select(reparsed.value()), expected);
}

void TestPredicate::programmaticPredicatesAgree()
{
    const auto parsed = [](const QString& format, const QVariantList& arguments = {}) {
        return Predicate::parse(format, arguments).value();
    };
    // The search field's conjunction of tokens: "App" kind, not installed, and a text search.
    const Predicate filter = Predicate::andPredicate(
        {parsed("kind.label == %@", {"App"}), Predicate::notPredicate(parsed("installed == YES")),
         Predicate::orPredicate({parsed("name CONTAINS[c] %@", {"café"}), parsed("token CONTAINS[c] %@", {"café"})})});
    QCOMPARE(evaluate(filter, true), QStringList{"cafe"});
    QCOMPARE(select(filter), QStringList{"cafe"});

    QCOMPARE(evaluate(Predicate::andPredicate({}), true), allTokens());
    QCOMPARE(select(Predicate::andPredicate({})), allTokens());
    QCOMPARE(evaluate(Predicate::orPredicate({}), true), QStringList{});
    QCOMPARE(select(Predicate::orPredicate({})), QStringList{});
    QCOMPARE(select(Predicate::notPredicate(Predicate::truePredicate())), QStringList{});
    QCOMPARE(evaluate(Predicate::parse(filter.format()).value(), false), QStringList{"cafe"});
}

// Batch updates select by "token in %@" over every installed token: the largest list SQLite takes still runs,
// a larger one is refused with an error rather than failing in the store.
void TestPredicate::largeTokenLists()
{
    QStringList tokens;
    for (int i = 0; i < 32765; ++i) {
        tokens.append(QStringLiteral("token-%1").arg(i));
    }
    tokens.append(QStringLiteral("wget"));
    const Predicate largest = Predicate::parse("token in %@", {tokens}).value();
    QCOMPARE(evaluate(largest, false), QStringList{"wget"});
    QCOMPARE(select(largest), QStringList{"wget"});

    tokens.append(QStringLiteral("firefox"));
    const Predicate tooLarge = Predicate::parse("token in %@", {tokens}).value();
    QCOMPARE(evaluate(tooLarge, false), (QStringList{"firefox", "wget"}));
    const Result<SqlFragment> sql = tooLarge.toSql(columns);
    QVERIFY(!sql.ok());
    QCOMPARE(sql.error().code(), int(Predicate::SqlError));
    QVERIFY2(sql.error().description().contains("32767 SQL parameters"), qPrintable(sql.error().description()));
}

void TestPredicate::malformedFormats_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("mentions");

    QTest::newRow("empty") << "" << QVariantList{} << int(Predicate::SyntaxError) << "expected a key";
    QTest::newRow("key path ends with a dot")
        << "kind. == 'x'" << QVariantList{} << int(Predicate::SyntaxError) << "ends with \".\"";
    QTest::newRow("unknown operator") << "name BEGINSWITH %@" << QVariantList{"a"} << int(Predicate::SyntaxError)
                                      << "unknown operator \"BEGINSWITH\"";
    QTest::newRow("ordering operator") << "size > 3" << QVariantList{} << int(Predicate::SyntaxError)
                                       << "unknown operator \">\"";
    QTest::newRow("missing operator") << "installed" << QVariantList{} << int(Predicate::SyntaxError)
                                      << "missing operator";
    QTest::newRow("unsupported option") << "name CONTAINS[cd] %@" << QVariantList{"a"} << int(Predicate::SyntaxError)
                                        << "unsupported comparison option";
    QTest::newRow("missing value") << "name CONTAINS[c]" << QVariantList{} << int(Predicate::SyntaxError)
                                   << "missing value";
    QTest::newRow("missing argument") << "name CONTAINS[c] %@ OR token CONTAINS[c] %@" << QVariantList{"a"}
                                      << int(Predicate::ArgumentError) << "needs more than the 1 arguments";
    QTest::newRow("extra argument") << "name == %@" << QVariantList{"a", "b"} << int(Predicate::ArgumentError)
                                    << "takes 1 arguments but was given 2";
    QTest::newRow("unbalanced opening") << "(installed == YES" << QVariantList{} << int(Predicate::SyntaxError)
                                        << "missing \")\"";
    QTest::newRow("unbalanced closing") << "installed == YES)" << QVariantList{} << int(Predicate::SyntaxError)
                                        << "unexpected \")\"";
    QTest::newRow("trailing text") << "installed == YES please" << QVariantList{} << int(Predicate::SyntaxError)
                                   << "unexpected \"please\"";
    QTest::newRow("unterminated text") << "name == 'abc" << QVariantList{} << int(Predicate::SyntaxError)
                                       << "unterminated text";
    QTest::newRow("unclosed list") << "token IN {'a', 'b'" << QVariantList{} << int(Predicate::SyntaxError)
                                   << "missing \"}\"";
    QTest::newRow("in without a list") << "token in %@" << QVariantList{"wget"} << int(Predicate::ArgumentError)
                                       << "needs a list";
    QTest::newRow("list of lists") << "token in %@" << QVariantList{QVariantList{QStringList{"a"}}}
                                   << int(Predicate::ArgumentError) << "list of texts or numbers";
    QTest::newRow("contains a number") << "name CONTAINS %@" << QVariantList{42} << int(Predicate::ArgumentError)
                                       << "needs a text value";
    QTest::newRow("unsupported value type")
        << "installed == %@" << QVariantList{QDate(2024, 1, 1)} << int(Predicate::ArgumentError) << "type QDate";
    QTest::newRow("runaway nesting") << QString(100000, '(') + "installed == YES" << QVariantList{}
                                     << int(Predicate::SyntaxError) << "nesting deeper than";
    QTest::newRow("runaway negation") << QString(100000, '!') + "installed == YES" << QVariantList{}
                                      << int(Predicate::SyntaxError) << "nesting deeper than";
}

void TestPredicate::malformedFormats()
{
    QFETCH(QString, format);
    QFETCH(QVariantList, arguments);
    QFETCH(int, code);
    QFETCH(QString, mentions);

    const Result<Predicate> predicate = Predicate::parse(format, arguments);
    QVERIFY(!predicate.ok());
    QCOMPARE(predicate.error().domain(), QStringLiteral("PredicateError"));
    QCOMPARE(predicate.error().code(), code);
    QVERIFY2(predicate.error().description().contains(mentions), qPrintable(predicate.error().description()));
    QVERIFY2(predicate.error().description().contains(format.left(200)), qPrintable(predicate.error().description()));
}

void TestPredicate::sortDescriptorsOrder_data()
{
    QTest::addColumn<QStringList>("keys"); // "-key" sorts descending
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("name, ignoring case") << QStringList{"name"}
                                         << QStringList{"cafe",         "font-fira-code", "firefox",
                                                        "strasse-tool", "wget",           "omega"};
    QTest::newRow("missing description first")
        << QStringList{"desc"} << QStringList{"strasse-tool", "omega", "wget", "font-fira-code", "cafe", "firefox"};
    QTest::newRow("installed first, then numbers descending")
        << QStringList{"-installed", "-size"}
        << QStringList{"omega", "firefox", "wget", "strasse-tool", "font-fira-code", "cafe"};
    QTest::newRow("ties keep their order")
        << QStringList{"outdated"} << QStringList{"firefox", "font-fira-code", "strasse-tool", "omega", "wget", "cafe"};
    QTest::newRow("unknown key keeps the order") << QStringList{"version"} << allTokens();
}

void TestPredicate::sortDescriptorsOrder()
{
    QFETCH(QStringList, keys);
    QFETCH(QStringList, expected);

    QList<SortDescriptor> descriptors;
    for (const QString& key : keys) {
        descriptors.append({key.startsWith('-') ? key.mid(1) : key, !key.startsWith('-')});
    }
    const auto sortedBy = [](const auto& lessThan) {
        std::vector<MapRecord> records;
        for (const QVariantMap& fixture : fixtures) {
            records.emplace_back(fixture, false);
        }
        std::stable_sort(records.begin(), records.end(), lessThan);
        QStringList sorted;
        for (const MapRecord& record : records) {
            sorted.append(record.value(u"token").toString());
        }
        return sorted;
    };
    QCOMPARE(sortedBy(SortDescriptor::comparator(descriptors)), expected);
    QCOMPARE(sortedBy([&](const MapRecord& left, const MapRecord& right) {
                 return SortDescriptor::lessThan(left, right, descriptors);
             }),
             expected);

    // The store breaks ties by insertion order itself.
    QString order = SortDescriptor::toSql(descriptors, columns);
    order += order.isEmpty() ? QStringLiteral("ORDER BY rowid") : QStringLiteral(", rowid");
    QCOMPARE(select(order, {}), expected);
}

QTEST_GUILESS_MAIN(TestPredicate)
#include "TestPredicate.moc"
