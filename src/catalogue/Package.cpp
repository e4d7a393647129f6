#include "catalogue/Package.h"

void Package::setUpgradable(bool upgradable)
{
    setValue(u"outdated", upgradable);
}

QStringList Package::writableTypes()
{
    return {QStringLiteral("text/plain")};
}

QVariant Package::pasteboardPropertyList(const QString& type) const
{
    return writableTypes().contains(type) ? QVariant(token()) : QVariant();
}

QVariant Package::derivedValue(QStringView keyPath) const
{
    if (keyPath == u"installable") {
        return installable();
    }
    if (keyPath == u"uninstallable") {
        return uninstallable();
    }
    if (keyPath == u"reinstallable") {
        return reinstallable();
    }
    if (keyPath == u"upgradable") {
        return upgradable();
    }
    return {};
}

bool Package::setDerivedValue(QStringView key, const QVariant& value)
{
    if (key == u"upgradable") {
        setUpgradable(value.toBool());
        return true;
    }
    return false;
}

QStringList Package::keysDerivedFrom(QStringView key) const
{
    if (key == u"installed") {
        return {QStringLiteral("installable"), QStringLiteral("uninstallable"), QStringLiteral("reinstallable")};
    }
    if (key == u"outdated") {
        return {QStringLiteral("upgradable")};
    }
    if (key == u"isBusy") {
        return {QStringLiteral("installable"), QStringLiteral("uninstallable"), QStringLiteral("reinstallable"),
                QStringLiteral("upgradable")};
    }
    return {};
}
