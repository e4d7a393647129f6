#include "ui/AssetIcons.h"

#include <QFile>

// Outside any namespace: Q_INIT_RESOURCE declares the registration function where it stands.
static QString resourcePath(const QString& name)
{
    // corvel_ui is a static library: its resources are linked in only when something registers them.
    static const bool registered = [] {
        Q_INIT_RESOURCE(AssetIcons);
        return true;
    }();
    Q_UNUSED(registered);
    return QStringLiteral(":/assets/") + name + QStringLiteral(".svg");
}

bool AssetIcons::contains(const QString& name)
{
    return !name.isEmpty() && QFile::exists(resourcePath(name));
}

QIcon AssetIcons::icon(const QString& name)
{
    return contains(name) ? QIcon(resourcePath(name)) : QIcon();
}
