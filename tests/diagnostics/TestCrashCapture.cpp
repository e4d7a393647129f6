// Crashes the real corvel-x in a child process and checks that the next start finds, renders and purges the report.
#include "diagnostics/CrashCaptureEngine.h"
#include "diagnostics/CrashReporter.h"
#include "diagnostics/CrashReporterWindowController.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/PropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <sys/resource.h>

namespace {

// Keeps what it was asked to show; the user dismisses every report.
class RecordingWindow : public CrashReporterWindowController {
public:
    explicit RecordingWindow(QStringList& shown)
        : m_shown(shown)
    {}
    void showReport(const QString& report, std::function<void(bool)> answer) override
    {
        m_shown.append(report);
        m_report = report;
        answer(false);
    }
    std::optional<QString> report() const override { return m_report; }

private:
    QStringList& m_shown;
    std::optional<QString> m_report;
};

} // namespace

class TestCrashCapture : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void crashIsReportedAtNextStart_data();
    void crashIsReportedAtNextStart();
    void unknownCrashKindIsAUsageError();

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_program;
};

void TestCrashCapture::initTestCase()
{
    m_program = QCoreApplication::applicationDirPath() + QStringLiteral("/corvel-x");
    QVERIFY2(QFileInfo(m_program).isExecutable(), qPrintable(m_program + " must be built first"));
    // The same names as the application, so that this process finds the same data folder as the child.
    QCoreApplication::setApplicationName(QStringLiteral("Corvel X"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("tessel.works"));
}

void TestCrashCapture::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_folder->filePath("data")));
}

void TestCrashCapture::cleanup()
{
    m_folder.reset();
}

void TestCrashCapture::crashIsReportedAtNextStart_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<int>("signal");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("fatal error") << "--crash-for-test" << SIGABRT
                                 << QStringList{"Exception Type:    SIGABRT", "Exception Codes:   SI_TKILL",
                                                "  abort+0x"};
    QTest::newRow("uncaught exception")
        << "--crash-for-test=exception" << SIGABRT
        << QStringList{"Exception Type:    SIGABRT",
                       "Uncaught exception of type std::runtime_error: This is a deliberate crash."};
    QTest::newRow("invalid memory access")
        << "--crash-for-test=segv" << SIGSEGV
        << QStringList{"Exception Type:    SIGSEGV", "Exception Codes:   SEGV_MAPERR",
                       "Exception Address: 0x0000000000000000"};
    QTest::newRow("stack overflow") << "--crash-for-test=stack" << SIGSEGV
                                    << QStringList{"Exception Type:    SIGSEGV", "Exception Codes:   SEGV_"};
}

void TestCrashCapture::crashIsReportedAtNextStart()
{
    QFETCH(QString, argument);
    QFETCH(int, signal);
    QFETCH(QStringList, expected);

    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_DATA_HOME", m_folder->filePath("data"));
    environment.insert("XDG_CONFIG_HOME", m_folder->filePath("config"));
    environment.insert("HOME", m_folder->path());
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    // The crash is on purpose; a core file would only litter the disk.
    child.setChildProcessModifier([] {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
    });
    child.start(m_program, {argument});
    QVERIFY(child.waitForFinished(60000));
    // The engine re-raises with the default action, so the child dies of the very signal.
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    QCOMPARE(child.exitCode(), signal);

    CrashCaptureEngine engine;
    QVERIFY2(engine.hasPendingCrashReport(), qPrintable(engine.pendingReportPath()));

    QFile info(m_folder->filePath("bundle/Info.plist"));
    QVERIFY(QDir().mkpath(m_folder->filePath("bundle")));
    QVERIFY(info.open(QIODevice::WriteOnly));
    info.write(PropertyList::serialize(QVariantMap{
        {"CFBundleShortVersionString", "7.1"}, {"CFBundleVersion", "71"}, {"TW_SERVICES_URL", "http://127.0.0.1:9"}}));
    info.close();
    Bundle bundle(m_folder->filePath("bundle"));
    Defaults defaults(m_folder->filePath("settings.ini"));
    QStringList shown;
    CrashReporter reporter(engine, bundle, defaults, [&shown] { return std::make_unique<RecordingWindow>(shown); });

    reporter.checkPendingReport();
    QCOMPARE(shown.size(), 1);
    const QString& text = shown.first();
    for (const QString& fragment : expected) {
        QVERIFY2(text.contains(fragment), qPrintable(fragment + "\n--- in ---\n" + text));
    }
    // Fields the child gathered before crashing: its bundle's identity and the crashing thread.
    QVERIFY2(text.contains(QRegularExpression("^Process: +corvel-x \\[\\d+\\]$", QRegularExpression::MultilineOption)),
             qPrintable(text));
    QVERIFY2(text.contains("(main thread)"), qPrintable(text));
    QVERIFY2(text.contains("Thread ") && text.contains(" Crashed:\n0 "), qPrintable(text));
    QVERIFY2(!text.contains("incomplete"), qPrintable(text));
    QVERIFY(!engine.hasPendingCrashReport());

    // Handled once only: the next start finds nothing.
    CrashReporter nextStart(engine, bundle, defaults, [&shown] { return std::make_unique<RecordingWindow>(shown); });
    nextStart.checkPendingReport();
    QCOMPARE(shown.size(), 1);
    QVERIFY(!nextStart.crashReportWindowController());
}

void TestCrashCapture::unknownCrashKindIsAUsageError()
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_DATA_HOME", m_folder->filePath("data"));
    environment.insert("XDG_CONFIG_HOME", m_folder->filePath("config"));
    child.setProcessEnvironment(environment);
    child.start(m_program, {"--crash-for-test=sideways"});
    QVERIFY(child.waitForFinished(60000));
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(child.exitCode(), 2);
    QVERIFY(child.readAllStandardError().contains("sideways"));
    QVERIFY(!CrashCaptureEngine().hasPendingCrashReport());
}

QTEST_GUILESS_MAIN(TestCrashCapture)
#include "TestCrashCapture.moc"
