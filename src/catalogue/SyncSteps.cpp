#include "catalogue/SyncSteps.h"

#include <QCoreApplication>

namespace {

// Relative cost of each step: fetching, decoding and storing a whole library takes far longer than setting a flag.
int weight(SyncSteps::Step step)
{
    switch (step) {
    case SyncSteps::appsCore:
    case SyncSteps::scriptsCore:
        return 3;
    case SyncSteps::completed:
    case SyncSteps::failed:
        return 0;
    default:
        return 1;
    }
}

} // namespace

QString SyncSteps::label(Step step)
{
    switch (step) {
    case taps:
        return QCoreApplication::translate("SyncSteps", "Synchronising repositories...");
    case appsCore:
        return QCoreApplication::translate("SyncSteps", "Synchronising apps library...");
    case installedApps:
        return QCoreApplication::translate("SyncSteps", "Synchronising installed apps...");
    case outdatedApps:
        return QCoreApplication::translate("SyncSteps", "Synchronising outdated apps...");
    case scriptsCore:
        return QCoreApplication::translate("SyncSteps", "Synchronising scripts library...");
    case installedScripts:
        return QCoreApplication::translate("SyncSteps", "Synchronising installed scripts...");
    case sourceScripts:
        return QCoreApplication::translate("SyncSteps", "Synchronising source scripts...");
    case outdatedScripts:
        return QCoreApplication::translate("SyncSteps", "Synchronising outdated scripts...");
    case completed:
        return QCoreApplication::translate("SyncSteps", "Synchronisation completed");
    case failed:
        return QCoreApplication::translate("SyncSteps", "Unable to synchronise");
    }
    return {};
}

double SyncSteps::progress(Step step, bool fast)
{
    if (step == completed || step == failed) {
        return 1.0;
    }
    const QList<Step>& sequence = fast ? fastSequence() : fullSequence();
    int total = 0;
    int before = 0;
    for (const Step each : sequence) {
        total += weight(each);
        // The enumerators are in running order, so a skipped step sits where the next one it runs starts.
        if (each < step) {
            before += weight(each);
        }
    }
    return total > 0 ? double(before) / total : 0.0;
}

const QList<SyncSteps::Step>& SyncSteps::fullSequence()
{
    static const QList<Step> sequence{taps,          appsCore,        installedApps,
                                      outdatedApps,  scriptsCore,     installedScripts,
                                      sourceScripts, outdatedScripts, completed};
    return sequence;
}

const QList<SyncSteps::Step>& SyncSteps::fastSequence()
{
    static const QList<Step> sequence{taps,          installedApps,   outdatedApps, installedScripts,
                                      sourceScripts, outdatedScripts, completed};
    return sequence;
}
