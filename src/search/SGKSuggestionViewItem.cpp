#include "search/SGKSuggestionViewItem.h"

SGKTextAttributes SGKSuggestionViewItem::defaultKeyAttributes()
{
    return {};
}

SGKTextAttributes SGKSuggestionViewItem::defaultValueAttributes()
{
    // The typed text stands out from the label that explains it.
    return {.bold = true, .secondary = false};
}

QString SGKSuggestionViewItem::strategyName(Strategy strategy)
{
    switch (strategy) {
    case Strategy::Predicate:
        return QStringLiteral("predicate");
    case Strategy::Completion:
        return QStringLiteral("completion");
    case Strategy::Command:
        return QStringLiteral("command");
    }
    return {};
}

SGKSuggestionViewItem::SGKSuggestionViewItem(const QString& key)
    : m_key(key)
    , m_keyAttributes(defaultKeyAttributes())
{}

SGKSuggestionViewItem::~SGKSuggestionViewItem() = default;

const QString& SGKSuggestionViewItem::label() const
{
    if (!m_label) {
        m_label = m_key + m_value.value_or(QString());
    }
    return *m_label;
}

const QList<SGKTextRun>& SGKSuggestionViewItem::attributedLabel() const
{
    if (!m_attributedLabel) {
        QList<SGKTextRun> runs{{m_key, m_keyAttributes}};
        if (m_value) {
            runs.append({*m_value, m_valueAttributes.value_or(defaultValueAttributes())});
        }
        m_attributedLabel = runs;
    }
    return *m_attributedLabel;
}

void SGKSuggestionViewItem::setState(State state)
{
    m_state = state;
    m_stateImage = state == State::On ? std::optional<QString>(checkmarkSymbol) : std::nullopt;
}
