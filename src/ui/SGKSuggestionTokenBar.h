// The row of tokens for the active filters of a suggestion list, kept in step with the list; removing or switching
// a token goes back to the list, which reports the new combined filter.
#pragma once

#include "search/SGKSuggestionList.h"

#include <QList>
#include <QPointer>
#include <QWidget>

class QHBoxLayout;
class SGKSuggestionToken;

class SGKSuggestionTokenBar : public QWidget {
    Q_OBJECT

public:
    explicit SGKSuggestionTokenBar(QWidget* parent = nullptr);

    void setSuggestionList(SGKSuggestionList* list);
    const QList<SGKSuggestionToken*>& tokens() const { return m_tokens; }

Q_SIGNALS:
    // The tokens were rebuilt; their number or size may have changed.
    void tokensChanged();

private:
    void rebuild();
    QString alternateTitle(const QString& kind) const;

    QPointer<SGKSuggestionList> m_list;
    QHBoxLayout* m_layout;
    QList<SGKSuggestionToken*> m_tokens;
};
