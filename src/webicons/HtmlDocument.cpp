#include "webicons/HtmlDocument.h"

#include "webicons/CssSelector.h"

#include <QSet>
#include <QStringConverter>
#include <QStringDecoder>
#include <algorithm>
#include <gumbo.h>

namespace {

struct GumboOutputDeleter {
    void operator()(GumboOutput* output) const { gumbo_destroy_output(&kGumboDefaultOptions, output); }
};

QString textOf(const char* text)
{
    return QString::fromUtf8(text);
}

QString tagNameOf(const GumboElement& element)
{
    if (element.tag != GUMBO_TAG_UNKNOWN) {
        return textOf(gumbo_normalized_tagname(element.tag));
    }
    // Unknown tags keep only their source text ("<my-widget a=b>"), from which the name is cut.
    GumboStringPiece piece = element.original_tag;
    if (piece.data == nullptr || piece.length == 0) {
        return QString();
    }
    gumbo_tag_from_original_text(&piece);
    return QString::fromUtf8(piece.data, qsizetype(piece.length)).toLower();
}

// gumbo reads UTF-8 only; pages in another declared encoding are converted first.
QByteArray utf8Of(QByteArrayView html)
{
    const std::optional<QStringConverter::Encoding> encoding = QStringConverter::encodingForHtml(html);
    if (!encoding || *encoding == QStringConverter::Utf8) {
        return html.toByteArray();
    }
    QStringDecoder decoder(*encoding);
    const QString text = decoder.decode(html);
    return text.toUtf8();
}

bool isAsciiSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool isAsciiLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Where the tag whose name ends at from closes: after its ">", skipping ">" inside quoted attribute values.
qsizetype tagEnd(const QByteArray& html, qsizetype from, bool& selfClosing)
{
    char quote = 0;
    bool afterEquals = false;
    for (qsizetype at = from; at < html.size(); ++at) {
        const char c = html[at];
        if (quote) {
            if (c == quote) {
                quote = 0;
            }
        } else if (c == '>') {
            selfClosing = at > from && html[at - 1] == '/';
            return at + 1;
        } else if ((c == '"' || c == '\'') && afterEquals) {
            quote = c;
        } else if (c == '=') {
            afterEquals = true;
        } else if (!isAsciiSpace(c)) {
            afterEquals = false;
        }
    }
    selfClosing = false;
    return html.size();
}

// gumbo, like the HTML standard, checks the whole stack of open elements for many tags, and before each later text
// reopens the formatting elements (b, i, a...) that another element's end tag closed. So a page nested thousands deep
// takes minutes to parse, and one that leaves many formatting elements open grows a tree of quadratic size. Browsers
// cap the depth; this drops the start tags that would take the open elements plus those waiting to be reopened beyond
// maxDepth, and the formatting start tags once a few are waiting. It follows the parser roughly, erring on the side of
// counting too many. Pages within the caps come back unchanged.
QByteArray limitNesting(const QByteArray& html, std::size_t maxDepth)
{
    constexpr std::size_t maximumWaitingFormatting = 4;
    static const QSet<QByteArray> voidElements{"area",  "base",  "basefont", "bgsound", "br",    "col",
                                               "embed", "frame", "hr",       "img",     "input", "keygen",
                                               "link",  "meta",  "param",    "source",  "track", "wbr"};
    // Closed by their next sibling rather than by an end tag, or never nested: not counted, nor their end tags.
    static const QSet<QByteArray> uncounted{"html",     "head",     "body", "li", "dt",    "dd",    "option",
                                            "optgroup", "tr",       "td",   "th", "thead", "tbody", "tfoot",
                                            "caption",  "colgroup", "rb",   "rt", "rtc",   "rp"};
    static const QSet<QByteArray> rawText{"script", "style",  "textarea", "title",
                                          "xmp",    "iframe", "noembed",  "noframes"};
    static const QSet<QByteArray> formatting{"a",    "b", "big",   "code",   "em",     "font", "i",
                                             "nobr", "s", "small", "strike", "strong", "tt",   "u"};
    // Start tags that close an open p element first.
    static const QSet<QByteArray> closesParagraph{
        "address", "article",  "aside",      "blockquote", "center",  "details", "dialog", "dir",  "div",
        "dl",      "fieldset", "figcaption", "figure",     "footer",  "form",    "h1",     "h2",   "h3",
        "h4",      "h5",       "h6",         "header",     "hgroup",  "hr",      "main",   "menu", "nav",
        "ol",      "p",        "pre",        "section",    "summary", "table",   "ul"};

    struct Open {
        QByteArray name;
        QByteArray identity; // name and attributes, for formatting elements
    };
    std::vector<Open> open;
    // Formatting elements closed by another element's end tag, which the parser reopens before later content; like the
    // parser, at most three alike.
    std::vector<QByteArray> waiting;
    int foreign = 0; // open svg and math elements, inside which "/>" closes
    const auto closeDownTo = [&](std::vector<Open>::iterator first) {
        for (auto it = first; it != open.end(); ++it) {
            foreign -= it->name == "svg" || it->name == "math";
            if (it != first && !it->identity.isEmpty() &&
                std::count(waiting.begin(), waiting.end(), it->identity) < 3) {
                waiting.push_back(it->identity);
            }
        }
        open.erase(first, open.end());
    };
    const auto findOpen = [&open](const QByteArray& name) {
        const auto found = std::find_if(open.rbegin(), open.rend(), [&name](const Open& e) { return e.name == name; });
        return found == open.rend() ? open.end() : found.base() - 1;
    };

    const QByteArrayView view(html);
    QByteArray limited;
    qsizetype copied = 0;
    qsizetype at = 0;
    while (at < html.size()) {
        const qsizetype opening = html.indexOf('<', at);
        if (opening < 0 || opening + 1 >= html.size()) {
            break;
        }
        at = opening + 1;
        if (view.sliced(at).startsWith("!--")) {
            const qsizetype end = html.indexOf("-->", at + 3);
            at = end < 0 ? html.size() : end + 3;
            continue;
        }
        const bool closing = html[at] == '/';
        const qsizetype nameStart = closing ? at + 1 : at;
        if (html[at] == '!' || html[at] == '?' ||
            (closing && nameStart < html.size() && !isAsciiLetter(html[nameStart]))) {
            const qsizetype end = html.indexOf('>', at);
            at = end < 0 ? html.size() : end + 1;
            continue;
        }
        if (nameStart >= html.size() || !isAsciiLetter(html[nameStart])) {
            continue;
        }
        qsizetype nameEnd = nameStart;
        while (nameEnd < html.size() && !isAsciiSpace(html[nameEnd]) && html[nameEnd] != '/' && html[nameEnd] != '>') {
            ++nameEnd;
        }
        const QByteArray name = view.sliced(nameStart, nameEnd - nameStart).toByteArray().toLower();
        bool selfClosing = false;
        at = tagEnd(html, nameEnd, selfClosing);
        if (closing) {
            if (uncounted.contains(name)) {
                continue;
            }
            const auto found = findOpen(name);
            if (formatting.contains(name)) {
                // The adoption agency closes the formatting element alone; what opened inside it stays open.
                if (found != open.end()) {
                    open.erase(found);
                } else if (const auto w = std::find_if(
                               waiting.rbegin(), waiting.rend(),
                               [&name](const QByteArray& identity) { return identity.startsWith(name + ' '); });
                           w != waiting.rend()) {
                    waiting.erase(w.base() - 1);
                }
            } else if (found != open.end()) {
                closeDownTo(found);
            }
            continue;
        }
        if (name == "plaintext") {
            break;
        }
        if (rawText.contains(name)) {
            // Their content is text: skip to their end tag.
            qsizetype end = at;
            while ((end = html.indexOf("</", end)) >= 0 &&
                   view.sliced(end + 2, std::min(name.size(), html.size() - end - 2)).toByteArray().toLower() != name) {
                end += 2;
            }
            at = end < 0 ? html.size() : end;
            continue;
        }
        if (voidElements.contains(name) || uncounted.contains(name) || (selfClosing && foreign > 0)) {
            continue;
        }
        if (closesParagraph.contains(name)) {
            if (const auto paragraph = findOpen("p"); paragraph != open.end()) {
                closeDownTo(paragraph);
            }
        }
        // Waiting formatting elements are reopened before each text, so there must be few of them.
        if (open.size() + waiting.size() >= maxDepth ||
            (formatting.contains(name) && waiting.size() >= maximumWaitingFormatting)) {
            limited += view.sliced(copied, opening - copied);
            copied = at;
            continue;
        }
        QByteArray identity;
        if (formatting.contains(name)) {
            identity = name + ' ' + view.sliced(nameEnd, at - nameEnd).trimmed().toByteArray();
        }
        open.push_back({name, identity});
        foreign += name == "svg" || name == "math";
    }
    if (copied == 0) {
        return html;
    }
    limited += view.sliced(copied);
    return limited;
}

} // namespace

HtmlDocument::~HtmlDocument() = default;

HtmlDocument HtmlDocument::parse(QByteArrayView html)
{
    const QByteArray utf8 = limitNesting(utf8Of(html), maximumDepth);
    const std::unique_ptr<GumboOutput, GumboOutputDeleter> output(
        gumbo_parse_with_options(&kGumboDefaultOptions, utf8.constData(), std::size_t(utf8.size())));

    HtmlDocument document;
    // Copied without recursion: a page may nest elements far deeper than the stack would allow.
    struct Pending {
        const GumboNode* node;
        HtmlElement* parent;
    };
    std::vector<Pending> stack{{output->root, nullptr}};
    while (!stack.empty()) {
        const Pending pending = stack.back();
        stack.pop_back();
        const GumboNode* node = pending.node;
        if (node->type != GUMBO_NODE_ELEMENT && node->type != GUMBO_NODE_TEMPLATE) {
            if (pending.parent && node->type != GUMBO_NODE_COMMENT && node->type != GUMBO_NODE_DOCUMENT) {
                pending.parent->m_parts.push_back({nullptr, textOf(node->v.text.text)});
            }
            continue;
        }
        const GumboElement& source = node->v.element;
        auto& element = document.m_elements.emplace_back(new HtmlElement);
        element->m_tagName = tagNameOf(source);
        element->m_parent = pending.parent;
        element->m_attributes.reserve(qsizetype(source.attributes.length));
        for (unsigned int i = 0; i < source.attributes.length; ++i) {
            const auto* attribute = static_cast<const GumboAttribute*>(source.attributes.data[i]);
            element->m_attributes.append({textOf(attribute->name).toLower(), textOf(attribute->value)});
        }
        if (pending.parent) {
            pending.parent->m_children.append(element.get());
            pending.parent->m_parts.push_back({element.get(), QString()});
        }
        // Pushed in reverse so that they are taken in document order.
        for (unsigned int i = source.children.length; i > 0; --i) {
            stack.push_back({static_cast<const GumboNode*>(source.children.data[i - 1]), element.get()});
        }
    }
    document.m_root = document.m_elements.front().get();
    return document;
}

QList<const HtmlElement*> HtmlDocument::querySelectorAll(const CssSelector& selector) const
{
    QList<const HtmlElement*> all;
    all.reserve(qsizetype(m_elements.size()));
    for (const auto& element : m_elements) {
        all.append(element.get());
    }
    const std::vector<bool> matched = selector.matchEach(all);
    QList<const HtmlElement*> matches;
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (matched[std::size_t(i)]) {
            matches.append(all[i]);
        }
    }
    return matches;
}

Result<QList<const HtmlElement*>> HtmlDocument::querySelectorAll(QStringView selector) const
{
    Result<CssSelector> parsed = CssSelector::parse(selector);
    if (!parsed) {
        return parsed.error();
    }
    return querySelectorAll(parsed.value());
}

const HtmlElement* HtmlDocument::querySelector(const CssSelector& selector) const
{
    const QList<const HtmlElement*> matches = querySelectorAll(selector);
    return matches.isEmpty() ? nullptr : matches.front();
}
