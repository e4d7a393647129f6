#include "foundation/Bundle.h"
#include "foundation/PropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>
#include <sys/resource.h>

namespace {

// Environment switches of the child modes of this executable (see main below).
constexpr const char* childBundleVariable = "CORVEL_TEST_BUNDLE_CHILD";
constexpr const char* childMainVariable = "CORVEL_TEST_BUNDLE_MAIN";

bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

bool writeInfo(const QString& dir, const QVariantMap& info)
{
    return writeFile(dir + QStringLiteral("/Info.plist"), PropertyList::serialize(info));
}

QVariantMap baseInfo()
{
    return {
        {QStringLiteral("CFBundleShortVersionString"), QStringLiteral("2.3.4")},
        {QStringLiteral("CFBundleVersion"), QStringLiteral("567")},
        {QStringLiteral("TW_SERVICES_URL"), QStringLiteral("https://services.example.test")},
        {QStringLiteral("TW_GITHUB_URL"), QStringLiteral("https://github.example.test")},
    };
}

// A child that must end on its own; a hang is reported as a failure rather than stalling the suite.
struct ChildRun {
    QProcess::ExitStatus status = QProcess::NormalExit;
    int exitCode = -1;
    QString out;
    QStringList errLines;
};

ChildRun runChild(const QString& program, const QProcessEnvironment& environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, {});
    ChildRun run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        run.exitCode = -2;
        return run;
    }
    run.status = process.exitStatus();
    run.exitCode = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    const QStringList lines = QString::fromUtf8(process.readAllStandardError()).split(u'\n');
    for (const QString& line : lines) {
        run.errLines.append(line.trimmed());
    }
    return run;
}

QProcessEnvironment childEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The fatal message must reach stderr verbatim, not the journal or a custom pattern.
    environment.insert(QStringLiteral("QT_FORCE_STDERR_LOGGING"), QStringLiteral("1"));
    environment.remove(QStringLiteral("QT_MESSAGE_PATTERN"));
    environment.remove(QString::fromLatin1(childBundleVariable));
    environment.remove(QString::fromLatin1(childMainVariable));
    return environment;
}

} // namespace

class TestBundle : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pathForResource_data();
    void pathForResource();
    void versionAndBuild_data();
    void versionAndBuild();
    void unusableInfo_data();
    void unusableInfo();
    void infoIsReadOnce();
    void overlay();
    void overlayWithoutInfo();
    void readInfoOverlay();
    void serviceURL_data();
    void serviceURL();
    void mainLocation_data();
    void mainLocation();
};

void TestBundle::pathForResource_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("expected");

    QTest::newRow("executable without type") << "Askpass"
                                             << ""
                                             << "Askpass";
    QTest::newRow("executable asked with a type") << "Askpass"
                                                  << "plist"
                                                  << "";
    QTest::newRow("plist with type") << "DefaultSettings"
                                     << "plist"
                                     << "DefaultSettings.plist";
    QTest::newRow("plist without type") << "DefaultSettings"
                                        << ""
                                        << "";
    QTest::newRow("full name without type") << "DefaultSettings.plist"
                                            << ""
                                            << "DefaultSettings.plist";
    QTest::newRow("agent") << "works.tessel.corvel.update.agent"
                           << "plist"
                           << "works.tessel.corvel.update.agent.plist";
    QTest::newRow("missing") << "Nothing"
                             << "plist"
                             << "";
    QTest::newRow("folder is not a resource") << "Agents"
                                              << ""
                                              << "";
    QTest::newRow("empty name") << ""
                                << ""
                                << "";
}

void TestBundle::pathForResource()
{
    QFETCH(QString, name);
    QFETCH(QString, type);
    QFETCH(QString, expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(writeFile(dir.filePath(QStringLiteral("Askpass")), "#!/bin/sh\n"));
    QVERIFY(writeFile(dir.filePath(QStringLiteral("DefaultSettings.plist")), PropertyList::serialize(QVariantMap())));
    QVERIFY(writeFile(dir.filePath(QStringLiteral("works.tessel.corvel.update.agent.plist")), "x"));
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("Agents")));

    const Bundle bundle(dir.path());
    const auto path = bundle.pathForResource(name, type);
    if (expected.isEmpty()) {
        QVERIFY2(!path, qPrintable(path.value_or(QString())));
    } else {
        QVERIFY(path);
        QCOMPARE(QFileInfo(*path).canonicalFilePath(), QFileInfo(dir.filePath(expected)).canonicalFilePath());
    }
}

void TestBundle::versionAndBuild_data()
{
    QTest::addColumn<QVariantMap>("info");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QVariant>("build");

    QTest::newRow("both") << baseInfo() << "2.3.4" << QVariant(QStringLiteral("567"));
    QVariantMap withoutBuild = baseInfo();
    withoutBuild.remove(QStringLiteral("CFBundleVersion"));
    QTest::newRow("no build") << withoutBuild << "2.3.4" << QVariant();
    QVariantMap numericBuild = baseInfo();
    numericBuild.insert(QStringLiteral("CFBundleVersion"), qint64(567));
    QTest::newRow("build not text") << numericBuild << "2.3.4" << QVariant();
    QVariantMap withoutVersion = baseInfo();
    withoutVersion.remove(QStringLiteral("CFBundleShortVersionString"));
    QTest::newRow("no version") << withoutVersion << "" << QVariant(QStringLiteral("567"));
}

void TestBundle::versionAndBuild()
{
    QFETCH(QVariantMap, info);
    QFETCH(QString, version);
    QFETCH(QVariant, build);

    QTemporaryDir dir;
    QVERIFY(writeInfo(dir.path(), info));
    const Bundle bundle(dir.path());
    QCOMPARE(bundle.version(), version);
    QCOMPARE(bundle.buildNumber().has_value(), build.isValid());
    if (build.isValid()) {
        QCOMPARE(*bundle.buildNumber(), build.toString());
    }
    QCOMPARE(bundle.infoString(QStringLiteral("TW_GITHUB_URL")),
             std::optional(QStringLiteral("https://github.example.test")));
    QCOMPARE(bundle.infoString(QStringLiteral("TW_ANALYTICS_URL")), std::nullopt);
}

void TestBundle::unusableInfo_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("missing") << QByteArray();
    QTest::newRow("array") << PropertyList::serialize(QVariantList{QStringLiteral("a")});
    QTest::newRow("string") << PropertyList::serialize(QStringLiteral("Info"));
    QTest::newRow("malformed") << QByteArray("<plist><dict><key>a</key></plist>");
}

void TestBundle::unusableInfo()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    if (!content.isNull()) {
        QVERIFY(writeFile(dir.filePath(QStringLiteral("Info.plist")), content));
    }
    const Bundle bundle(dir.path());
    QVERIFY(!bundle.infoDictionary());
    QCOMPARE(bundle.version(), QString());
    QCOMPARE(bundle.buildNumber(), std::nullopt);
}

void TestBundle::infoIsReadOnce()
{
    QTemporaryDir dir;
    QVERIFY(writeInfo(dir.path(), baseInfo()));
    const Bundle bundle(dir.path());
    QCOMPARE(bundle.version(), QStringLiteral("2.3.4"));

    QVariantMap changed = baseInfo();
    changed.insert(QStringLiteral("CFBundleShortVersionString"), QStringLiteral("9.9.9"));
    QVERIFY(writeInfo(dir.path(), changed));
    QCOMPARE(bundle.version(), QStringLiteral("2.3.4"));
    QCOMPARE(Bundle(dir.path()).version(), QStringLiteral("9.9.9"));
}

void TestBundle::overlay()
{
    QTemporaryDir dir;
    QVERIFY(writeInfo(dir.path(), baseInfo()));
    Bundle bundle(dir.path());
    bundle.overlayInfo({{QStringLiteral("TW_SERVICES_URL"), QStringLiteral("http://127.0.0.1:8080")},
                        {QStringLiteral("TW_HOMEBREW_API_URL"), QStringLiteral("file:///tmp/catalogue")}});

    QCOMPARE(bundle.serviceURL(), QUrl(QStringLiteral("http://127.0.0.1:8080")));
    QCOMPARE(bundle.infoString(QStringLiteral("TW_HOMEBREW_API_URL")),
             std::optional(QStringLiteral("file:///tmp/catalogue")));
    // Keys the overlay does not name stay as the bundle has them.
    QCOMPARE(bundle.infoString(QStringLiteral("TW_GITHUB_URL")),
             std::optional(QStringLiteral("https://github.example.test")));
    QCOMPARE(bundle.version(), QStringLiteral("2.3.4"));
}

void TestBundle::overlayWithoutInfo()
{
    QTemporaryDir dir;
    Bundle bundle(dir.path());
    QVERIFY(!bundle.infoDictionary());
    bundle.overlayInfo({{QStringLiteral("TW_SERVICES_URL"), QStringLiteral("https://overlay.example.test")}});
    QVERIFY(bundle.infoDictionary());
    QCOMPARE(bundle.serviceURL(), QUrl(QStringLiteral("https://overlay.example.test")));
}

void TestBundle::readInfoOverlay()
{
    QTemporaryDir dir;
    const QString good = dir.filePath(QStringLiteral("good.plist"));
    QVERIFY(writeFile(good, PropertyList::serialize(baseInfo())));
    const auto read = Bundle::readInfoOverlay(good);
    QVERIFY(read.ok());
    QCOMPARE(read.value().value(QStringLiteral("CFBundleVersion")).toString(), QStringLiteral("567"));

    const QString array = dir.filePath(QStringLiteral("array.plist"));
    QVERIFY(writeFile(array, PropertyList::serialize(QVariantList{qint64(1)})));
    const auto notDictionary = Bundle::readInfoOverlay(array);
    QVERIFY(!notDictionary.ok());
    QVERIFY(notDictionary.error().description().contains(array));

    const auto missing = Bundle::readInfoOverlay(dir.filePath(QStringLiteral("missing.plist")));
    QVERIFY(!missing.ok());
    QCOMPARE(missing.error().code(), int(PropertyList::Unreadable));
}

void TestBundle::serviceURL_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<QString>("fatal");
    QTest::addColumn<QString>("url");

    auto infoWith = [](const QVariant& url) {
        QVariantMap info = baseInfo();
        info.insert(QStringLiteral("TW_SERVICES_URL"), url);
        return PropertyList::serialize(info);
    };
    QVariantMap withoutURL = baseInfo();
    withoutURL.remove(QStringLiteral("TW_SERVICES_URL"));

    QTest::newRow("no Info.plist") << QByteArray() << "Plist not found"
                                   << "";
    QTest::newRow("Info.plist not a dictionary") << PropertyList::serialize(QVariantList()) << "Plist not found"
                                                 << "";
    QTest::newRow("key absent") << PropertyList::serialize(withoutURL) << "Services URL not set in plist"
                                << "";
    QTest::newRow("key not text") << infoWith(qint64(8080)) << "Services URL not set in plist"
                                  << "";
    QTest::newRow("empty") << infoWith(QString()) << "Services URL is invalid"
                           << "";
    QTest::newRow("space in host") << infoWith(QStringLiteral("https://services .example.test"))
                                   << "Services URL is invalid"
                                   << "";
    QTest::newRow("bad percent escape") << infoWith(QStringLiteral("https://example.test/%zz"))
                                        << "Services URL is invalid"
                                        << "";
    QTest::newRow("valid") << infoWith(QStringLiteral("https://services.example.test/base")) << ""
                           << "https://services.example.test/base";
}

void TestBundle::serviceURL()
{
    QFETCH(QByteArray, info);
    QFETCH(QString, fatal);
    QFETCH(QString, url);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    if (!info.isNull()) {
        QVERIFY(writeFile(dir.filePath(QStringLiteral("Info.plist")), info));
    }
    QProcessEnvironment environment = childEnvironment();
    environment.insert(QString::fromLatin1(childBundleVariable), dir.path());
    const ChildRun run = runChild(QCoreApplication::applicationFilePath(), environment);
    QVERIFY2(run.exitCode != -2, "the child did not end");

    if (fatal.isEmpty()) {
        QCOMPARE(run.status, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, url);
    } else {
        QVERIFY2(run.status == QProcess::CrashExit || run.exitCode != 0, "a configuration fault must end the process");
        QVERIFY2(run.errLines.contains(fatal), qPrintable(run.errLines.join(u'\n')));
        QVERIFY2(run.out.isEmpty(), qPrintable(run.out));
    }
}

void TestBundle::mainLocation_data()
{
    QTest::addColumn<bool>("besideBin");
    QTest::addColumn<bool>("insideBin");
    QTest::addColumn<QString>("expected");

    QTest::newRow("installed or build tree") << true << false << "share/corvel-x";
    QTest::newRow("both, the tree beside bin wins") << true << true << "share/corvel-x";
    QTest::newRow("inside bin") << false << true << "bin/share/corvel-x";
    QTest::newRow("neither") << false << false << "share/corvel-x";
}

void TestBundle::mainLocation()
{
    QFETCH(bool, besideBin);
    QFETCH(bool, insideBin);
    QFETCH(QString, expected);

    // A copy of this executable in a tree of our own shows where main() looks, as it would once installed.
    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(QDir(root.path()).mkpath(QStringLiteral("bin")));
    const QString program = root.filePath(QStringLiteral("bin/TestBundle"));
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
    if (besideBin) {
        QVERIFY(QDir(root.path()).mkpath(QStringLiteral("share/corvel-x")));
    }
    if (insideBin) {
        QVERIFY(QDir(root.path()).mkpath(QStringLiteral("bin/share/corvel-x")));
    }

    QProcessEnvironment environment = childEnvironment();
    environment.insert(QString::fromLatin1(childMainVariable), QStringLiteral("1"));
    const ChildRun run = runChild(program, environment);
    QCOMPARE(run.status, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QDir::cleanPath(QFileInfo(root.path()).canonicalFilePath() + u'/' + expected));
}

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);

    const QString childBundle = qEnvironmentVariable(childBundleVariable);
    if (!childBundle.isEmpty()) {
        // The fatal cases abort on purpose; a core file per case would only litter the disk.
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        const Bundle bundle(childBundle);
        QTextStream(stdout) << bundle.serviceURL().toString() << Qt::endl;
        return 0;
    }
    if (qEnvironmentVariableIsSet(childMainVariable)) {
        QTextStream(stdout) << Bundle::main().resourcePath() << Qt::endl;
        return 0;
    }

    TestBundle test;
    return QTest::qExec(&test, argc, argv);
}

#include "TestBundle.moc"
