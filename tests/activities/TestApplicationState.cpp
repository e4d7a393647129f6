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
    void settingAnUnchangedValueStillWritesIt();
    void restoreDoesNotWriteRegisteredValues();
};

void TestApplicationState::transcriptPaneStatePersists_data()
{
    QTest::addColumn<bool>("visible");
    QTest::addColumn<double>("thickness");
    QTest::newRow("shown") << true << 212.5;
    QTest::newRow("hidden with a thickness") << false << 97.25;
    QTest::newRow("shown without a thickness") << true << 0.0;
}

void TestApplicationState::transcriptPaneStatePersists()
{
    QFETCH(bool, visible);
    QFETCH(double, thickness);
    QTemporaryDir dir;
    const QString path = dir.filePath("s.conf");
    {
        Defaults defaults(path);
        ApplicationState state(defaults);
        QSignalSpy visibleChanged(&state, &ApplicationState::transcriptPaneVisibleChanged);
        QVERIFY(state.setProperty("transcriptPaneVisible", visible));
        QVERIFY(state.setProperty("transcriptPaneThickness", thickness));
        QCOMPARE(visibleChanged.count(), visible ? 1 : 0);
        defaults.sync();
    }

    Defaults defaults(path);
    QCOMPARE(defaults.boolValue("TranscriptPaneVisible"), visible);
    QCOMPARE(defaults.doubleValue("TranscriptPaneThickness"), thickness);

    ApplicationState restored(defaults);
    QSignalSpy thicknessChanged(&restored, &ApplicationState::transcriptPaneThicknessChanged);
    restored.restore();
    QCOMPARE(restored.property("transcriptPaneVisible").toBool(), visible);
    QCOMPARE(restored.property("transcriptPaneThickness").toDouble(), thickness);
    QCOMPARE(thicknessChanged.count(), thickness != 0.0 ? 1 : 0);
}

void TestApplicationState::settingAnUnchangedValueStillWritesIt()
{
    QTemporaryDir dir;
    Defaults defaults(dir.filePath("s.conf"));
    ApplicationState state(defaults);
    QCOMPARE(state.isBusy(), false);
    QCOMPARE(state.transcriptPaneVisible(), false);
    QCOMPARE(state.transcriptPaneThickness(), 0.0);

    QSignalSpy visibleChanged(&state, &ApplicationState::transcriptPaneVisibleChanged);
    state.setTranscriptPaneVisible(false);
    state.setTranscriptPaneThickness(0.0);
    QCOMPARE(visibleChanged.count(), 0);
    QVERIFY(defaults.isWritten("TranscriptPaneVisible"));
    QVERIFY(defaults.isWritten("TranscriptPaneThickness"));
}

void TestApplicationState::restoreDoesNotWriteRegisteredValues()
{
    QTemporaryDir dir;
    Defaults defaults(dir.filePath("s.conf"));
    defaults.registerDefaults({{"TranscriptPaneVisible", true}, {"TranscriptPaneThickness", 180.0}});
    ApplicationState state(defaults);
    state.restore();
    QCOMPARE(state.transcriptPaneVisible(), true);
    QCOMPARE(state.transcriptPaneThickness(), 180.0);
    QVERIFY(!defaults.isWritten("TranscriptPaneVisible"));
    QVERIFY(!defaults.isWritten("TranscriptPaneThickness"));
}

QTEST_GUILESS_MAIN(TestApplicationState)
#include "TestApplicationState.moc"
