// A Homebrew cask in the catalogue, shown to people as an "app": its stored attributes, what can be done with it
// right now (including installing into a chosen folder), its kind, and the icon the user interface attaches.
#pragma once

#include "catalogue/CaskKind.h"
#include "catalogue/Package.h"

#include <QUrl>
#include <optional>

class Cask : public Package {
    Q_OBJECT

public:
    QString tap() const { return storedText(u"tap"); }
    QString desc() const { return storedText(u"desc"); }
    QUrl website() const { return QUrl(storedText(u"website")); }
    QString version() const { return storedText(u"version"); }
    // None when Homebrew gave no artifact list.
    std::optional<QStringList> artifacts() const;

    // Only an app or a font can be placed in a folder of the person's choosing.
    bool installableInFolder() const;

    // Worked out from the artifacts on first use and kept for the life of the object.
    const CaskKind& kind() const;

    // Whatever image the user interface attaches; core code only keeps it.
    const QVariant& icon() const { return m_icon; }
    void setIcon(const QVariant& icon);

protected:
    QVariant derivedValue(QStringView keyPath) const override;
    bool setDerivedValue(QStringView key, const QVariant& value) override;
    QStringList keysDerivedFrom(QStringView key) const override;

private:
    friend class ManagedObjectContext;
    Cask(const EntityDescription& entity, ManagedObjectContext* context)
        : Package(entity, context)
    {}

    mutable std::optional<CaskKind> m_kind;
    QVariant m_icon;
};
