// The crash report window as a person uses it: reads the report, sends it or dismisses it, in the real application
// wiring of the crash reporter.
#include "diagnostics/CrashCaptureEngine.h"
#include "diagnostics/CrashReporter.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PropertyList.h"
#include "ui/CrashReportDialog.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QHttpServer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

class TestCrashReportDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void showsTheReportReadOnly();
    void answers_data();
    void answers();
    void sendsFromTheWindowThroughTheReporter();
};

void TestCrashReportDialog::showsTheReportReadOnly()
{
    CrashReportDialog dialog;
    dialog.showReport("This is a test crash log.", [](bool) {});
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QCOMPARE(dialog.textView()->toPlainText(), QString("This is a test crash log."));
    QVERIFY(dialog.textView()->isReadOnly());
    auto* icon = dialog.findChild<QLabel*>("cautionIcon");
    QVERIFY(icon);
    QVERIFY(!icon->pixmap().isNull());

    // A second report replaces the first.
    dialog.showReport("second", [](bool) {});
    QCOMPARE(dialog.textView()->toPlainText(), QString("second"));
}

void TestCrashReportDialog::answers_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("send");
    QTest::newRow("send button") << "send" << true;
    QTest::newRow("dismiss button") << "dismiss" << false;
    QTest::newRow("escape key") << "escape" << false;
}

void TestCrashReportDialog::answers()
{
    QFETCH(QString, how);
    QFETCH(bool, send);

    CrashReportDialog dialog;
    QList<bool> answers;
    dialog.showReport("report", [&answers](bool sent) { answers.append(sent); });
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    if (how == "send") {
        QTest::mouseClick(dialog.sendButton(), Qt::LeftButton);
    } else if (how == "dismiss") {
        QTest::mouseClick(dialog.dismissButton(), Qt::LeftButton);
    } else {
        QTest::keyClick(&dialog, Qt::Key_Escape);
    }
    QCOMPARE(answers, QList<bool>{send});
    QVERIFY(!dialog.isVisible());
}

void TestCrashReportDialog::sendsFromTheWindowThroughTheReporter()
{
    QHttpServer server;
    QByteArrayList bodies;
    server.route("/apps/corvel_x/releases/<arg>/crash_reports.json",
                 [&bodies](const QString&, const QHttpServerRequest& r) {
                     bodies.append(r.body());
                     return QHttpServerResponse(QHttpServerResponse::StatusCode::Ok);
                 });
    const quint16 port = server.listen(QHostAddress::LocalHost);
    QVERIFY(port != 0);

    QTemporaryDir folder;
    QVERIFY(QDir().mkpath(folder.filePath("bundle")));
    QFile info(folder.filePath("bundle/Info.plist"));
    QVERIFY(info.open(QIODevice::WriteOnly));
    info.write(PropertyList::serialize(
        QVariantMap{{"CFBundleVersion", "5"}, {"TW_SERVICES_URL", QString("http://127.0.0.1:%1").arg(port)}}));
    info.close();
    Bundle bundle(folder.filePath("bundle"));
    Defaults defaults(folder.filePath("settings.ini"));
    CrashCaptureEngine engine(folder.filePath("reports"));
    CrashReporter reporter(engine, bundle, defaults, [] { return std::make_unique<CrashReportDialog>(); });
    QSignalSpy finished(&reporter, &CrashReporter::sendFinished);

    reporter.showWindow("This is a test crash log.");
    auto* dialog = dynamic_cast<CrashReportDialog*>(reporter.crashReportWindowController());
    QVERIFY(dialog);
    QVERIFY(QTest::qWaitForWindowExposed(dialog));
    QTest::mouseClick(dialog->sendButton(), Qt::LeftButton);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(bodies.size(), 1);
    QCOMPARE(QJsonDocument::fromJson(bodies.first()).object().value("crash_report").toObject().value("content"),
             QJsonValue("This is a test crash log."));
}

QTEST_MAIN(TestCrashReportDialog)
#include "TestCrashReportDialog.moc"
