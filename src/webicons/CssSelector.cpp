#include "webicons/CssSelector.h"

#include "webicons/HtmlElement.h"

#include <QHash>
#include <algorithm>

namespace {

bool isCssWhitespace(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f';
}

bool isNameCharacter(QChar c)
{
    return c.isLetterOrNumber() || c == u'-' || c == u'_' || c.unicode() >= 0x80;
}

int hexValue(QChar c)
{
    if (c >= u'0' && c <= u'9') {
        return c.unicode() - u'0';
    }
    if (c.toLower() >= u'a' && c.toLower() <= u'f') {
        return c.toLower().unicode() - u'a' + 10;
    }
    return -1;
}

QList<QStringView> whitespaceSeparated(QStringView text)
{
    QList<QStringView> words;
    qsizetype start = -1;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        const bool separator = i == text.size() || isCssWhitespace(text[i]);
        if (separator && start >= 0) {
            words.append(text.mid(start, i - start));
            start = -1;
        } else if (!separator && start < 0) {
            start = i;
        }
    }
    return words;
}

} // namespace

class CssSelector::Parser {
public:
    explicit Parser(QStringView text)
        : m_text(text)
    {}

    Result<std::vector<Complex>> parseList()
    {
        std::vector<Complex> alternatives;
        skipWhitespace();
        if (atEnd()) {
            return Error(errorDomain, empty, QStringLiteral("The selector is empty"));
        }
        while (true) {
            Complex complex;
            if (!parseComplex(complex)) {
                return *m_error;
            }
            alternatives.push_back(std::move(complex));
            if (atEnd()) {
                return alternatives;
            }
            // parseComplex stops only at the end or at a comma.
            ++m_position;
            skipWhitespace();
            if (atEnd() || peek() == u',') {
                return fail(empty, QStringLiteral("Expected a selector after \",\" at position %1 in \"%2\"")
                                       .arg(m_position)
                                       .arg(m_text));
            }
        }
    }

private:
    bool atEnd() const { return m_position >= m_text.size(); }
    QChar peek() const { return atEnd() ? QChar() : m_text[m_position]; }

    bool skipWhitespace()
    {
        const qsizetype start = m_position;
        while (!atEnd() && isCssWhitespace(peek())) {
            ++m_position;
        }
        return m_position > start;
    }

    Error fail(ErrorCode code, const QString& description)
    {
        m_error = Error(errorDomain, code, description);
        return *m_error;
    }

    bool failUnexpected()
    {
        if (atEnd()) {
            fail(unexpectedCharacter, QStringLiteral("Unexpected end of \"%1\"").arg(m_text));
        } else {
            fail(unexpectedCharacter,
                 QStringLiteral("Unexpected \"%1\" at position %2 in \"%3\"").arg(peek()).arg(m_position).arg(m_text));
        }
        return false;
    }

    bool parseComplex(Complex& complex)
    {
        Compound compound;
        if (!parseCompound(compound)) {
            return false;
        }
        complex.compounds.push_back(std::move(compound));
        while (true) {
            const bool spaced = skipWhitespace();
            if (atEnd() || peek() == u',') {
                return true;
            }
            Combinator combinator = Combinator::descendant;
            if (peek() == u'>') {
                combinator = Combinator::child;
                ++m_position;
                skipWhitespace();
            } else if (peek() == u'+' || peek() == u'~') {
                fail(unsupported, QStringLiteral("The combinator \"%1\" at position %2 in \"%3\" is not supported")
                                      .arg(peek())
                                      .arg(m_position)
                                      .arg(m_text));
                return false;
            } else if (!spaced) {
                return failUnexpected();
            }
            Compound next;
            if (!parseCompound(next)) {
                return false;
            }
            complex.combinators.push_back(combinator);
            complex.compounds.push_back(std::move(next));
        }
    }

    bool parseCompound(Compound& compound)
    {
        bool any = false;
        if (peek() == u'*') {
            ++m_position;
            any = true;
        } else if (startsName()) {
            if (!parseName(compound.type)) {
                return false;
            }
            compound.type = compound.type.toLower();
            any = true;
        }
        while (!atEnd()) {
            const QChar c = peek();
            if (c == u'#' || c == u'.') {
                ++m_position;
                QString name;
                if (!startsName()) {
                    return failExpectedName(c == u'#' ? u"an id" : u"a class name");
                }
                if (!parseName(name)) {
                    return false;
                }
                if (c == u'#') {
                    compound.tests.append({QStringLiteral("id"), AttributeTest::Operator::equals, name, false});
                } else {
                    compound.tests.append({QStringLiteral("class"), AttributeTest::Operator::includes, name, false});
                }
            } else if (c == u'[') {
                AttributeTest test;
                if (!parseAttribute(test)) {
                    return false;
                }
                compound.tests.append(std::move(test));
            } else if (c == u':') {
                qsizetype end = m_position + 1;
                while (end < m_text.size() && (m_text[end] == u':' || isNameCharacter(m_text[end]))) {
                    ++end;
                }
                fail(unsupported, QStringLiteral("The pseudo-class \"%1\" in \"%2\" is not supported")
                                      .arg(m_text.mid(m_position, end - m_position))
                                      .arg(m_text));
                return false;
            } else {
                break;
            }
            any = true;
        }
        if (!any) {
            return failExpectedName(u"a selector");
        }
        return true;
    }

    bool failExpectedName(QStringView what)
    {
        if (atEnd()) {
            fail(unexpectedCharacter, QStringLiteral("Expected %1 at the end of \"%2\"").arg(what).arg(m_text));
        } else {
            fail(unexpectedCharacter, QStringLiteral("Expected %1 at position %2 in \"%3\", found \"%4\"")
                                          .arg(what)
                                          .arg(m_position)
                                          .arg(m_text)
                                          .arg(peek()));
        }
        return false;
    }

    // An identifier may not begin with a digit, nor with a hyphen and a digit.
    bool startsName() const
    {
        if (atEnd()) {
            return false;
        }
        qsizetype at = m_position;
        if (m_text[at] == u'-') {
            ++at;
            if (at == m_text.size()) {
                return false;
            }
        }
        const QChar c = m_text[at];
        return c == u'\\' || c == u'-' || (isNameCharacter(c) && !c.isDigit());
    }

    bool parseName(QString& name)
    {
        while (!atEnd()) {
            const QChar c = peek();
            if (c == u'\\') {
                if (!parseEscape(name)) {
                    return false;
                }
            } else if (isNameCharacter(c)) {
                name += c;
                ++m_position;
            } else {
                break;
            }
        }
        return true;
    }

    // A backslash and up to six hex digits (one whitespace after them is part of the escape), or a backslash and
    // any other character, which then stands for itself.
    bool parseEscape(QString& out)
    {
        ++m_position;
        if (atEnd() || peek() == u'\n') {
            fail(unterminated, QStringLiteral("Unfinished escape at the end of \"%1\"").arg(m_text));
            return false;
        }
        qsizetype digits = 0;
        char32_t codePoint = 0;
        while (!atEnd() && digits < 6 && hexValue(peek()) >= 0) {
            codePoint = codePoint * 16 + char32_t(hexValue(peek()));
            ++m_position;
            ++digits;
        }
        if (digits == 0) {
            out += peek();
            ++m_position;
            return true;
        }
        if (!atEnd() && isCssWhitespace(peek())) {
            ++m_position;
        }
        if (codePoint == 0 || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            codePoint = 0xFFFD;
        }
        out += QString::fromUcs4(&codePoint, 1);
        return true;
    }

    bool parseAttribute(AttributeTest& test)
    {
        const qsizetype opening = m_position;
        ++m_position;
        skipWhitespace();
        if (!startsName()) {
            return failExpectedName(u"an attribute name");
        }
        if (!parseName(test.name)) {
            return false;
        }
        test.name = test.name.toLower();
        skipWhitespace();
        if (atEnd()) {
            return failUnterminatedAttribute(opening);
        }
        if (peek() == u']') {
            ++m_position;
            test.op = AttributeTest::Operator::exists;
            return true;
        }
        if (!parseOperator(test.op)) {
            return false;
        }
        skipWhitespace();
        if (peek() == u'"' || peek() == u'\'') {
            if (!parseString(test.value)) {
                return false;
            }
        } else if (startsName()) {
            if (!parseName(test.value)) {
                return false;
            }
        } else if (atEnd()) {
            return failUnterminatedAttribute(opening);
        } else {
            return failExpectedName(u"an attribute value");
        }
        const bool spaced = skipWhitespace();
        if (spaced && (peek() == u'i' || peek() == u'I' || peek() == u's' || peek() == u'S')) {
            test.ignoreCase = peek().toLower() == u'i';
            ++m_position;
            skipWhitespace();
        }
        if (atEnd()) {
            return failUnterminatedAttribute(opening);
        }
        if (peek() != u']') {
            return failUnexpected();
        }
        ++m_position;
        return true;
    }

    bool failUnterminatedAttribute(qsizetype opening)
    {
        fail(
            unterminated,
            QStringLiteral("The attribute selector at position %1 in \"%2\" lacks its \"]\"").arg(opening).arg(m_text));
        return false;
    }

    bool parseOperator(AttributeTest::Operator& op)
    {
        using Op = AttributeTest::Operator;
        const QChar c = peek();
        if (c == u'=') {
            op = Op::equals;
            ++m_position;
            return true;
        }
        static const QHash<QChar, Op> prefixed{
            {u'~', Op::includes}, {u'|', Op::dashMatch}, {u'^', Op::prefix}, {u'$', Op::suffix}, {u'*', Op::substring}};
        const auto found = prefixed.constFind(c);
        if (found == prefixed.constEnd() || m_position + 1 >= m_text.size() || m_text[m_position + 1] != u'=') {
            if (c == u'|') {
                fail(unsupported,
                     QStringLiteral("Namespaced attribute selectors are not supported: \"%1\"").arg(m_text));
                return false;
            }
            return failUnexpected();
        }
        op = *found;
        m_position += 2;
        return true;
    }

    bool parseString(QString& out)
    {
        const QChar quote = peek();
        const qsizetype opening = m_position;
        ++m_position;
        while (!atEnd() && peek() != quote) {
            if (peek() == u'\\') {
                // An escaped line break continues the string.
                if (m_position + 1 < m_text.size() && m_text[m_position + 1] == u'\n') {
                    m_position += 2;
                    continue;
                }
                if (!parseEscape(out)) {
                    return false;
                }
            } else if (peek() == u'\n') {
                break;
            } else {
                out += peek();
                ++m_position;
            }
        }
        if (atEnd() || peek() != quote) {
            fail(unterminated,
                 QStringLiteral("The string at position %1 in \"%2\" is not closed").arg(opening).arg(m_text));
            return false;
        }
        ++m_position;
        return true;
    }

    QStringView m_text;
    qsizetype m_position = 0;
    std::optional<Error> m_error;
};

Result<CssSelector> CssSelector::parse(QStringView text)
{
    Parser parser(text);
    Result<std::vector<Complex>> alternatives = parser.parseList();
    if (!alternatives) {
        return alternatives.error();
    }
    CssSelector selector;
    selector.m_text = text.toString();
    selector.m_alternatives = std::move(alternatives).value();
    return selector;
}

bool CssSelector::AttributeTest::matches(const HtmlElement& element) const
{
    const std::optional<QString> actual = element.attribute(name);
    if (!actual) {
        return false;
    }
    const Qt::CaseSensitivity cs = ignoreCase ? Qt::CaseInsensitive : Qt::CaseSensitive;
    switch (op) {
    case Operator::exists:
        return true;
    case Operator::equals:
        return actual->compare(value, cs) == 0;
    case Operator::includes:
        // A value that is empty or holds whitespace can never be one of the words.
        if (value.isEmpty() || std::any_of(value.begin(), value.end(), isCssWhitespace)) {
            return false;
        }
        return std::ranges::any_of(whitespaceSeparated(*actual),
                                   [&](QStringView word) { return word.compare(value, cs) == 0; });
    case Operator::dashMatch:
        return actual->compare(value, cs) == 0 ||
               (actual->size() > value.size() && actual->startsWith(value, cs) && (*actual)[value.size()] == u'-');
    case Operator::prefix:
        return !value.isEmpty() && actual->startsWith(value, cs);
    case Operator::suffix:
        return !value.isEmpty() && actual->endsWith(value, cs);
    case Operator::substring:
        return !value.isEmpty() && actual->contains(value, cs);
    }
    return false;
}

bool CssSelector::Compound::matches(const HtmlElement& element) const
{
    if (!type.isEmpty() && type != element.tagName()) {
        return false;
    }
    return std::all_of(tests.begin(), tests.end(),
                       [&element](const AttributeTest& test) { return test.matches(element); });
}

namespace {

// For each element (parents listed before their children, -1 for none), whether it matches the chain of compounds.
// matched[i] says an element matches compounds 0..i with compound i on itself; reached[i] says it or an ancestor does.
template <class Compound, class Combinator>
void matchChain(const std::vector<Compound>& compounds, const std::vector<Combinator>& combinators,
                const QList<const HtmlElement*>& elements, const std::vector<qsizetype>& parents,
                std::vector<bool>& result)
{
    const std::size_t depth = compounds.size();
    std::vector<std::vector<bool>> matched(depth, std::vector<bool>(std::size_t(elements.size())));
    std::vector<std::vector<bool>> reached(depth, std::vector<bool>(std::size_t(elements.size())));
    for (qsizetype e = 0; e < elements.size(); ++e) {
        const auto at = std::size_t(e);
        const qsizetype parent = parents[at];
        for (std::size_t i = 0; i < depth; ++i) {
            bool match = compounds[i].matches(*elements[e]);
            if (match && i > 0) {
                const auto& before = combinators[i - 1] == Combinator::child ? matched[i - 1] : reached[i - 1];
                match = parent >= 0 && before[std::size_t(parent)];
            }
            matched[i][at] = match;
            reached[i][at] = match || (parent >= 0 && reached[i][std::size_t(parent)]);
        }
        if (matched[depth - 1][at]) {
            result[at] = true;
        }
    }
}

} // namespace

std::vector<bool> CssSelector::matchEach(const QList<const HtmlElement*>& elements) const
{
    QHash<const HtmlElement*, qsizetype> positions;
    positions.reserve(elements.size());
    std::vector<qsizetype> parents(std::size_t(elements.size()), -1);
    for (qsizetype e = 0; e < elements.size(); ++e) {
        positions.insert(elements[e], e);
        if (elements[e]->parent()) {
            parents[std::size_t(e)] = positions.value(elements[e]->parent(), -1);
        }
    }
    std::vector<bool> result(std::size_t(elements.size()));
    for (const Complex& complex : m_alternatives) {
        matchChain(complex.compounds, complex.combinators, elements, parents, result);
    }
    return result;
}

bool CssSelector::matches(const HtmlElement& element) const
{
    QList<const HtmlElement*> chain;
    for (const HtmlElement* e = &element; e; e = e->parent()) {
        chain.prepend(e);
    }
    return matchEach(chain).back();
}
