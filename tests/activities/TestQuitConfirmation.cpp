#include "ScriptedAlerter.h"
#include "activities/ApplicationState.h"
#include "activities/QuitConfirmation.h"
#include "foundation/Defaults.h"

#include <QTemporaryDir>
#include <QTest>
#include <optional>

class TestQuitConfirmation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersTheRequest_data();
    void answersTheRequest();
};

// busy: the flag as operations set it, true when their child starts and false when it ends.
void TestQuitConfirmation::answersTheRequest_data()
{
    QTest::addColumn<QList<bool>>("busy");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("terminate");
    QTest::newRow("idle: nothing asked") << QList<bool>() << QString() << true;
    QTest::newRow("busy, Cancel") << QList<bool>{true} << "Cancel" << false;
    QTest::newRow("busy, Terminate Anyway") << QList<bool>{true} << "Terminate Anyway" << true;
    // One flag, not a count: when operations overlap, the first to end leaves the application idle.
    QTest::newRow("overlapping, the first ended") << QList<bool>{true, true, false} << QString() << true;
}

void TestQuitConfirmation::answersTheRequest()
{
    QFETCH(QList<bool>, busy);
    QFETCH(QString, answer);
    QFETCH(bool, terminate);

    QTemporaryDir dir;
    Defaults defaults(dir.filePath("s.conf"));
    ApplicationState state(defaults);
    for (bool mark : busy) {
        state.setBusy(mark);
    }
    ScriptedAlerter alerter;
    alerter.answerNext(answer);
    QuitConfirmation confirmation(state, alerter);

    std::optional<bool> reply;
    confirmation.requestTermination([&reply](bool value) { reply = value; });
    if (answer.isEmpty()) {
        // At once, without a turn of the event loop, and without asking.
        QCOMPARE(reply, std::optional<bool>(true));
        QVERIFY(alerter.shown().isEmpty());
        return;
    }
    QTRY_COMPARE(reply, std::optional<bool>(terminate));
    QCOMPARE(alerter.shown().size(), 1);
    const Alert& alert = alerter.shown().first();
    QCOMPARE(alert.style, Alert::Style::Critical);
    QCOMPARE(alert.message, "Background process currently running. Are you sure you want to quit Corvel X?");
    QCOMPARE(alert.informativeText, "Cancel to prevent unexpected issues. Try again later.");
    QCOMPARE(alert.buttons, (QStringList{"Cancel", "Terminate Anyway"}));
    QVERIFY(alert.suppressionKey.isEmpty());
}

QTEST_GUILESS_MAIN(TestQuitConfirmation)
#include "TestQuitConfirmation.moc"
