#include "foundation/Threading.h"

#include <algorithm>

namespace Threading {

QThreadPool& pool()
{
    // Not Qt's global pool: Qt's raster painter waits on that one from the GUI thread, and our tasks may wait on the
    // GUI thread (a network request is started there), so sharing it can deadlock a paint. Tasks mostly wait on
    // brew and the network, so there are more threads than cores.
    static QThreadPool* shared = [] {
        auto* threads = new QThreadPool;
        threads->setMaxThreadCount(std::max(8, 2 * QThread::idealThreadCount()));
        return threads;
    }();
    return *shared;
}

void runInBackground(std::function<void()> work)
{
    pool().start([work = std::move(work)] {
        QThread::currentThread()->setPriority(QThread::HighPriority);
        work();
    });
}

void runOnGuiThread(std::function<void()> fn)
{
    runOnGuiThread(QCoreApplication::instance(), std::move(fn));
}

void runOnGuiThread(QObject* context, std::function<void()> fn)
{
    if (!context) {
        return;
    }
    QMetaObject::invokeMethod(context, std::move(fn), Qt::QueuedConnection);
}

bool isGuiThread()
{
    auto* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

} // namespace Threading
