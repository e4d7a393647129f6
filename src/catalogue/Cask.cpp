#include "catalogue/Cask.h"

std::optional<QStringList> Cask::artifacts() const
{
    const QVariant value = storedValue(u"artifacts");
    return value.isValid() ? std::optional<QStringList>(value.toStringList()) : std::nullopt;
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

QVariant Cask::derivedValue(QStringView keyPath) const
{
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
    return Package::derivedValue(keyPath);
}

bool Cask::setDerivedValue(QStringView key, const QVariant& value)
{
    if (key == u"icon") {
        setIcon(value);
        return true;
    }
    return Package::setDerivedValue(key, value);
}

QStringList Cask::keysDerivedFrom(QStringView key) const
{
    QStringList keys = Package::keysDerivedFrom(key);
    if (key == u"installed" || key == u"isBusy") {
        keys.append(QStringLiteral("installableInFolder"));
    }
    return keys;
}
