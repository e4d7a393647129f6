#include "activities/Notifications.h"

#include <QCoreApplication>
#include <QThread>

Notifications::Notifications()
{
    // Whoever asks first, the hub belongs to the GUI thread like the objects that post through it.
    if (auto* app = QCoreApplication::instance(); app && thread() != app->thread()) {
        moveToThread(app->thread());
    }
}

Notifications& Notifications::instance()
{
    static Notifications hub;
    return hub;
}
