// The application's named notifications as typed signals on one hub object; observers connect here instead of
// to the many objects that post them. The signal names are the notifications' names.
#pragma once

#include "activities/Activity.h"
#include "catalogue/Predicate.h"
#include "catalogue/SyncSteps.h"

#include <QObject>
#include <optional>

class Notifications : public QObject {
    Q_OBJECT

public:
    static Notifications& instance();

Q_SIGNALS:
    // An activity was appended to the activity centre (on the GUI thread, after the list grew).
    void activityCenterPostedActivity(ActivityPtr activity);
    // A synchronisation pass entered step, with the share of the pass done so far (on the GUI thread).
    void synchronisationStepChanged(SyncSteps::Step step, double progress);
    // A synchronisation pass ended; errorDescription is empty on success (on the GUI thread).
    void synchronisationFinished(bool succeeded, QString errorDescription);
    // The main window's search finished typing or changed its tokens: the combined filter of the active tokens,
    // none when there is none (the tables then return to their default filter).
    void searchPerformed(std::optional<Predicate> predicate);

private:
    Notifications();
};
