// What sort of thing a cask installs, read from its artifact type keys ("app", "pkg", "font", ...): the label
// people see and filter on, and the icon asset beside it. Both are worked out once, when the kind is made.
#pragma once

#include "catalogue/LabelWithIcon.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

class CaskKind {
public:
    struct Entry {
        const char* artifact;
        const char* label;
        const char* iconName; // nullptr: the kind has no icon
    };

    explicit CaskKind(std::optional<QStringList> artifacts = std::nullopt);

    const std::optional<QStringList>& artifacts() const { return m_artifacts; }
    const QString& label() const { return m_value.label; }
    const QString& iconName() const { return m_value.iconName; }
    const LabelWithIcon& labelWithIcon() const { return m_value; }

    // The kinds with one artifact, in the order they are tested.
    static const QList<Entry>& singleArtifactKinds();
    // The same rules as an SQLite expression over the JSON-encoded artifacts column, so a fetch filtering on
    // "kind.label" agrees with the label computed here.
    static QString sqlLabelExpression(const QString& artifactsColumn);

    // Kinds are equal when their artifact lists are.
    bool operator==(const CaskKind& other) const { return m_artifacts == other.m_artifacts; }

private:
    std::optional<QStringList> m_artifacts;
    LabelWithIcon m_value;
};
