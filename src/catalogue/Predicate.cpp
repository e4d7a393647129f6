#include "catalogue/Predicate.h"

#include <QSet>
#include <QStringList>
#include <algorithm>
#include <functional>
#include <sqlite3.h>
#include <string_view>

namespace {

const QString errorDomain = QStringLiteral("PredicateError");

Error predicateError(Predicate::ErrorCode code, const QString& description)
{
    return Error(errorDomain, code, description);
}

using KeyValue::isMissing;
using KeyValue::isNumber;

bool isText(const QVariant& value)
{
    return value.typeId() == QMetaType::QString;
}

// Booleans and numbers compare by value (YES equals 1, as in the store's integer columns); text exactly.
bool valuesEqual(const QVariant& left, const QVariant& right)
{
    if (isMissing(left) || isMissing(right)) {
        return isMissing(left) && isMissing(right);
    }
    if (isNumber(left) && isNumber(right)) {
        return left.toDouble() == right.toDouble();
    }
    if (isText(left) && isText(right)) {
        return left.toString() == right.toString();
    }
    return false;
}

QString quotedText(const QString& text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString formatValue(const QVariant& value)
{
    if (isMissing(value)) {
        return QStringLiteral("nil");
    }
    if (value.typeId() == QMetaType::Bool) {
        return value.toBool() ? QStringLiteral("YES") : QStringLiteral("NO");
    }
    if (isNumber(value)) {
        return value.toString();
    }
    if (value.typeId() == QMetaType::QVariantList) {
        QStringList items;
        for (const QVariant& item : value.toList()) {
            items.append(formatValue(item));
        }
        return QLatin1Char('{') + items.join(QLatin1String(", ")) + QLatin1Char('}');
    }
    return quotedText(value.toString());
}

QString quotedIdentifier(const QString& name)
{
    QString escaped = name;
    escaped.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

// SQLite has no booleans: the store keeps them as 0/1 integers.
QVariant sqlValue(const QVariant& value)
{
    if (value.typeId() == QMetaType::Bool) {
        return QVariant(qint64(value.toBool() ? 1 : 0));
    }
    return value;
}

} // namespace

struct Predicate::Node {
    enum class Kind { True, False, And, Or, Not, Equal, NotEqual, Contains, In };

    Kind kind = Kind::True;
    QList<std::shared_ptr<const Node>> children;
    QString key;
    QVariant argument; // a QVariantList for In
    bool caseInsensitive = false;
    QString foldedArgument;    // Contains[c]: folded once here rather than per record
    QSet<QString> textMembers; // In: the text members, for lookups in large token lists
    QVariantList otherMembers; // In: the numeric ones

    bool evaluate(const KeyValueRecord& record) const;
    bool contains(const KeyValueRecord& record) const;
    bool isMember(const QVariant& value) const;
    Result<void> compile(const SqlColumnMap& columns, SqlFragment& sql) const;
    QString format(bool nested) const;
};

bool Predicate::Node::evaluate(const KeyValueRecord& record) const
{
    switch (kind) {
    case Kind::True:
        return true;
    case Kind::False:
        return false;
    case Kind::And:
        return std::all_of(children.begin(), children.end(),
                           [&](const auto& child) { return child->evaluate(record); });
    case Kind::Or:
        return std::any_of(children.begin(), children.end(),
                           [&](const auto& child) { return child->evaluate(record); });
    case Kind::Not:
        return !children.constFirst()->evaluate(record);
    case Kind::Equal:
        return valuesEqual(record.value(key), argument);
    case Kind::NotEqual:
        return !valuesEqual(record.value(key), argument);
    case Kind::Contains:
        return contains(record);
    case Kind::In:
        return isMember(record.value(key));
    }
    return false;
}

// An empty needle matches nothing, on both paths, rather than everything.
bool Predicate::Node::contains(const KeyValueRecord& record) const
{
    if (foldedArgument.isEmpty()) {
        return false;
    }
    if (caseInsensitive) {
        if (const std::optional<QStringView> folded = record.foldedValue(key)) {
            // A plain scan beats QStringView::contains on the short texts of a record, and this runs for every
            // record on every keystroke.
            const std::u16string_view haystack(folded->utf16(), std::size_t(folded->size()));
            return haystack.find(std::u16string_view(QStringView(foldedArgument).utf16(),
                                                     std::size_t(foldedArgument.size()))) != std::u16string_view::npos;
        }
    }
    const QVariant value = record.value(key);
    if (!isText(value)) {
        return false;
    }
    return caseInsensitive ? value.toString().toCaseFolded().contains(foldedArgument)
                           : value.toString().contains(foldedArgument);
}

bool Predicate::Node::isMember(const QVariant& value) const
{
    if (isMissing(value)) {
        return false;
    }
    if (isText(value)) {
        return textMembers.contains(value.toString());
    }
    return std::any_of(otherMembers.begin(), otherMembers.end(),
                       [&](const QVariant& member) { return valuesEqual(value, member); });
}

// Every comparison compiles to a two-valued expression (never NULL), so that NOT agrees with the evaluator on
// records that lack the attribute.
Result<void> Predicate::Node::compile(const SqlColumnMap& columns, SqlFragment& sql) const
{
    const auto compileChildren = [&](const QString& joiner, const QString& whenEmpty) -> Result<void> {
        if (children.isEmpty()) {
            sql.where += whenEmpty;
            return {};
        }
        sql.where += QLatin1Char('(');
        for (qsizetype i = 0; i < children.size(); ++i) {
            if (i > 0) {
                sql.where += joiner;
            }
            if (const Result<void> compiled = children.at(i)->compile(columns, sql); !compiled) {
                return compiled;
            }
        }
        sql.where += QLatin1Char(')');
        return {};
    };
    const auto column = columns.constFind(key);
    // A key without a column is an attribute no record has.
    const QString operand = column == columns.constEnd() ? QStringLiteral("NULL") : quotedIdentifier(*column);

    switch (kind) {
    case Kind::True:
        sql.where += QLatin1Char('1');
        return {};
    case Kind::False:
        sql.where += QLatin1Char('0');
        return {};
    case Kind::And:
        return compileChildren(QStringLiteral(" AND "), QStringLiteral("1"));
    case Kind::Or:
        return compileChildren(QStringLiteral(" OR "), QStringLiteral("0"));
    case Kind::Not:
        sql.where += QLatin1String("NOT ");
        return compileChildren(QString(), QString());
    case Kind::Equal:
    case Kind::NotEqual:
        sql.where += operand + (kind == Kind::Equal ? QLatin1String(" IS ?") : QLatin1String(" IS NOT ?"));
        sql.bindings.append(isMissing(argument) ? QVariant() : sqlValue(argument));
        return {};
    case Kind::Contains:
        if (foldedArgument.isEmpty()) {
            sql.where += QLatin1Char('0');
            return {};
        }
        sql.where += QStringLiteral("(%1 IS NOT NULL AND instr(%2, ?) > 0)")
                         .arg(operand, caseInsensitive ? QStringLiteral("corvel_casefold(%1)").arg(operand) : operand);
        sql.bindings.append(foldedArgument);
        return {};
    case Kind::In: {
        const QVariantList members = argument.toList();
        if (members.isEmpty()) {
            sql.where += QLatin1Char('0');
            return {};
        }
        QStringList placeholders;
        for (const QVariant& member : members) {
            placeholders.append(QStringLiteral("?"));
            sql.bindings.append(sqlValue(member));
        }
        sql.where +=
            QStringLiteral("(%1 IS NOT NULL AND %1 IN (%2))").arg(operand, placeholders.join(QLatin1String(", ")));
        return {};
    }
    }
    return {};
}

QString Predicate::Node::format(bool nested) const
{
    const auto joined = [&](const QString& joiner, const QString& whenEmpty) {
        if (children.isEmpty()) {
            return whenEmpty;
        }
        QStringList parts;
        for (const auto& child : children) {
            parts.append(child->format(true));
        }
        const QString text = parts.join(joiner);
        return nested && children.size() > 1 ? QLatin1Char('(') + text + QLatin1Char(')') : text;
    };
    switch (kind) {
    case Kind::True:
        return QStringLiteral("TRUEPREDICATE");
    case Kind::False:
        return QStringLiteral("FALSEPREDICATE");
    case Kind::And:
        return joined(QStringLiteral(" AND "), QStringLiteral("TRUEPREDICATE"));
    case Kind::Or:
        return joined(QStringLiteral(" OR "), QStringLiteral("FALSEPREDICATE"));
    case Kind::Not:
        return QLatin1String("NOT ") + children.constFirst()->format(true);
    case Kind::Equal:
        return key + QLatin1String(" == ") + formatValue(argument);
    case Kind::NotEqual:
        return key + QLatin1String(" != ") + formatValue(argument);
    case Kind::Contains:
        return key + (caseInsensitive ? QLatin1String(" CONTAINS[c] ") : QLatin1String(" CONTAINS ")) +
               formatValue(argument);
    case Kind::In:
        return key + QLatin1String(" IN ") + formatValue(argument);
    }
    return {};
}

namespace {

using Node = Predicate::Node;
using NodePointer = std::shared_ptr<const Node>;

// A recursive-descent reader of the format grammar:
//   or := and (("OR" | "||") and)*      and := not (("AND" | "&&") not)*
//   not := ("NOT" | "!") not | "(" or ")" | "TRUEPREDICATE" | "FALSEPREDICATE" | keyPath operator value
class Parser {
public:
    Parser(const QString& format, const QVariantList& arguments)
        : m_text(format)
        , m_arguments(arguments)
    {}

    Result<NodePointer> parse()
    {
        Result<NodePointer> root = parseOr();
        if (!root) {
            return root;
        }
        skipSpace();
        if (m_position < m_text.size()) {
            return syntaxError(QStringLiteral("unexpected \"%1\"").arg(remainder()));
        }
        if (m_nextArgument < m_arguments.size()) {
            return predicateError(Predicate::ArgumentError,
                                  QStringLiteral("The predicate \"%1\" takes %2 arguments but was given %3.")
                                      .arg(shownText())
                                      .arg(m_nextArgument)
                                      .arg(m_arguments.size()));
        }
        return root;
    }

private:
    Error syntaxError(const QString& what) const
    {
        return predicateError(Predicate::SyntaxError, QStringLiteral("Unable to parse the predicate \"%1\": %2 at "
                                                                     "position %3.")
                                                          .arg(shownText(), what)
                                                          .arg(m_position));
    }

    QString remainder() const { return m_text.mid(m_position, 20); }

    // Errors may reach an alert: a runaway format string is cut short there.
    QString shownText() const { return m_text.size() > 200 ? m_text.left(200) + QChar(0x2026) : m_text; }

    void skipSpace()
    {
        while (m_position < m_text.size() && m_text.at(m_position).isSpace()) {
            ++m_position;
        }
    }

    // Consumes a symbol such as "&&" or a keyword such as "AND" (case-insensitive, not the start of a longer word).
    bool accept(QLatin1String symbol)
    {
        skipSpace();
        if (!QStringView(m_text).mid(m_position).startsWith(symbol, Qt::CaseInsensitive)) {
            return false;
        }
        const qsizetype end = m_position + symbol.size();
        if (QChar(symbol.back()).isLetter() && end < m_text.size() && isWordCharacter(m_text.at(end))) {
            return false;
        }
        m_position = end;
        return true;
    }

    static bool isWordCharacter(QChar c) { return c.isLetterOrNumber() || c == QLatin1Char('_'); }

    Result<NodePointer> parseBinary(bool conjunction)
    {
        const QLatin1String word = conjunction ? QLatin1String("AND") : QLatin1String("OR");
        const QLatin1String symbol = conjunction ? QLatin1String("&&") : QLatin1String("||");
        QList<NodePointer> operands;
        do {
            Result<NodePointer> operand = conjunction ? parseNot() : parseBinary(true);
            if (!operand) {
                return operand;
            }
            operands.append(std::move(operand).value());
        } while (accept(word) || accept(symbol));
        if (operands.size() == 1) {
            return operands.constFirst();
        }
        auto node = std::make_shared<Node>();
        node->kind = conjunction ? Node::Kind::And : Node::Kind::Or;
        node->children = std::move(operands);
        return NodePointer(std::move(node));
    }

    Result<NodePointer> parseOr() { return parseBinary(false); }

    Result<NodePointer> parseNot()
    {
        // Nesting recurses: a bound keeps a hostile format string from exhausting the stack.
        if (m_depth >= maximumDepth) {
            return syntaxError(QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth));
        }
        ++m_depth;
        Result<NodePointer> parsed = parseNested();
        --m_depth;
        return parsed;
    }

    Result<NodePointer> parseNested()
    {
        if (accept(QLatin1String("NOT")) || accept(QLatin1String("!"))) {
            Result<NodePointer> operand = parseNot();
            if (!operand) {
                return operand;
            }
            auto node = std::make_shared<Node>();
            node->kind = Node::Kind::Not;
            node->children.append(std::move(operand).value());
            return NodePointer(std::move(node));
        }
        if (accept(QLatin1String("("))) {
            Result<NodePointer> inner = parseOr();
            if (!inner) {
                return inner;
            }
            if (!accept(QLatin1String(")"))) {
                return syntaxError(m_position < m_text.size()
                                       ? QStringLiteral("expected \")\" before \"%1\"").arg(remainder())
                                       : QStringLiteral("missing \")\""));
            }
            return inner;
        }
        if (accept(QLatin1String("TRUEPREDICATE"))) {
            return NodePointer(std::make_shared<Node>());
        }
        if (accept(QLatin1String("FALSEPREDICATE"))) {
            auto node = std::make_shared<Node>();
            node->kind = Node::Kind::False;
            return NodePointer(std::move(node));
        }
        return parseComparison();
    }

    bool lookingAt(QLatin1String symbol)
    {
        skipSpace();
        return QStringView(m_text).mid(m_position).startsWith(symbol);
    }

    Result<QString> parseKeyPath()
    {
        skipSpace();
        const qsizetype start = m_position;
        while (m_position < m_text.size()) {
            const QChar c = m_text.at(m_position);
            const bool segmentStart = m_position == start || m_text.at(m_position - 1) == QLatin1Char('.');
            if (c.isLetter() || c == QLatin1Char('_') || (!segmentStart && c.isNumber())) {
                ++m_position;
            } else if (c == QLatin1Char('.') && !segmentStart) {
                ++m_position;
            } else {
                break;
            }
        }
        if (m_position == start) {
            return syntaxError(m_position < m_text.size()
                                   ? QStringLiteral("expected a key before \"%1\"").arg(remainder())
                                   : QStringLiteral("expected a key"));
        }
        if (m_text.at(m_position - 1) == QLatin1Char('.')) {
            return syntaxError(QStringLiteral("the key path ends with \".\""));
        }
        return m_text.mid(start, m_position - start);
    }

    Result<NodePointer> parseComparison()
    {
        Result<QString> key = parseKeyPath();
        if (!key) {
            return key.error();
        }
        auto node = std::make_shared<Node>();
        node->key = key.value();
        if (accept(QLatin1String("==")) || accept(QLatin1String("="))) {
            node->kind = Node::Kind::Equal;
        } else if (accept(QLatin1String("!=")) || accept(QLatin1String("<>"))) {
            node->kind = Node::Kind::NotEqual;
        } else if (accept(QLatin1String("CONTAINS"))) {
            node->kind = Node::Kind::Contains;
            if (accept(QLatin1String("[c]"))) {
                node->caseInsensitive = true;
            } else if (lookingAt(QLatin1String("["))) {
                return syntaxError(QStringLiteral("unsupported comparison option \"%1\"").arg(remainder()));
            }
        } else if (accept(QLatin1String("IN"))) {
            node->kind = Node::Kind::In;
        } else {
            skipSpace();
            return syntaxError(
                m_position < m_text.size()
                    ? QStringLiteral("unknown operator \"%1\" after \"%2\"").arg(operatorWord(), node->key)
                    : QStringLiteral("missing operator after \"%1\"").arg(node->key));
        }
        Result<QVariant> value = parseValue();
        if (!value) {
            return value.error();
        }
        return complete(std::move(node), std::move(value).value());
    }

    QString operatorWord() const
    {
        qsizetype end = m_position;
        while (end < m_text.size() && !m_text.at(end).isSpace()) {
            ++end;
        }
        return m_text.mid(m_position, end - m_position);
    }

    // Checks that the value suits the operator and prepares what evaluation needs from it.
    Result<NodePointer> complete(std::shared_ptr<Node> node, QVariant value)
    {
        switch (node->kind) {
        case Node::Kind::Contains:
            if (!isText(value)) {
                return predicateError(
                    Predicate::ArgumentError,
                    QStringLiteral("\"%1 CONTAINS\" needs a text value in \"%2\".").arg(node->key, shownText()));
            }
            node->foldedArgument = node->caseInsensitive ? value.toString().toCaseFolded() : value.toString();
            break;
        case Node::Kind::In: {
            if (value.typeId() != QMetaType::QStringList && value.typeId() != QMetaType::QVariantList) {
                return predicateError(Predicate::ArgumentError,
                                      QStringLiteral("\"%1 IN\" needs a list in \"%2\".").arg(node->key, shownText()));
            }
            const QVariantList members = value.toList();
            for (const QVariant& member : members) {
                if (isText(member)) {
                    node->textMembers.insert(member.toString());
                } else if (isNumber(member)) {
                    node->otherMembers.append(member);
                } else {
                    return predicateError(Predicate::ArgumentError,
                                          QStringLiteral("\"%1 IN\" takes a list of texts or numbers in \"%2\".")
                                              .arg(node->key, shownText()));
                }
            }
            value = members;
            break;
        }
        default:
            if (!isMissing(value) && !isText(value) && !isNumber(value)) {
                return predicateError(Predicate::ArgumentError,
                                      QStringLiteral("\"%1\" cannot be compared with a value of type %2 in \"%3\".")
                                          .arg(node->key, QString::fromLatin1(value.typeName()), shownText()));
            }
            if (isMissing(value)) {
                value = QVariant();
            }
            break;
        }
        node->argument = std::move(value);
        return NodePointer(std::move(node));
    }

    Result<QVariant> parseValue()
    {
        skipSpace();
        if (accept(QLatin1String("%@"))) {
            if (m_nextArgument >= m_arguments.size()) {
                return predicateError(Predicate::ArgumentError,
                                      QStringLiteral("The predicate \"%1\" needs more than the %2 arguments given.")
                                          .arg(shownText())
                                          .arg(m_arguments.size()));
            }
            return m_arguments.at(m_nextArgument++);
        }
        if (accept(QLatin1String("YES")) || accept(QLatin1String("TRUE"))) {
            return QVariant(true);
        }
        if (accept(QLatin1String("NO")) || accept(QLatin1String("FALSE"))) {
            return QVariant(false);
        }
        if (accept(QLatin1String("NIL")) || accept(QLatin1String("NULL"))) {
            return QVariant();
        }
        if (accept(QLatin1String("{"))) {
            return parseList();
        }
        if (m_position >= m_text.size()) {
            return syntaxError(QStringLiteral("missing value"));
        }
        const QChar c = m_text.at(m_position);
        if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            return parseQuoted(c);
        }
        if (c.isDigit() || c == QLatin1Char('-')) {
            return parseNumber();
        }
        return syntaxError(QStringLiteral("expected a value before \"%1\"").arg(remainder()));
    }

    Result<QVariant> parseList()
    {
        QVariantList items;
        if (accept(QLatin1String("}"))) {
            return QVariant(items);
        }
        do {
            Result<QVariant> item = parseValue();
            if (!item) {
                return item;
            }
            items.append(std::move(item).value());
        } while (accept(QLatin1String(",")));
        if (!accept(QLatin1String("}"))) {
            return syntaxError(QStringLiteral("missing \"}\""));
        }
        return QVariant(items);
    }

    Result<QVariant> parseQuoted(QChar quote)
    {
        const qsizetype start = m_position++;
        QString text;
        while (m_position < m_text.size()) {
            QChar c = m_text.at(m_position++);
            if (c == quote) {
                return QVariant(text);
            }
            if (c == QLatin1Char('\\') && m_position < m_text.size()) {
                c = m_text.at(m_position++);
            }
            text.append(c);
        }
        m_position = start;
        return syntaxError(QStringLiteral("unterminated text"));
    }

    Result<QVariant> parseNumber()
    {
        const qsizetype start = m_position;
        if (m_text.at(m_position) == QLatin1Char('-')) {
            ++m_position;
        }
        while (m_position < m_text.size() &&
               (m_text.at(m_position).isDigit() || m_text.at(m_position) == QLatin1Char('.'))) {
            ++m_position;
        }
        const QString number = m_text.mid(start, m_position - start);
        bool ok = false;
        if (const qlonglong integer = number.toLongLong(&ok); ok) {
            return QVariant(integer);
        }
        if (const double real = number.toDouble(&ok); ok) {
            return QVariant(real);
        }
        m_position = start;
        return syntaxError(QStringLiteral("malformed number \"%1\"").arg(number));
    }

    const QString& m_text;
    const QVariantList& m_arguments;
    qsizetype m_position = 0;
    qsizetype m_nextArgument = 0;
    int m_depth = 0;
    static constexpr int maximumDepth = 200;
};

NodePointer junction(Node::Kind kind, const QList<Predicate>& predicates,
                     const std::function<NodePointer(const Predicate&)>& rootOf)
{
    auto node = std::make_shared<Node>();
    node->kind = kind;
    for (const Predicate& predicate : predicates) {
        node->children.append(rootOf(predicate));
    }
    return node;
}

} // namespace

Predicate::Predicate()
    : Predicate(std::make_shared<Node>())
{}

Predicate::Predicate(std::shared_ptr<const Node> root)
    : m_root(std::move(root))
{}

Result<Predicate> Predicate::parse(const QString& format, const QVariantList& arguments)
{
    Result<NodePointer> root = Parser(format, arguments).parse();
    if (!root) {
        return root.error();
    }
    return Predicate(std::move(root).value());
}

Predicate Predicate::truePredicate()
{
    return Predicate();
}

Predicate Predicate::falsePredicate()
{
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::False;
    return Predicate(std::move(node));
}

Predicate Predicate::andPredicate(const QList<Predicate>& predicates)
{
    return Predicate(junction(Node::Kind::And, predicates, [](const Predicate& p) { return p.m_root; }));
}

Predicate Predicate::orPredicate(const QList<Predicate>& predicates)
{
    return Predicate(junction(Node::Kind::Or, predicates, [](const Predicate& p) { return p.m_root; }));
}

Predicate Predicate::notPredicate(const Predicate& predicate)
{
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::Not;
    node->children.append(predicate.m_root);
    return Predicate(std::move(node));
}

bool Predicate::evaluate(const KeyValueRecord& record) const
{
    return m_root->evaluate(record);
}

Result<SqlFragment> Predicate::toSql(const SqlColumnMap& columns) const
{
    SqlFragment sql;
    if (const Result<void> compiled = m_root->compile(columns, sql); !compiled) {
        return compiled.error();
    }
    // SQLite's own bound (SQLITE_MAX_VARIABLE_NUMBER as Debian and Homebrew build it).
    constexpr qsizetype maximumBindings = 32766;
    if (sql.bindings.size() > maximumBindings) {
        return predicateError(SqlError, QStringLiteral("The predicate needs %1 SQL parameters, more than the %2 "
                                                       "SQLite accepts in one statement.")
                                            .arg(sql.bindings.size())
                                            .arg(maximumBindings));
    }
    return sql;
}

QString Predicate::format() const
{
    return m_root->format(false);
}

namespace {

void caseFold(sqlite3_context* context, int argumentCount, sqlite3_value** arguments)
{
    Q_UNUSED(argumentCount);
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(arguments[0]));
    const QByteArray folded = QString::fromUtf8(text, sqlite3_value_bytes(arguments[0])).toCaseFolded().toUtf8();
    sqlite3_result_text(context, folded.constData(), int(folded.size()), SQLITE_TRANSIENT);
}

} // namespace

Result<void> Predicate::registerSqlFunctions(sqlite3* connection)
{
    const int status = sqlite3_create_function_v2(connection, "corvel_casefold", 1,
                                                  SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
                                                  caseFold, nullptr, nullptr, nullptr);
    if (status != SQLITE_OK) {
        return predicateError(SqlError, QStringLiteral("Unable to register the case folding function: %1")
                                            .arg(QString::fromUtf8(sqlite3_errstr(status))));
    }
    return {};
}
