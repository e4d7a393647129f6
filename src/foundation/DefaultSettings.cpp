#include "foundation/DefaultSettings.h"

#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PropertyList.h"

bool DefaultSettings::registerFromBundle(const Bundle& bundle, Defaults& defaults)
{
    const auto path = bundle.pathForResource(QStringLiteral("DefaultSettings"), QStringLiteral("plist"));
    if (!path) {
        qCDebug(lcCorvel) << "No DefaultSettings.plist in" << bundle.resourcePath();
        return false;
    }
    const auto read = PropertyList::read(*path);
    if (!read) {
        qCDebug(lcCorvel).noquote() << read.error().description();
        return false;
    }
    if (read.value().typeId() != QMetaType::QVariantMap) {
        qCDebug(lcCorvel).noquote() << *path << "does not hold a dictionary";
        return false;
    }
    qCInfo(lcCorvel) << "Loading default settings";
    defaults.registerDefaults(read.value().toMap());
    return true;
}
