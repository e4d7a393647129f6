// Turns the icon names that suggestion rows carry into icons: resource paths load as they are, symbol names map to
// the desktop theme's icon and, where the theme has none, to the application's own drawing of the symbol.
#pragma once

#include <QIcon>
#include <QString>

class SGKSuggestionIcons {
public:
    // A null icon for an empty or unknown name.
    static QIcon icon(const QString& name);
};
