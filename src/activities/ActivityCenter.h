// The registry of every activity since the application started, oldest first. Any thread may post; the list
// itself changes and is read on the GUI thread only.
#pragma once

#include "activities/Activity.h"

#include <QList>
#include <QObject>

class ActivityCenter : public QObject {
    Q_OBJECT

public:
    explicit ActivityCenter(QObject* parent = nullptr);

    // The process-wide centre.
    static ActivityCenter& shared();

    // GUI thread only.
    const QList<ActivityPtr>& activities() const { return m_activities; }

    // Callable from any thread: appends on the GUI thread, then announces the activity through
    // activityAppended and Notifications::activityCenterPostedActivity, each exactly once.
    void post(ActivityPtr activity);

Q_SIGNALS:
    void activityAppended(ActivityPtr activity);

private:
    QList<ActivityPtr> m_activities;
};
