#include "foundation/Threading.h"

#include <QSignalSpy>
#include <QTest>
#include <atomic>

class TestThreading : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void runAsyncWorksInBackgroundAndAnswersOnTheGuiThread();
    void runAsyncDropsTheAnswerWhenTheContextIsGone();
    void guiHopsKeepCallOrder();
};

void TestThreading::runAsyncWorksInBackgroundAndAnswersOnTheGuiThread()
{
    QThread* workThread = nullptr;
    QThread* doneThread = nullptr;
    std::optional<int> answer;
    QObject context;
    Threading::runAsync<int>(
        [&] {
            workThread = QThread::currentThread();
            return 42;
        },
        &context,
        [&](int value) {
            doneThread = QThread::currentThread();
            answer = value;
        });
    QTRY_VERIFY(answer);
    QCOMPARE(*answer, 42);
    QVERIFY(workThread != QThread::currentThread());
    QCOMPARE(doneThread, QThread::currentThread());
}

void TestThreading::runAsyncDropsTheAnswerWhenTheContextIsGone()
{
    std::atomic<bool> release{false};
    std::atomic<bool> finished{false};
    bool answered = false;
    auto* context = new QObject;
    Threading::runAsync<int>(
        [&] {
            while (!release) {
                QThread::yieldCurrentThread();
            }
            return 1;
        },
        context, [&](int) { answered = true; });
    delete context;
    release = true;
    Threading::runInBackground([&] { finished = true; });
    QTRY_VERIFY(finished);
    QVERIFY(Threading::pool().waitForDone(5000));
    QCoreApplication::processEvents();
    QVERIFY(!answered);
}

void TestThreading::guiHopsKeepCallOrder()
{
    QList<int> order;
    std::atomic<bool> posted{false};
    Threading::runInBackground([&] {
        for (int i = 0; i < 100; ++i) {
            Threading::runOnGuiThread([&order, i] { order.append(i); });
        }
        posted = true;
    });
    QTRY_VERIFY(posted);
    QTRY_COMPARE(order.size(), 100);
    for (int i = 0; i < 100; ++i) {
        QCOMPARE(order.at(i), i);
    }
    QVERIFY(Threading::isGuiThread());
}

QTEST_GUILESS_MAIN(TestThreading)
#include "TestThreading.moc"
