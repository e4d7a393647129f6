// A Homebrew repository (tap) in the catalogue: its stored attributes, whether it can be removed right now, and
// the icon that tells command repositories from data ones.
#pragma once

#include "catalogue/ManagedObject.h"

class Tap : public ManagedObject {
    Q_OBJECT

public:
    QString user() const { return storedText(u"user"); }
    QString repo() const { return storedText(u"repo"); }
    bool official() const { return storedFlag(u"official"); }
    QString remote() const { return storedText(u"remote"); }
    bool installed() const { return storedFlag(u"installed"); }
    bool local() const { return storedFlag(u"local"); }
    QString desc() const { return storedText(u"desc"); }
    bool hasFormulas() const { return storedFlag(u"hasFormulas"); }
    bool hasCasks() const { return storedFlag(u"hasCasks"); }
    bool hasCommands() const { return storedFlag(u"hasCommands"); }

    bool uninstallable() const { return installed() && !isBusy(); }
    QString iconName() const;

protected:
    QVariant derivedValue(QStringView keyPath) const override;
    QStringList keysDerivedFrom(QStringView key) const override;

private:
    friend class ManagedObjectContext;
    Tap(const EntityDescription& entity, ManagedObjectContext* context)
        : ManagedObject(entity, context)
    {}
};
