#include "activities/ActivityCenter.h"

#include "activities/Notifications.h"

#include <QCoreApplication>
#include <QThread>

ActivityCenter::ActivityCenter(QObject* parent)
    : QObject(parent)
{
    if (auto* app = QCoreApplication::instance(); !parent && app && thread() != app->thread()) {
        moveToThread(app->thread());
    }
}

ActivityCenter& ActivityCenter::shared()
{
    static ActivityCenter center;
    return center;
}

void ActivityCenter::post(ActivityPtr activity)
{
    if (!activity) {
        qWarning("ActivityCenter: ignoring a null activity");
        return;
    }
    // Always queued, even from the GUI thread, so that posting never re-enters a caller that is iterating the
    // list or reacting to an earlier notification.
    QMetaObject::invokeMethod(
        this,
        [this, activity = std::move(activity)] {
            m_activities.append(activity);
            Q_EMIT activityAppended(activity);
            Q_EMIT Notifications::instance().activityCenterPostedActivity(activity);
        },
        Qt::QueuedConnection);
}
