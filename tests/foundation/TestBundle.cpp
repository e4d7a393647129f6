#include "foundation/Bundle.h"
#include "foundation/PropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// An invalid value leaves the key out: a property list has no null.
QByteArray infoWith(const QString& key = {}, const QVariant& value = {})
{
    QVariantMap info{{"CFBundleShortVersionString", "2.3.4"},
                     {"CFBundleVersion", "567"},
                     {"TW_SERVICES_URL", "https://services.example.test"},
                     {"TW_GITHUB_URL", "https://github.example.test"}};
    info.insert(key, value);
    return PropertyList::serialize(info);
}

// What the bundle reports: no dictionary at all, or its version, build number and one endpoint ("-" for none).
QString describe(const Bundle& bundle)
{
    if (!bundle.infoDictionary()) {
        return "none";
    }
    return bundle.version() + u' ' + bundle.buildNumber().value_or("-") + u' ' +
           bundle.infoString("TW_GITHUB_URL").value_or("-");
}

struct Child {
    int exitCode = -1; // also after a crash or a hang
    QString out;
    QStringList errLines;
};

Child runChild(const QString& program, const char* mode, const QString& value)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The fatal message must reach stderr verbatim, not the journal or a custom pattern.
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    environment.insert(mode, value);
    QProcess process; // kills the child if it hangs
    process.setProcessEnvironment(environment);
    process.start(program, {});
    const bool ended = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
    return {ended ? process.exitCode() : -1, QString::fromUtf8(process.readAllStandardOutput()).trimmed(),
            QString::fromUtf8(process.readAllStandardError()).split(u'\n')};
}

} // namespace

class TestBundle : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pathForResource();
    void info_data();
    void info();
    void serviceURL_data();
    void serviceURL();
    void mainLocation();
};

void TestBundle::pathForResource()
{
    QTemporaryDir dir;
    QVERIFY(writeFile(dir.filePath("Askpass"), "#!/bin/sh\n") && writeFile(dir.filePath("DefaultSettings.plist"), ""));
    QVERIFY(QDir(dir.path()).mkdir("Agents"));
    const Bundle bundle(dir.path());
    const auto found = [&bundle](const char* name, const char* type) {
        return bundle.pathForResource(name, type).value_or("-");
    };
    QCOMPARE(found("Askpass", ""), dir.filePath("Askpass"));
    QCOMPARE(found("DefaultSettings", "plist"), dir.filePath("DefaultSettings.plist"));
    QCOMPARE(found("DefaultSettings", ""), "-"); // the extension needs the type
    QCOMPARE(found("Nothing", "plist"), "-");
    QCOMPARE(found("Agents", ""), "-"); // a folder is not a resource
}

// A null content means no such file; an overlay is read as corvel-x --config reads it.
void TestBundle::info_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<QByteArray>("overlay");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* tag, const QByteArray& info, const QByteArray& overlay, const char* expected) {
        QTest::newRow(tag) << info << overlay << QString(expected);
    };
    const QByteArray local = PropertyList::serialize(QVariantMap{{"TW_GITHUB_URL", "http://127.0.0.1:8080"}});
    const QByteArray array = PropertyList::serialize(QVariantList{"a"});

    row("plain", infoWith(), {}, "2.3.4 567 https://github.example.test");
    row("build not text", infoWith("CFBundleVersion", 5), {}, "2.3.4 - https://github.example.test");
    row("missing", {}, {}, "none");
    row("not a dictionary", array, {}, "none");
    row("malformed", "<plist><dict><key>a</key></plist>", {}, "none");
    // Keys the overlay does not name stay as the bundle has them.
    row("overlay", infoWith(), local, "2.3.4 567 http://127.0.0.1:8080");
    row("overlay alone", {}, local, " - http://127.0.0.1:8080");
    row("overlay not a dictionary", infoWith(), array, "unusable overlay");
    row("overlay missing", infoWith(), "", "unusable overlay");
}

void TestBundle::info()
{
    QFETCH(QByteArray, info);
    QFETCH(QByteArray, overlay);
    QFETCH(QString, expected);

    QTemporaryDir dir;
    QVERIFY(info.isNull() || writeFile(dir.filePath("Info.plist"), info));
    Bundle bundle(dir.path());
    if (!overlay.isNull()) {
        const QString path = dir.filePath("overlay.plist"); // an empty overlay is a missing file
        QVERIFY(overlay.isEmpty() || writeFile(path, overlay));
        const auto read = Bundle::readInfoOverlay(path);
        if (!read) {
            QVERIFY2(read.error().description().contains(path), qPrintable(read.error().description()));
            QCOMPARE(expected, "unusable overlay");
            return;
        }
        bundle.overlayInfo(read.value());
    }
    QCOMPARE(describe(bundle), expected);
}

// A bundle without a usable services URL ends the process, so each case runs in a child.
void TestBundle::serviceURL_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<QString>("fatal");
    const auto services = [](const QVariant& url) { return infoWith("TW_SERVICES_URL", url); };

    QTest::newRow("no Info.plist") << QByteArray() << "Plist not found";
    QTest::newRow("key absent") << services(QVariant()) << "Services URL not set in plist";
    QTest::newRow("empty") << services(QString()) << "Services URL is invalid";
    QTest::newRow("space in host") << services("https://services .example.test") << "Services URL is invalid";
    QTest::newRow("valid") << services("https://services.example.test/base") << "";
}

void TestBundle::serviceURL()
{
    QFETCH(QByteArray, info);
    QFETCH(QString, fatal);

    QTemporaryDir dir;
    QVERIFY(info.isNull() || writeFile(dir.filePath("Info.plist"), info));
    const Child child = runChild(QCoreApplication::applicationFilePath(), childBundleVariable, dir.path());
    // A configuration fault ends the process with the message alone.
    QCOMPARE(child.exitCode == 0, fatal.isEmpty());
    QCOMPARE(child.out, fatal.isEmpty() ? "https://services.example.test/base" : "");
    QVERIFY2(fatal.isEmpty() || child.errLines.contains(fatal), qPrintable(child.errLines.join(u'\n')));
}

// A copy of this executable in a tree of our own shows where main() looks, as it would once installed.
void TestBundle::mainLocation()
{
    QTemporaryDir root;
    const QString program = root.filePath("bin/TestBundle");
    QVERIFY(QDir(root.path()).mkpath("bin") && QFile::copy(QCoreApplication::applicationFilePath(), program));
    const auto located = [&](const QStringList& folders) {
        QDir(root.filePath("share")).removeRecursively();
        QDir(root.filePath("bin/share")).removeRecursively();
        for (const QString& folder : folders) {
            QDir(root.path()).mkpath(folder);
        }
        const Child child = runChild(program, childMainVariable, "1");
        return child.exitCode == 0 ? QDir(QFileInfo(root.path()).canonicalFilePath()).relativeFilePath(child.out)
                                   : "failed";
    };
    QCOMPARE(located({"share/corvel-x", "bin/share/corvel-x"}), "share/corvel-x"); // the tree beside bin wins
    QCOMPARE(located({"bin/share/corvel-x"}), "bin/share/corvel-x");
    QCOMPARE(located({}), "share/corvel-x"); // neither: the installed location
}

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (const QString childBundle = qEnvironmentVariable(childBundleVariable); !childBundle.isEmpty()) {
        // The fatal cases abort on purpose; a core file per case would only litter the disk.
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        QTextStream(stdout) << Bundle(childBundle).serviceURL().toString() << Qt::endl;
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
