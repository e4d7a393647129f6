#include "ScriptedAlerter.h"
#include "activities/ApplicationState.h"
#include "activities/QuitConfirmation.h"
#include "foundation/Defaults.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <optional>

class TestQuitConfirmation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersTheRequest_data();
    void answersTheRequest();
    void overlappingOperationsLeaveTheAppIdleWhenTheFirstEnds();
};

void TestQuitConfirmation::answersTheRequest_data()
{
    QTest::addColumn<bool>("busy");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("terminate");
    QTest::newRow("idle: nothing asked") << false << QString() << true;
    QTest::newRow("busy, Cancel") << true << "Cancel" << false;
    QTest::newRow("busy, Terminate Anyway") << true << "Terminate Anyway" << true;
}

void TestQuitConfirmation::answersTheRequest()
{
    QFETCH(bool, busy);
    QFETCH(QString, answer);
    QFETCH(bool, terminate);

    QTemporaryDir dir;
    Defaults defaults(dir.filePath("s.conf"));
    ApplicationState state(defaults);
    state.setBusy(busy);
    ScriptedAlerter alerter;
    if (!answer.isEmpty()) {
        alerter.answerNext(answer);
    }
    QuitConfirmation confirmation(state, alerter);

    std::optional<bool> reply;
    confirmation.requestTermination([&reply](bool value) { reply = value; });
    if (!busy) {
        // At once, without a turn of the event loop.
        QCOMPARE(reply, std::optional<bool>(true));
        QVERIFY(alerter.shown().isEmpty());
        return;
    }
    QTRY_VERIFY(reply.has_value());
    QCOMPARE(*reply, terminate);
    QCOMPARE(alerter.shown().size(), 1);
    const Alert& alert = alerter.shown().first();
    QCOMPARE(alert.style, Alert::Style::Critical);
    QCOMPARE(alert.message, "Background process currently running. Are you sure you want to quit Corvel X?");
    QCOMPARE(alert.informativeText, "Cancel to prevent unexpected issues. Try again later.");
    QCOMPARE(alert.buttons, (QStringList{"Cancel", "Terminate Anyway"}));
    QVERIFY(alert.suppressionKey.isEmpty());
}

void TestQuitConfirmation::overlappingOperationsLeaveTheAppIdleWhenTheFirstEnds()
{
    const QString cat = QStandardPaths::findExecutable("cat");
    if (cat.isEmpty()) {
        QSKIP("cat is not installed");
    }
    QTemporaryDir dir;
    Defaults defaults(dir.filePath("s.conf"));
    ApplicationState state(defaults);
    ScriptedAlerter alerter;
    QuitConfirmation confirmation(state, alerter);

    // Two operations marking busy the way operations do: true when their child starts, false when it ends.
    QProcess first;
    QProcess second;
    for (QProcess* operation : {&first, &second}) {
        connect(operation, &QProcess::finished, &state, [&state] { state.setBusy(false); });
        state.setBusy(true);
        operation->start(cat, {});
        QVERIFY(operation->waitForStarted());
    }

    first.closeWriteChannel();
    QTRY_VERIFY(!state.isBusy());
    QCOMPARE(second.state(), QProcess::Running);

    std::optional<bool> reply;
    confirmation.requestTermination([&reply](bool value) { reply = value; });
    QCOMPARE(reply, std::optional<bool>(true));
    QVERIFY(alerter.shown().isEmpty());
    QCOMPARE(second.state(), QProcess::Running);

    second.closeWriteChannel();
    QVERIFY(second.waitForFinished());
}

QTEST_GUILESS_MAIN(TestQuitConfirmation)
#include "TestQuitConfirmation.moc"
