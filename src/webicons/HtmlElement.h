// One element of a parsed HTML page: its lower-cased tag name, its attributes, its child elements and text. Elements
// belong to the HtmlDocument that parsed them and live as long as it does.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>
#include <utility>
#include <vector>

class HtmlElement {
public:
    struct Attribute {
        QString name; // lower-cased
        QString value;
    };

    HtmlElement(const HtmlElement&) = delete;
    HtmlElement& operator=(const HtmlElement&) = delete;

    // Lower-cased, also for elements the parser does not know ("my-widget") and for SVG or MathML elements.
    const QString& tagName() const { return m_tagName; }

    const QList<Attribute>& attributes() const { return m_attributes; }
    bool hasAttribute(QStringView name) const;
    // The value of the first attribute of that name (matched without regard to case), none when absent.
    std::optional<QString> attribute(QStringView name) const;

    // The id attribute, empty when absent.
    QString id() const;
    // The class attribute split at ASCII whitespace.
    QStringList classes() const;

    // None for the document's root element.
    const HtmlElement* parent() const { return m_parent; }
    const QList<const HtmlElement*>& children() const { return m_children; }

    // The text of this element and all its descendants, in document order, as the page has it.
    QString text() const;

private:
    friend class HtmlDocument;

    HtmlElement() = default;

    // A run of text, or a child element (then text is empty), in document order.
    struct Part {
        const HtmlElement* element = nullptr;
        QString text;
    };

    QString m_tagName;
    QList<Attribute> m_attributes;
    const HtmlElement* m_parent = nullptr;
    QList<const HtmlElement*> m_children;
    std::vector<Part> m_parts;
};
