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

QVariant Formula::derivedValue(QStringView keyPath) const
{
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
    return Package::derivedValue(keyPath);
}
