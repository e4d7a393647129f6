// The application's images by their asset names ("Icons/Toolbar/install", "Icons/Settings/general"...), drawn as
// SVGs compiled into the program so that every desktop shows the same set.
#pragma once

#include <QIcon>
#include <QString>

class AssetIcons {
public:
    // An empty icon for a name the program does not carry.
    static QIcon icon(const QString& name);
    static bool contains(const QString& name);
};
