// What scripts and apps share: the installed and outdated flags, what they allow while no operation runs on the
// record, and copying as the token.
#pragma once

#include "catalogue/ManagedObject.h"

class Package : public ManagedObject {
    Q_OBJECT

public:
    bool installed() const { return storedFlag(u"installed"); }
    bool outdated() const { return storedFlag(u"outdated"); }

    bool installable() const { return !installed() && !isBusy(); }
    bool uninstallable() const { return installed() && !isBusy(); }
    bool reinstallable() const { return installed() && !isBusy(); }
    bool upgradable() const { return outdated() && !isBusy(); }
    // Marks the record outdated or not.
    void setUpgradable(bool upgradable);

    // Copying places the token on the clipboard as plain text; no other type is offered.
    static QStringList writableTypes();
    QVariant pasteboardPropertyList(const QString& type) const;

protected:
    Package(const EntityDescription& entity, ManagedObjectContext* context)
        : ManagedObject(entity, context)
    {}

    QVariant derivedValue(QStringView keyPath) const override;
    bool setDerivedValue(QStringView key, const QVariant& value) override;
    QStringList keysDerivedFrom(QStringView key) const override;
};
