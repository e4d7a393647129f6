#include "foundation/Alerter.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

QStringList Alerter::suppressedAlerts()
{
    return {PreferenceKeys::SuppressReinstallAlert, PreferenceKeys::SuppressUpgradeAllAlert,
            PreferenceKeys::SuppressMoveToAlert};
}

void Alerter::restoreSuppressedAlerts(Defaults& defaults)
{
    const QStringList keys = suppressedAlerts();
    for (const QString& key : keys) {
        defaults.remove(key);
    }
}
