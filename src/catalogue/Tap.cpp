#include "catalogue/Tap.h"

QString Tap::iconName() const
{
    return hasCommands() ? QStringLiteral("Icons/Window/repo/command") : QStringLiteral("Icons/Window/repo/data");
}

QVariant Tap::derivedValue(QStringView keyPath) const
{
    if (keyPath == u"uninstallable") {
        return uninstallable();
    }
    if (keyPath == u"icon") {
        return iconName();
    }
    return {};
}

QStringList Tap::keysDerivedFrom(QStringView key) const
{
    if (key == u"installed" || key == u"isBusy") {
        return {QStringLiteral("uninstallable")};
    }
    if (key == u"hasCommands") {
        return {QStringLiteral("icon")};
    }
    return {};
}
