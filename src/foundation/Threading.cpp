#include "foundation/Threading.h"

namespace Threading {

QThreadPool& pool()
{
    return *QThreadPool::globalInstance();
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
