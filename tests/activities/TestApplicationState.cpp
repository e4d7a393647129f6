#include "activities/ApplicationState.h"
#include "foundation/Defaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

class TestApplicationState : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void transcriptPaneStatePersists_data();
    void transcriptPaneStatePersists();
};

void TestApplicationState::transcriptPaneStatePersists_data()
{
    QTest::addColumn<bool>("visible");
    QTest::addColumn<double>("thickness");
    QTest::newRow("shown") << true << 212.5;
    QTest::newRow("hidden with a thickness") << false << 97.25;
    // Setting the initial values still writes them: they no longer follow the registered ones.
    QTest::newRow("initial values") << false << 0.0;
}

void TestApplicationState::transcriptPaneStatePersists()
{
    QFETCH(bool, visible);
    QFETCH(double, thickness);
    QTemporaryDir dir;
    Defaults defaults(dir.filePath("s.conf"));
    defaults.registerDefaults({{"TranscriptPaneVisible", !visible}, {"TranscriptPaneThickness", 180.0}});

    ApplicationState restored(defaults);
    restored.restore();
    QCOMPARE(restored.transcriptPaneVisible(), !visible);
    QCOMPARE(restored.transcriptPaneThickness(), 180.0);
    QVERIFY(!defaults.isWritten("TranscriptPaneVisible") && !defaults.isWritten("TranscriptPaneThickness"));

    ApplicationState state(defaults);
    QVERIFY(state.setProperty("transcriptPaneVisible", visible) &&
            state.setProperty("transcriptPaneThickness", thickness));
    QVERIFY(defaults.isWritten("TranscriptPaneVisible") && defaults.isWritten("TranscriptPaneThickness"));
    QCOMPARE(defaults.boolValue("TranscriptPaneVisible"), visible);
    QCOMPARE(defaults.doubleValue("TranscriptPaneThickness"), thickness);

    QSignalSpy changed(&restored, &ApplicationState::transcriptPaneVisibleChanged);
    restored.restore();
    QCOMPARE(restored.property("transcriptPaneVisible").toBool(), visible);
    QCOMPARE(restored.property("transcriptPaneThickness").toDouble(), thickness);
    QCOMPARE(changed.count(), 1);
}

QTEST_GUILESS_MAIN(TestApplicationState)
#include "TestApplicationState.moc"
