#include "catalogue/Formula.h"

#include <QCoreApplication>

LabelWithIcon Formula::kind()
{
    return {QCoreApplication::translate("Formula", "Script"), QStringLiteral("Icons/Window/script")};
}

const LabelWithIcon& Formula::hierarchy() const
{
    if (!m_hierarchy) {
        if (isLeaf()) {
            m_hierarchy =
                LabelWithIcon{QCoreApplication::translate("Formula", "Source"), QStringLiteral("Icons/Window/source")};
        } else if (installed()) {
            m_hierarchy = LabelWithIcon{QCoreApplication::translate("Formula", "Dependency"),
                                        QStringLiteral("Icons/Window/dependency")};
        } else {
            m_hierarchy = LabelWithIcon{};
        }
    }
    return *m_hierarchy;
}

void Formula::setUpgradable(bool upgradable)
{
    setValue(u"outdated", upgradable);
}

QStringList Formula::writableTypes()
{
    return {QStringLiteral("text/plain")};
}

QVariant Formula::pasteboardPropertyList(const QString& type) const
{
    return writableTypes().contains(type) ? QVariant(token()) : QVariant();
}

QVariant Formula::derivedValue(QStringView keyPath) const
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
    // "kind.label" is deliberately absent: the kind filter of casks matches no formula.
    if (keyPath == u"kind") {
        return QVariant::fromValue(kind());
    }
    if (keyPath == u"hierarchy") {
        return QVariant::fromValue(hierarchy());
    }
    if (keyPath == u"hierarchy.label") {
        return hierarchy().label.isNull() ? QVariant() : QVariant(hierarchy().label);
    }
    return {};
}

bool Formula::setDerivedValue(QStringView key, const QVariant& value)
{
    if (key == u"upgradable") {
        setUpgradable(value.toBool());
        return true;
    }
    return false;
}

QStringList Formula::keysDerivedFrom(QStringView key) const
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
