// A search field with a suggestion popup: the popup opens as soon as the field gains focus and follows every text
// change; Up, Down and Return drive the list while the rest of the keyboard stays with the field; the active filters
// show as tokens at the field's leading edge.
#pragma once

#include "search/SGKSuggestionList.h"
#include "ui/SGKSuggestionPopup.h"

#include <QLineEdit>
#include <QPointer>

class SGKSuggestionTokenBar;

class SGKSuggestionSearchField : public QLineEdit {
    Q_OBJECT

public:
    explicit SGKSuggestionSearchField(QWidget* parent = nullptr);
    ~SGKSuggestionSearchField() override;

    // Not owned. Whoever answers textDidChange fills it (its data source); the field shows it.
    void setSuggestionList(SGKSuggestionList* list);
    SGKSuggestionList* suggestionList() const { return m_list; }
    SGKSuggestionPopup* popup() const { return m_popup; }
    SGKSuggestionTokenBar* tokenBar() const { return m_tokenBar; }

    // Asks for the suggestions for the current text and shows them under the field.
    void showSuggestions();
    void dismissSuggestions();

Q_SIGNALS:
    // The list must be rebuilt for text: on gaining focus, and on every change of the text (typed or set).
    void textDidChange(const QString& text);
    // The field's search action: sent as the text changes, like an incremental search field, and on Return when no
    // suggestion is selected.
    void searchActionTriggered(const QString& text);

protected:
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void textChangedByAnyone(const QString& text);
    void layoutTokens();

    QPointer<SGKSuggestionList> m_list;
    QPointer<SGKSuggestionPopup> m_popup;
    SGKSuggestionTokenBar* m_tokenBar;
};
