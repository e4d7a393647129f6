// A parsed CSS selector list that tests elements of an HtmlDocument: type, universal, #id, .class and attribute
// selectors (presence, =, ~=, |=, ^=, $=, *=, with the i and s flags), joined by descendant and child combinators.
// What it does not support (pseudo-classes, sibling combinators, namespaces) is refused with a clear error.
#pragma once

#include "foundation/Result.h"

#include <QList>
#include <QString>
#include <QStringView>
#include <memory>
#include <vector>

class HtmlElement;

class CssSelector {
public:
    // The family of every parse error.
    static inline const QString errorDomain = QStringLiteral("CssSelectorError");
    enum ErrorCode { empty = 1, unexpectedCharacter, unterminated, unsupported };

    static Result<CssSelector> parse(QStringView text);

    // True when the element matches any selector of the list; ancestors are looked at through parent().
    bool matches(const HtmlElement& element) const;

    // For elements listed in document order (every parent before its children), whether each matches. Costs one
    // pass per selector however deep the tree, where testing each element on its own walks all its ancestors.
    std::vector<bool> matchEach(const QList<const HtmlElement*>& elements) const;

    const QString& text() const { return m_text; }

private:
    struct AttributeTest {
        enum class Operator { exists, equals, includes, dashMatch, prefix, suffix, substring };
        QString name; // lower-cased
        Operator op = Operator::exists;
        QString value;
        bool ignoreCase = false;

        bool matches(const HtmlElement& element) const;
    };
    struct Compound {
        QString type; // lower-cased; empty for any element
        QList<AttributeTest> tests;

        bool matches(const HtmlElement& element) const;
    };
    enum class Combinator { descendant, child };
    // compounds[i + 1] is joined to compounds[i] by combinators[i].
    struct Complex {
        std::vector<Compound> compounds;
        std::vector<Combinator> combinators;
    };
    class Parser;

    CssSelector() = default;

    QString m_text;
    std::vector<Complex> m_alternatives;
};
