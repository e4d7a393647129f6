// Whether the application starts a synchronisation by itself once it has launched, and which form: a full pass when
// allowed and the last one is more than 3 days old, else a fast pass when the last pass is more than a day old.
#pragma once

#include "catalogue/Synchronisation.h"

#include <QDateTime>
#include <optional>

class Defaults;

class SyncLaunchRule {
public:
    // None when nothing is due, and always before the very first pass, which the person starts.
    static std::optional<Synchronisation::Form> formAtLaunch(const Defaults& defaults, const QDateTime& now);
};
