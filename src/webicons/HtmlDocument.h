// A parsed HTML page: gumbo builds the tree with a browser's error recovery, and this keeps a light copy of its
// elements that CSS selectors can query. Any bytes make a document; malformed markup is repaired, never refused.
#pragma once

#include "foundation/Result.h"
#include "webicons/HtmlElement.h"

#include <QByteArray>
#include <QList>
#include <QStringView>
#include <memory>
#include <vector>

class CssSelector;

class HtmlDocument {
public:
    // Start tags that would nest elements deeper than this are dropped (their text is kept), as browsers also cap the
    // depth: the parser's work grows with the square of the depth. Formatting tags (b, i...) left open beyond a few
    // are dropped too, since each later text reopens them all.
    static constexpr std::size_t maximumDepth = 256;

    // The page's bytes in the encoding it declares (a byte order mark or a meta charset), UTF-8 when it declares none.
    static HtmlDocument parse(QByteArrayView html);

    HtmlDocument(HtmlDocument&&) noexcept = default;
    HtmlDocument& operator=(HtmlDocument&&) noexcept = default;
    ~HtmlDocument();

    // The html element; every document has one, even one parsed from nothing.
    const HtmlElement& root() const { return *m_root; }

    // Every element that matches, in document order.
    QList<const HtmlElement*> querySelectorAll(const CssSelector& selector) const;
    // The same for selector text; an error when the text is not a selector.
    Result<QList<const HtmlElement*>> querySelectorAll(QStringView selector) const;
    // The first match in document order, none when nothing matches.
    const HtmlElement* querySelector(const CssSelector& selector) const;

    // All elements in document order.
    const std::vector<std::unique_ptr<HtmlElement>>& elements() const { return m_elements; }

private:
    HtmlDocument() = default;

    // Owning every element here, in document order, keeps destruction flat however deep the tree is.
    std::vector<std::unique_ptr<HtmlElement>> m_elements;
    HtmlElement* m_root = nullptr;
};
