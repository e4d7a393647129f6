// Runs the real corvel-x executable as a child process, as a person would start it.
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

class TestLaunch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsAndQuitsCleanlyOnTerminationSignal();
    void configOverlay_data();
    void configOverlay();

private:
    static QString executable();
    QProcessEnvironment environment() const;

    QTemporaryDir m_home;
};

QString TestLaunch::executable()
{
    // Every executable of the build lands in the same bin/ folder.
    return QCoreApplication::applicationDirPath() + QStringLiteral("/corvel-x");
}

QProcessEnvironment TestLaunch::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("HOME"), m_home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("works.tessel.corvel.info=true"));
    return env;
}

void TestLaunch::startsAndQuitsCleanlyOnTerminationSignal()
{
    QProcess app;
    app.setProcessEnvironment(environment());
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(executable(), {});
    QVERIFY2(app.waitForStarted(), qPrintable(app.errorString()));

    QByteArray output;
    QTRY_VERIFY_WITH_TIMEOUT((output += app.readAll()).contains("Restoring custom appearance"), 20000);
    ::kill(pid_t(app.processId()), SIGTERM);
    QVERIFY(app.waitForFinished(20000));
    output += app.readAll();

    QCOMPARE(app.exitStatus(), QProcess::NormalExit);
    QCOMPARE(app.exitCode(), 0);
    const qsizetype launching = output.indexOf("Launching Corvel X...");
    const qsizetype defaults = output.indexOf("Loading default settings");
    const qsizetype terminating = output.indexOf("Terminating Corvel X...");
    QVERIFY2(launching >= 0 && launching < defaults && defaults < terminating, output.constData());
}

void TestLaunch::configOverlay_data()
{
    QTest::addColumn<QByteArray>("plist");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("invalid service URL")
        << QByteArray("<dict><key>TW_SERVICES_URL</key><string>http://exa mple.com</string></dict>")
        << QByteArray("Services URL is invalid");
    QTest::newRow("not a property list") << QByteArray("<dict><key>TW_SERVICES_URL</key>") << QByteArray("corvel-x: ");
}

void TestLaunch::configOverlay()
{
    QFETCH(QByteArray, plist);
    QFETCH(QByteArray, message);

    const QString path = m_home.filePath(QStringLiteral("overlay.plist"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + plist + "</plist>");
    file.close();

    QProcess app;
    app.setProcessEnvironment(environment());
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(executable(), {QStringLiteral("--config"), path});
    QVERIFY(app.waitForFinished(20000));
    const QByteArray output = app.readAll();
    QVERIFY2(output.contains(message), output.constData());
    QVERIFY(app.exitStatus() == QProcess::CrashExit || app.exitCode() != 0);
    // Nothing started: the configuration is checked before the application launches.
    QVERIFY(!output.contains("Launching Corvel X..."));
}

QTEST_GUILESS_MAIN(TestLaunch)
#include "TestLaunch.moc"
