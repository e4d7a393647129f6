// The steps of a catalogue synchronisation in the order they run, the label a pane shows while each one runs and
// how much of a pass is behind it when it starts.
#pragma once

#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

class SyncSteps {
    Q_GADGET

public:
    enum Step {
        taps,
        appsCore,
        installedApps,
        outdatedApps,
        scriptsCore,
        installedScripts,
        sourceScripts,
        outdatedScripts,
        completed,
        failed,
    };
    Q_ENUM(Step)

    static QString label(Step step);

    // The share (0..1) of a pass done when step starts; the two library rebuilds weigh the most. completed and
    // failed both end a pass and give 1. A step that the fast form skips gives the share of the next one it runs.
    static double progress(Step step, bool fast);

    // Every step a pass runs, in order, ending with completed.
    static const QList<Step>& fullSequence();
    // The full sequence without the two library rebuilds.
    static const QList<Step>& fastSequence();
};
