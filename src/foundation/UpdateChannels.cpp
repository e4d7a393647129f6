#include "foundation/UpdateChannels.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

QSet<QString> UpdateChannels::allowed(const Defaults& defaults)
{
    if (defaults.boolValue(PreferenceKeys::ReceiveBetaUpdates)) {
        return {beta};
    }
    return {};
}
