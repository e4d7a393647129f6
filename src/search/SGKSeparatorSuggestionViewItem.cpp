#include "search/SGKSeparatorSuggestionViewItem.h"

SGKSeparatorSuggestionViewItem::SGKSeparatorSuggestionViewItem(const QString& key)
    : SGKSuggestionViewItem(key)
{
    setSelectable(false);
    setHasState(false);
}
