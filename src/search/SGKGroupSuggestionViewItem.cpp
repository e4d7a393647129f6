#include "search/SGKGroupSuggestionViewItem.h"

SGKGroupSuggestionViewItem::SGKGroupSuggestionViewItem(const QString& title)
    : SGKSuggestionViewItem(title)
{
    setSelectable(false);
    setHasState(false);
}
