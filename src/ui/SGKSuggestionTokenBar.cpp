#include "ui/SGKSuggestionTokenBar.h"

#include "search/SGKSuggestionList.h"
#include "ui/SGKSuggestionIcons.h"
#include "ui/SGKSuggestionToken.h"

#include <QHBoxLayout>

SGKSuggestionTokenBar::SGKSuggestionTokenBar(QWidget* parent)
    : QWidget(parent)
    , m_layout(new QHBoxLayout(this))
{
    setObjectName(QStringLiteral("suggestionTokenBar"));
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(3);
}

void SGKSuggestionTokenBar::setSuggestionList(SGKSuggestionList* list)
{
    if (m_list) {
        disconnect(m_list, nullptr, this, nullptr);
    }
    m_list = list;
    if (m_list) {
        connect(m_list, &SGKSuggestionList::activeSuggestionsChanged, this, &SGKSuggestionTokenBar::rebuild);
    }
    rebuild();
}

QString SGKSuggestionTokenBar::alternateTitle(const QString& kind) const
{
    // The alternate's own key names it best ("Name Contains"); the kind's name stands in when the current list has
    // no item of that kind.
    const auto& items = m_list->suggestionViewItems();
    for (const SGKSuggestionViewItemPtr& item : items) {
        if (item->isKind(kind)) {
            QString title = item->key().trimmed();
            if (title.endsWith(u':')) {
                title.chop(1);
            }
            return title;
        }
    }
    QString title = kind;
    return title.remove(QStringLiteral("SuggestionViewItem"));
}

void SGKSuggestionTokenBar::rebuild()
{
    // A token may be the one whose button started this, so it goes once its signal has returned.
    for (SGKSuggestionToken* token : std::as_const(m_tokens)) {
        m_layout->removeWidget(token);
        token->hide();
        token->deleteLater();
    }
    m_tokens.clear();
    if (m_list) {
        const SGKSuggestionViewItems active = m_list->activeSuggestionViewItems();
        for (const SGKSuggestionViewItemPtr& item : active) {
            if (item->strategy() != SGKSuggestionViewItem::Strategy::Predicate) {
                continue;
            }
            QList<SGKSuggestionToken::Alternate> alternates;
            const QStringList kinds = m_list->availableAlternates(item->identifier());
            for (const QString& kind : kinds) {
                alternates.append({kind, alternateTitle(kind)});
            }
            auto* token =
                new SGKSuggestionToken(item->identifier(), item->label(),
                                       SGKSuggestionIcons::icon(item->icon().value_or(QString())), alternates, this);
            connect(token, &SGKSuggestionToken::removeRequested, m_list.data(), &SGKSuggestionList::deactivate);
            connect(token, &SGKSuggestionToken::switchRequested, m_list.data(), &SGKSuggestionList::switchActiveItem);
            m_layout->addWidget(token);
            m_tokens.append(token);
        }
    }
    setVisible(!m_tokens.isEmpty());
    adjustSize();
    Q_EMIT tokensChanged();
}
