// The crash reporter against real report files and a real loopback crash-report service: what it does with a
// pending report, and the upload's address, headers, body and answers.
#include "LogCapture.h"
#include "diagnostics/CrashCaptureEngine.h"
#include "diagnostics/CrashReport.h"
#include "diagnostics/CrashReporter.h"
#include "diagnostics/CrashReporterError.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/HttpClient.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"

#include <QDir>
#include <QFile>
#include <QHttpServer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <sys/resource.h>

namespace {

// Answers the way a test tells it to, and keeps every report it was asked to show.
class ScriptedWindow : public CrashReporterWindowController {
public:
    ScriptedWindow(QStringList& shown, bool send)
        : m_shown(shown)
        , m_send(send)
    {}
    void showReport(const QString& report, std::function<void(bool)> answer) override
    {
        m_shown.append(report);
        m_report = report;
        answer(m_send);
    }
    std::optional<QString> report() const override { return m_report; }

private:
    QStringList& m_shown;
    bool m_send;
    std::optional<QString> m_report;
};

struct Received {
    QString path;
    QHttpServerRequest::Method method;
    QByteArray contentType;
    QByteArray body;
};

const char childBundleVariable[] = "CORVEL_TEST_CRASH_REPORTER_BUNDLE";

const QByteArray completeReport = "CorvelCrashReport 1\n"
                                  "Process: corvel-x\nPID: 4242\nMain-Thread: 4242\nVersion: 2.0\nBuild: 20\n"
                                  "OS: Debian GNU/Linux 12 (linux 6.1.0)\nArchitecture: x86_64\n"
                                  "Launch-Time: 1700000000\nCrash-Time: 1700000060\nKind: signal\nSignal: 11\n"
                                  "Signal-Name: SIGSEGV\nSignal-Code: 2\nAddress: 0x00007f0000001000\n"
                                  "Thread: 4243\nThread-Name: worker\nBacktrace:\n"
                                  "/usr/lib/libQt6Core.so.6(_ZN7QThread5startENS_8PriorityE+0x2a) [0x7f0000002000]\n"
                                  "/opt/corvel/bin/corvel-x(+0x1234) [0x5600000001234]\n"
                                  "End-Of-Report\n";

// Waits for the outcome of a send; empty if none came in time.
std::optional<Result<void>> sendAndWait(CrashReporter& reporter, const QString& report = "report")
{
    std::optional<Result<void>> outcome;
    reporter.send(report, [&outcome](Result<void> sent) { outcome = sent; });
    [[maybe_unused]] const bool arrived = QTest::qWaitFor([&outcome] { return outcome.has_value(); });
    return outcome;
}

} // namespace

class TestCrashReporter : public QObject {
    Q_OBJECT

    QUrl serverBase() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_port)); }
    Bundle& makeBundle(const QVariantMap& info)
    {
        const QString folder = m_folder->filePath(QStringLiteral("bundle-%1").arg(m_bundles.size()));
        QDir().mkpath(folder);
        QFile file(folder + "/Info.plist");
        if (file.open(QIODevice::WriteOnly)) {
            file.write(PropertyList::serialize(info));
        }
        m_bundles.push_back(std::make_unique<Bundle>(folder));
        return *m_bundles.back();
    }
    // A reporter whose bundle has this build number and points at service (the test server when empty).
    std::unique_ptr<CrashReporter> makeReporter(const QString& build = "1", QString service = {},
                                                bool sendFromWindow = false)
    {
        Bundle& bundle = makeBundle(
            {{"CFBundleVersion", build}, {"TW_SERVICES_URL", service.isEmpty() ? serverBase().toString() : service}});
        return std::make_unique<CrashReporter>(*m_engine, bundle, *m_defaults, [this, sendFromWindow] {
            return std::make_unique<ScriptedWindow>(m_shown, sendFromWindow);
        });
    }
    void writePending(const QByteArray& data)
    {
        QVERIFY(QDir().mkpath(m_engine->directory()));
        QFile file(m_engine->pendingReportPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(data);
    }

    QHttpServer m_server;
    quint16 m_port = 0;
    QList<Received> m_received;
    int m_nextStatus = 200;
    QByteArray m_nextBody;

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<CrashCaptureEngine> m_engine;
    std::list<std::unique_ptr<Bundle>> m_bundles;
    QStringList m_shown;

private Q_SLOTS:
    void initTestCase()
    {
        m_server.route("/apps/corvel_x/releases/<arg>/crash_reports.json", [this](const QString&,
                                                                                  const QHttpServerRequest& request) {
            m_received.append({request.url().path(), request.method(), request.value("Content-Type"), request.body()});
            return QHttpServerResponse(m_nextBody, static_cast<QHttpServerResponse::StatusCode>(m_nextStatus));
        });
        m_port = m_server.listen(QHostAddress::LocalHost);
        QVERIFY(m_port != 0);
    }

    void init()
    {
        m_received.clear();
        m_shown.clear();
        m_nextStatus = 200;
        m_nextBody.clear();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        m_defaults = std::make_unique<Defaults>(m_folder->filePath("settings.ini"));
        m_engine = std::make_unique<CrashCaptureEngine>(m_folder->filePath("reports"));
    }

    void cleanup()
    {
        m_engine.reset();
        m_defaults.reset();
        m_bundles.clear();
        m_folder.reset();
    }

    void pendingReport_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QStringList>("expected"); // empty: the file cannot be read at all
        QTest::addColumn<bool>("complete");

        QTest::newRow("complete") << completeReport
                                  << QStringList{"Process:           corvel-x [4242]",
                                                 "Version:           2.0 (20)",
                                                 "Code Type:         x86_64",
                                                 "Date/Time:         2023-11-14 22:14:20 UTC",
                                                 "Exception Type:    SIGSEGV",
                                                 "Exception Codes:   SEGV_ACCERR (2)",
                                                 "Exception Address: 0x00007f0000001000",
                                                 "Crashed Thread:    4243 worker\n",
                                                 "QThread::start(QThread::Priority)+0x2a",
                                                 "corvel-x+0x1234"}
                                  << true;
        // The process died while writing: what made it to disk is still worth reading.
        QTest::newRow("cut short in the backtrace")
            << completeReport.left(completeReport.indexOf("/opt/corvel"))
            << QStringList{"Exception Type:    SIGSEGV", "QThread::start(QThread::Priority)", "incomplete"} << false;
        QTest::newRow("cut short in the header")
            << QByteArray("CorvelCrashReport 1\nProcess: corvel-x\nPID: 1")
            << QStringList{"Process:           corvel-x [1]", "(no backtrace)", "incomplete"} << false;
        QTest::newRow("empty") << QByteArray() << QStringList() << false;
        QTest::newRow("someone else's file") << QByteArray("{\"not\": \"a crash report\"}\n") << QStringList() << false;
        QTest::newRow("magic line cut short") << QByteArray("CorvelCrash") << QStringList() << false;
    }

    // A pending report is shown once and then gone; one that cannot be read is purged with a line in the log.
    void pendingReport()
    {
        QFETCH(QByteArray, data);
        QFETCH(QStringList, expected);
        QFETCH(bool, complete);

        writePending(data);
        LogCapture log;
        makeReporter()->checkPendingReport();
        QVERIFY(!m_engine->hasPendingCrashReport());
        const bool unreadable =
            log.contains("Unable to read crash report: The pending crash report is not in a known format");
        QCOMPARE(unreadable, expected.isEmpty());
        QCOMPARE(m_shown.size(), expected.isEmpty() ? 0 : 1);
        for (const QString& fragment : expected) {
            QVERIFY2(m_shown.first().contains(fragment), qPrintable(fragment + "\n--- in ---\n" + m_shown.first()));
        }
        if (!expected.isEmpty()) {
            QCOMPARE(CrashReport::fromData(data).value().isComplete(), complete);
        }
    }

    void uploadTargetsBuildNumber_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("buildNumber");
        QTest::addColumn<QByteArray>("path");
        const auto row = [](const char* name, const QString& base, const QString& build, const QByteArray& path) {
            QTest::newRow(name) << base << build << path;
        };

        row("dotted", "", "1.2", "/apps/corvel_x/releases/1%2E2/crash_reports.json");
        row("digits", "", "42", "/apps/corvel_x/releases/42/crash_reports.json");
        row("unreserved and space", "", "1.0-b_3~ x",
            "/apps/corvel_x/releases/1%2E0%2Db%5F3%7E%20x/crash_reports.json");
        row("non-ASCII letter", "", "\u00e9", "/apps/corvel_x/releases/%C3%A9/crash_reports.json");
        row("base with a path", "/service/", "7", "/service/apps/corvel_x/releases/7/crash_reports.json");
    }

    // The request line as it reaches the wire, read by a bare socket because an HTTP server's URL would decode it.
    void uploadTargetsBuildNumber()
    {
        QFETCH(QString, base);
        QFETCH(QString, buildNumber);
        QFETCH(QByteArray, path);

        QTcpServer raw;
        QVERIFY(raw.listen(QHostAddress::LocalHost));
        QByteArray request;
        connect(&raw, &QTcpServer::newConnection, this, [&raw, &request] {
            QTcpSocket* socket = raw.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket, &request] {
                request += socket->readAll();
                if (request.contains("\r\n\r\n")) {
                    socket->write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                    socket->disconnectFromHost();
                }
            });
        });
        auto reporter =
            makeReporter(buildNumber, QStringLiteral("http://127.0.0.1:%1%2").arg(raw.serverPort()).arg(base));
        const auto outcome = sendAndWait(*reporter);
        QVERIFY(outcome.has_value());
        QVERIFY2(outcome->ok(), qPrintable(outcome->error().description()));
        QCOMPARE(request.left(request.indexOf(" HTTP/1.1\r\n")), "POST " + path);
    }

    void uploadRequest()
    {
        auto reporter = makeReporter("1.2");
        QSignalSpy finished(reporter.get(), &CrashReporter::sendFinished);
        const QString text = "Thread 1 Crashed:\n0  corvel-x \"quoted\" \u00e9";
        reporter->send(text);
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.first().first().toBool(), true);
        QCOMPARE(m_received.size(), 1);
        const Received& received = m_received.first();
        QCOMPARE(received.method, QHttpServerRequest::Method::Post);
        QCOMPARE(received.contentType, QByteArray("application/json"));
        const QJsonDocument body = QJsonDocument::fromJson(received.body);
        QCOMPARE(body.object().keys(), QStringList{"crash_report"});
        const QJsonObject report = body.object().value("crash_report").toObject();
        QCOMPARE(report.keys(), (QStringList{"content", "reporter"}));
        QCOMPARE(report.value("content").toString(), text);
        QVERIFY(report.value("reporter").isNull());
    }

    void uploadOutcome_data()
    {
        QTest::addColumn<QString>("service"); // empty: the test server, answering status and answer
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QString>("domain"); // empty on success
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("description"); // checked when not empty

        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const QString closedPort = QString::number(closed.serverPort());
        closed.close();
        const QString refused = "The crash report service refused the report";
        const QString domain = CrashReporterError::domain();
        const int invalid = CrashReporterError::invalidResponse;

        QTest::newRow("200") << "" << 200 << QByteArray("{\"id\": 1}") << "" << 0 << "";
        QTest::newRow("201 is not 200") << "" << 201 << QByteArray("created") << domain << invalid
                                        << refused + ": created";
        QTest::newRow("204 without text") << "" << 204 << QByteArray() << domain << invalid << refused;
        QTest::newRow("nobody listening")
            << "http://127.0.0.1:" + closedPort << 0 << QByteArray() << HttpClient::errorDomain
            << int(QNetworkReply::ConnectionRefusedError) << "";
        QTest::newRow("no host") << "file:///srv/reports" << 0 << QByteArray() << domain
                                 << int(CrashReporterError::invalidURL) << "";
        QTest::newRow("not HTTP") << "ftp://127.0.0.1:" + closedPort << 0 << QByteArray() << HttpClient::errorDomain
                                  << int(QNetworkReply::ProtocolUnknownError) << "";
    }

    void uploadOutcome()
    {
        QFETCH(QString, service);
        QFETCH(int, status);
        QFETCH(QByteArray, answer);
        QFETCH(QString, domain);
        QFETCH(int, code);
        QFETCH(QString, description);

        m_nextStatus = status;
        m_nextBody = answer;
        auto reporter = makeReporter("3", service);
        const auto outcome = sendAndWait(*reporter);
        QVERIFY(outcome.has_value());
        QCOMPARE(m_received.size(), service.isEmpty() ? 1 : 0);
        QCOMPARE(outcome->ok(), domain.isEmpty());
        if (!domain.isEmpty()) {
            QVERIFY2(outcome->error().is(domain, code), qPrintable(outcome->error().description()));
            if (!description.isEmpty()) {
                QCOMPARE(outcome->error().description(), description);
            }
        }
    }

    // A bundle without a build number was built wrongly: the process ends with the message alone.
    void missingBuildNumberIsFatal()
    {
        QTemporaryDir bundle;
        QFile info(bundle.filePath("Info.plist"));
        QVERIFY(info.open(QIODevice::WriteOnly));
        info.write(PropertyList::serialize(QVariantMap{{"TW_SERVICES_URL", serverBase().toString()}}));
        info.close();
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(childBundleVariable, bundle.path());
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath());
        QVERIFY(child.waitForFinished(60000));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(child.readAllStandardError().contains("Build number not found"), "no fatal message");
        QVERIFY(m_received.isEmpty());
    }

    void pendingReportGoesOutOnlyWhenAllowed_data()
    {
        QTest::addColumn<QVariant>("allowed");
        QTest::addColumn<bool>("sendFromWindow");
        QTest::addColumn<int>("uploads");
        QTest::addColumn<int>("windows");
        QTest::addColumn<QByteArray>("refusal"); // the service answers 201 with this text when not empty

        QTest::newRow("allowed: sent, no window") << QVariant(true) << false << 1 << 0 << QByteArray();
        QTest::newRow("not set: window, dismissed") << QVariant() << false << 0 << 1 << QByteArray();
        QTest::newRow("refused: window, dismissed") << QVariant(false) << false << 0 << 1 << QByteArray();
        QTest::newRow("refused: window, sent from it") << QVariant(false) << true << 1 << 1 << QByteArray();
        // A failed automatic upload is logged, and the report is not kept for another try.
        QTest::newRow("allowed: refused by the service")
            << QVariant(true) << false << 1 << 0 << QByteArray("created elsewhere");
    }

    void pendingReportGoesOutOnlyWhenAllowed()
    {
        QFETCH(QVariant, allowed);
        QFETCH(bool, sendFromWindow);
        QFETCH(int, uploads);
        QFETCH(int, windows);
        QFETCH(QByteArray, refusal);

        if (allowed.isValid()) {
            m_defaults->setValue(PreferenceKeys::AllowAutomaticCrashReportsCollection, allowed);
        }
        if (!refusal.isEmpty()) {
            m_nextStatus = 201;
            m_nextBody = refusal;
        }
        writePending(completeReport);
        LogCapture log;
        auto reporter = makeReporter("1", {}, sendFromWindow);
        QSignalSpy finished(reporter.get(), &CrashReporter::sendFinished);
        reporter->checkPendingReport();
        QCOMPARE(m_shown.size(), windows);
        QCOMPARE(reporter->crashReportWindowController() != nullptr, windows > 0);
        QTRY_COMPARE(finished.size(), uploads);
        QCOMPARE(m_received.size(), uploads);
        const QString expectedText = CrashReport::fromData(completeReport).value().text();
        if (windows > 0) {
            QCOMPARE(m_shown.first(), expectedText);
            QCOMPARE(reporter->crashReportWindowController()->report(), std::optional(expectedText));
        }
        if (uploads > 0) {
            const QJsonObject sent =
                QJsonDocument::fromJson(m_received.first().body).object().value("crash_report").toObject();
            QCOMPARE(sent.value("content").toString(), expectedText);
            QCOMPARE(finished.first().first().toBool(), refusal.isEmpty());
        }
        const QString failure = "Unable to send crash report: The crash report service refused the report: " + refusal;
        QVERIFY2(log.contains(failure) == !refusal.isEmpty(), qPrintable(log.texts().join('\n')));
        QVERIFY(!m_engine->hasPendingCrashReport());
    }
};

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (const QString childBundle = qEnvironmentVariable(childBundleVariable); !childBundle.isEmpty()) {
        // The fatal case aborts on purpose; a core file would only litter the disk.
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        Bundle bundle(childBundle);
        Defaults defaults(QDir(childBundle).filePath("settings.ini"));
        CrashCaptureEngine engine(QDir(childBundle).filePath("reports"));
        CrashReporter reporter(engine, bundle, defaults, {});
        reporter.send("report");
        return 0;
    }
    TestCrashReporter test;
    return QTest::qExec(&test, argc, argv);
}
#include "TestCrashReporter.moc"
