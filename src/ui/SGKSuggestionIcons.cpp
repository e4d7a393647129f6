#include "ui/SGKSuggestionIcons.h"

#include "search/SGKSuggestionViewItem.h"

#include <QFile>
#include <QHash>

namespace {

struct Symbol {
    QString themeName;
    QString resource;
};

// Only the symbols that rows use; desktops without a matching theme icon still get one.
const QHash<QString, Symbol>& symbols()
{
    static const QHash<QString, Symbol> table{
        {SGKSuggestionViewItem::checkmarkSymbol,
         {QStringLiteral("object-select-symbolic"), QStringLiteral(":/icons/Checkmark.svg")}},
        {SGKSuggestionViewItem::recentSymbol,
         {QStringLiteral("document-open-recent"), QStringLiteral(":/icons/Recent.svg")}},
    };
    return table;
}

} // namespace

QIcon SGKSuggestionIcons::icon(const QString& name)
{
    // corvel_ui is a static library: its resources are linked in only when something registers them.
    static const bool registered = [] {
        Q_INIT_RESOURCE(SuggestionIcons);
        return true;
    }();
    Q_UNUSED(registered);
    if (name.isEmpty()) {
        return {};
    }
    if (name.startsWith(u':')) {
        // A missing resource gives no icon rather than one that fails on every paint.
        return QFile::exists(name) ? QIcon(name) : QIcon();
    }
    const auto symbol = symbols().constFind(name);
    if (symbol == symbols().cend()) {
        return {};
    }
    return QIcon::fromTheme(symbol->themeName, icon(symbol->resource));
}
