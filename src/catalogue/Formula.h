// A Homebrew formula in the catalogue, shown to people as a "script": its stored attributes, whether it can be
// installed, removed, reinstalled or upgraded right now, and its kind and place in the dependency hierarchy.
#pragma once

#include "catalogue/LabelWithIcon.h"
#include "catalogue/Package.h"

#include <QUrl>
#include <optional>

class Formula : public Package {
    Q_OBJECT

public:
    QString tap() const { return storedText(u"tap"); }
    QString desc() const { return storedText(u"desc"); }
    QUrl website() const { return QUrl(storedText(u"website")); }
    QString license() const { return storedText(u"license"); }
    bool isLeaf() const { return storedFlag(u"isLeaf"); }

    static LabelWithIcon kind();
    // "Source" for a leaf, "Dependency" for another installed formula, empty otherwise; worked out once.
    const LabelWithIcon& hierarchy() const;

protected:
    QVariant derivedValue(QStringView keyPath) const override;

private:
    friend class ManagedObjectContext;
    Formula(const EntityDescription& entity, ManagedObjectContext* context)
        : Package(entity, context)
    {}

    mutable std::optional<LabelWithIcon> m_hierarchy;
};
