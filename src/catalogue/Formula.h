// A Homebrew formula in the catalogue, shown to people as a "script": its stored attributes, whether it can be
// installed, removed, reinstalled or upgraded right now, and its kind and place in the dependency hierarchy.
#pragma once

#include "catalogue/LabelWithIcon.h"
#include "catalogue/ManagedObject.h"

#include <QUrl>
#include <optional>

class Formula : public ManagedObject {
    Q_OBJECT

public:
    QString tap() const { return storedText(u"tap"); }
    QString desc() const { return storedText(u"desc"); }
    QUrl website() const { return QUrl(storedText(u"website")); }
    QString license() const { return storedText(u"license"); }
    bool installed() const { return storedFlag(u"installed"); }
    bool outdated() const { return storedFlag(u"outdated"); }
    bool isLeaf() const { return storedFlag(u"isLeaf"); }

    bool installable() const { return !installed() && !isBusy(); }
    bool uninstallable() const { return installed() && !isBusy(); }
    bool reinstallable() const { return installed() && !isBusy(); }
    bool upgradable() const { return outdated() && !isBusy(); }
    // Marks the formula outdated or not.
    void setUpgradable(bool upgradable);

    static LabelWithIcon kind();
    // "Source" for a leaf, "Dependency" for another installed formula, empty otherwise; worked out once.
    const LabelWithIcon& hierarchy() const;

    // Copying places the token on the clipboard as plain text; no other type is offered.
    static QStringList writableTypes();
    QVariant pasteboardPropertyList(const QString& type) const;

protected:
    QVariant derivedValue(QStringView keyPath) const override;
    bool setDerivedValue(QStringView key, const QVariant& value) override;
    QStringList keysDerivedFrom(QStringView key) const override;

private:
    friend class ManagedObjectContext;
    Formula(const EntityDescription& entity, ManagedObjectContext* context)
        : ManagedObject(entity, context)
    {}

    mutable std::optional<LabelWithIcon> m_hierarchy;
};
