// Runs work on the one shared thread pool and hops results back to the GUI thread.
#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QThread>
#include <QThreadPool>
#include <functional>
#include <memory>

namespace Threading {

// The shared pool every asynchronous task of the application runs on.
QThreadPool& pool();

// Runs work on the shared pool at the priority of user-initiated work.
void runInBackground(std::function<void()> work);

// Schedules fn on the GUI thread (always queued, even when called from it), in call order.
void runOnGuiThread(std::function<void()> fn);

// Same, but dropped if context is destroyed first.
void runOnGuiThread(QObject* context, std::function<void()> fn);

bool isGuiThread();

// Runs work in the background and hands its result to done on the GUI thread; done is dropped if context (an
// object of the GUI thread) is gone by then.
template <class T>
void runAsync(std::function<T()> work, QObject* context, std::function<void(T)> done)
{
    QPointer<QObject> guard(context);
    runInBackground([work = std::move(work), done = std::move(done), guard]() mutable {
        auto result = std::make_shared<T>(work());
        // The guard is only read on the GUI thread, where context lives and dies.
        runOnGuiThread([done = std::move(done), result, guard] {
            if (guard) {
                done(std::move(*result));
            }
        });
    });
}

} // namespace Threading
