#include "catalogue/SyncLaunchRule.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

namespace {

// Later than date plus days, counted in calendar days where the person is, so that a change of daylight saving
// time does not move the threshold by an hour.
bool isOlderThan(const std::optional<QDateTime>& date, int days, const QDateTime& now)
{
    return date && now > date->toLocalTime().addDays(days);
}

} // namespace

std::optional<Synchronisation::Form> SyncLaunchRule::formAtLaunch(const Defaults& defaults, const QDateTime& now)
{
    if (defaults.boolValue(PreferenceKeys::SyncOnAppLaunch) &&
        isOlderThan(defaults.dateValue(PreferenceKeys::LastSyncTime), 3, now)) {
        return Synchronisation::Form::full;
    }
    // Deliberately not subject to SyncOnAppLaunch: a fast pass is cheap and keeps the flags honest.
    if (isOlderThan(defaults.dateValue(PreferenceKeys::LastFastSyncTime), 1, now)) {
        return Synchronisation::Form::fast;
    }
    return std::nullopt;
}
