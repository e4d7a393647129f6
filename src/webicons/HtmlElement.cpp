#include "webicons/HtmlElement.h"

#include <QRegularExpression>

bool HtmlElement::hasAttribute(QStringView name) const
{
    return attribute(name).has_value();
}

std::optional<QString> HtmlElement::attribute(QStringView name) const
{
    for (const Attribute& attribute : m_attributes) {
        if (attribute.name.compare(name, Qt::CaseInsensitive) == 0) {
            return attribute.value;
        }
    }
    return std::nullopt;
}

QString HtmlElement::id() const
{
    return attribute(u"id").value_or(QString());
}

QStringList HtmlElement::classes() const
{
    static const QRegularExpression whitespace(QStringLiteral("[ \\t\\n\\f\\r]+"));
    return attribute(u"class").value_or(QString()).split(whitespace, Qt::SkipEmptyParts);
}

QString HtmlElement::text() const
{
    // Iterative: a page may nest elements far deeper than the stack would allow recursion.
    QString text;
    std::vector<std::pair<const HtmlElement*, std::size_t>> stack{{this, 0}};
    while (!stack.empty()) {
        auto& [element, next] = stack.back();
        if (next == element->m_parts.size()) {
            stack.pop_back();
            continue;
        }
        const Part& part = element->m_parts[next++];
        if (part.element) {
            stack.emplace_back(part.element, 0);
        } else {
            text += part.text;
        }
    }
    return text;
}
