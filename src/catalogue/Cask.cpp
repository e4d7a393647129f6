#include "catalogue/Cask.h"

std::optional<QStringList> Cask::artifacts() const
{
    const QVariant value = storedValue(u"artifacts");
    return value.isValid() ? std::optional<QStringList>(value.toStringList()) : std::nullopt;
}

void Cask::setUpgradable(bool upgradable)
{
    setValue(u"outdated", upgradable);
}

bool Cask::installableInFolder() const
{
    static const CaskKind app(QStringList{QStringLiteral("app")});
    static const CaskKind font(QStringList{QStringLiteral("font")});
    return installable() && (kind() == app || kind() == font);
}

const CaskKind& Cask::kind() const
{
    if (!m_kind) {
        m_kind.emplace(artifacts());
    }
    return *m_kind;
}

void Cask::setIcon(const QVariant& icon)
{
    m_icon = icon;
    Q_EMIT valueChanged(QStringLiteral("icon"));
}

QStringList Cask::writableTypes()
{
    return {QStringLiteral("text/plain")};
}

QVariant Cask::pasteboardPropertyList(const QString& type) const
{
    return writableTypes().contains(type) ? QVariant(token()) : QVariant();
}

QVariant Cask::derivedValue(QStringView keyPath) const
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
    if (keyPath == u"installableInFolder") {
        return installableInFolder();
    }
    if (keyPath == u"kind") {
        return QVariant::fromValue(kind().labelWithIcon());
    }
    if (keyPath == u"kind.label") {
        return kind().label();
    }
    if (keyPath == u"icon") {
        return m_icon;
    }
    return {};
}

bool Cask::setDerivedValue(QStringView key, const QVariant& value)
{
    if (key == u"upgradable") {
        setUpgradable(value.toBool());
        return true;
    }
    if (key == u"icon") {
        setIcon(value);
        return true;
    }
    return false;
}

QStringList Cask::keysDerivedFrom(QStringView key) const
{
    if (key == u"installed") {
        return {QStringLiteral("installable"), QStringLiteral("uninstallable"), QStringLiteral("reinstallable"),
                QStringLiteral("installableInFolder")};
    }
    if (key == u"outdated") {
        return {QStringLiteral("upgradable")};
    }
    if (key == u"isBusy") {
        return {QStringLiteral("installable"), QStringLiteral("uninstallable"), QStringLiteral("reinstallable"),
                QStringLiteral("upgradable"), QStringLiteral("installableInFolder")};
    }
    return {};
}
