// A Homebrew cask in the catalogue, shown to people as an "app": its stored attributes, what can be done with it
// right now (including installing into a chosen folder), its kind, and the icon the user interface attaches.
#pragma once

#include "catalogue/CaskKind.h"
#include "catalogue/ManagedObject.h"

#include <QUrl>
#include <optional>

class Cask : public ManagedObject {
    Q_OBJECT

public:
    QString tap() const { return storedText(u"tap"); }
    QString desc() const { return storedText(u"desc"); }
    QUrl website() const { return QUrl(storedText(u"website")); }
    QString version() const { return storedText(u"version"); }
    bool installed() const { return storedFlag(u"installed"); }
    bool outdated() const { return storedFlag(u"outdated"); }
    // None when Homebrew gave no artifact list.
    std::optional<QStringList> artifacts() const;

    bool installable() const { return !installed() && !isBusy(); }
    bool uninstallable() const { return installed() && !isBusy(); }
    bool reinstallable() const { return installed() && !isBusy(); }
    bool upgradable() const { return outdated() && !isBusy(); }
    // Marks the cask outdated or not.
    void setUpgradable(bool upgradable);
    // Only an app or a font can be placed in a folder of the person's choosing.
    bool installableInFolder() const;

    // Worked out from the artifacts on first use and kept for the life of the object.
    const CaskKind& kind() const;

    // Whatever image the user interface attaches; core code only keeps it.
    const QVariant& icon() const { return m_icon; }
    void setIcon(const QVariant& icon);

    // Copying places the token on the clipboard as plain text; no other type is offered.
    static QStringList writableTypes();
    QVariant pasteboardPropertyList(const QString& type) const;

protected:
    QVariant derivedValue(QStringView keyPath) const override;
    bool setDerivedValue(QStringView key, const QVariant& value) override;
    QStringList keysDerivedFrom(QStringView key) const override;

private:
    friend class ManagedObjectContext;
    Cask(const EntityDescription& entity, ManagedObjectContext* context)
        : ManagedObject(entity, context)
    {}

    mutable std::optional<CaskKind> m_kind;
    QVariant m_icon;
};
