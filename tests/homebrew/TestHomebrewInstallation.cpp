#include "foundation/Bundle.h"
#include "foundation/PropertyList.h"
#include "homebrew/HomebrewDiagnosticInformation.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/HomebrewLocations.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using Homebrew::Installation;

namespace {

// What stands at a candidate path in a test root.
enum class Entry { nothing, file, directory, linkToDirectory, linkToFile, danglingLink };

bool writeFile(const QString& path, const QByteArray& content = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

bool place(const QString& root, const QString& candidate, Entry entry)
{
    const QString path = root + candidate;
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QString elsewhere = root + QStringLiteral("/elsewhere") + candidate;
    switch (entry) {
    case Entry::nothing:
        return true;
    case Entry::file:
        return writeFile(path, "not a directory");
    case Entry::directory:
        return QDir().mkpath(path);
    case Entry::linkToDirectory:
        return QDir().mkpath(elsewhere) && QFile::link(elsewhere, path);
    case Entry::linkToFile:
        return writeFile(elsewhere) && QFile::link(elsewhere, path);
    case Entry::danglingLink:
        return QFile::link(elsewhere, path);
    }
    return false;
}

bool makeTags(const QString& tagsPath, const QStringList& names)
{
    if (!QDir().mkpath(tagsPath)) {
        return false;
    }
    for (const QString& name : names) {
        if (!writeFile(tagsPath + u'/' + name, "0123456789abcdef0123456789abcdef01234567\n")) {
            return false;
        }
    }
    return true;
}

const QString opt = QStringLiteral("/opt/homebrew");
const QString usrLocal = QStringLiteral("/usr/local/homebrew");
const QString commandsTags = QStringLiteral("/Library/Taps/tesselworks/homebrew-corvel-cmd/.git/refs/tags");

} // namespace

class TestHomebrewInstallation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void prefixCandidates_data();
    void prefixCandidates();
    void prefixIsLookedUpAfresh();
    void rootIsMadeAbsolute();
    void versionFromTags_data();
    void versionFromTags();
    void machineName_data();
    void machineName();
    void systemArchitectureIsTheKernels();
    void locationArguments_data();
    void locationArguments();
    void diagnosticInformation();
};

void TestHomebrewInstallation::prefixCandidates_data()
{
    QTest::addColumn<Entry>("first");
    QTest::addColumn<Entry>("second");
    QTest::addColumn<QString>("expected"); // the candidate that wins, empty for none

    QTest::newRow("file, then directory") << Entry::file << Entry::directory << usrLocal;
    QTest::newRow("both directories") << Entry::directory << Entry::directory << opt;
    QTest::newRow("only the second") << Entry::nothing << Entry::directory << usrLocal;
    QTest::newRow("link to a directory counts") << Entry::linkToDirectory << Entry::directory << opt;
    QTest::newRow("link to a file does not") << Entry::linkToFile << Entry::directory << usrLocal;
    QTest::newRow("dangling link does not") << Entry::danglingLink << Entry::linkToDirectory << usrLocal;
    QTest::newRow("two files") << Entry::file << Entry::file << QString();
    QTest::newRow("none") << Entry::nothing << Entry::nothing << QString();
}

void TestHomebrewInstallation::prefixCandidates()
{
    QFETCH(Entry, first);
    QFETCH(Entry, second);
    QFETCH(QString, expected);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(place(root.path(), opt, first));
    QVERIFY(place(root.path(), usrLocal, second));
    // The classic prefix without the homebrew folder is never a candidate.
    QVERIFY(QDir().mkpath(root.path() + QStringLiteral("/usr/local/bin")));

    const Installation installation(root.path());
    if (expected.isEmpty()) {
        QCOMPARE(installation.prefix(), std::nullopt);
        QCOMPARE(installation.brewPath(), std::nullopt);
        QCOMPARE(installation.homebrewVersion(), std::nullopt);
        QCOMPARE(installation.homebrewCommandsVersion(), std::nullopt);
    } else {
        // The path under the root as it is, not where a link leads.
        QCOMPARE(installation.prefix(), std::optional(root.path() + expected));
        QCOMPARE(installation.brewPath(), std::optional(root.path() + expected + QStringLiteral("/bin/brew")));
    }
}

void TestHomebrewInstallation::prefixIsLookedUpAfresh()
{
    QTemporaryDir root;
    QVERIFY(root.isValid());
    const Installation installation(root.path());
    QCOMPARE(installation.prefix(), std::nullopt);

    QVERIFY(QDir().mkpath(root.path() + usrLocal));
    QCOMPARE(installation.prefix(), std::optional(root.path() + usrLocal));
    QVERIFY(QDir().mkpath(root.path() + opt));
    QCOMPARE(installation.prefix(), std::optional(root.path() + opt));
    QVERIFY(QDir(root.path() + opt).removeRecursively());
    QVERIFY(QDir(root.path() + usrLocal).removeRecursively());
    QCOMPARE(installation.prefix(), std::nullopt);
}

void TestHomebrewInstallation::rootIsMadeAbsolute()
{
    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(QDir().mkpath(root.path() + opt));
    Installation installation(root.path() + QStringLiteral("/"));
    QCOMPARE(installation.prefix(), std::optional(root.path() + opt));

    // A relative root (as typed after --root) must still give an absolute program path for the child.
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(root.path() + QStringLiteral("/opt")));
    installation.setRoot(QStringLiteral(".."));
    QVERIFY(QDir::setCurrent(previous));
    QCOMPARE(installation.root(), root.path());
    QCOMPARE(installation.prefix(), std::optional(root.path() + opt));
}

void TestHomebrewInstallation::versionFromTags_data()
{
    QTest::addColumn<QString>("tagsPath"); // under the prefix
    QTest::addColumn<QStringList>("tags"); // empty: the folder exists but is empty
    QTest::addColumn<QString>("expected");

    const QString homebrewTags = QStringLiteral("/.git/refs/tags");
    // Plain character order, not version order.
    QTest::newRow("4.9.0 beats 4.10.0") << homebrewTags << QStringList{"4.10.0", "4.9.0"} << "4.9.0";
    QTest::newRow("2.0 beats 10.0") << homebrewTags << QStringList{"10.0", "2.0", "1.0"} << "2.0";
    QTest::newRow("lower case after upper case") << homebrewTags << QStringList{"a1", "B2"} << "a1";
    QTest::newRow("one tag") << homebrewTags << QStringList{"4.3.0"} << "4.3.0";
    QTest::newRow("empty folder") << homebrewTags << QStringList{} << QString();
    QTest::newRow("commands tap") << commandsTags << QStringList{"1.2.0", "1.10.0"} << "1.2.0";
    QTest::newRow("commands tap, empty folder") << commandsTags << QStringList{} << QString();
}

void TestHomebrewInstallation::versionFromTags()
{
    QFETCH(QString, tagsPath);
    QFETCH(QStringList, tags);
    QFETCH(QString, expected);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    const QString prefix = root.path() + opt;
    QVERIFY(makeTags(prefix + tagsPath, tags));
    const Installation installation(root.path());

    const bool commands = tagsPath == commandsTags;
    const auto version = commands ? installation.homebrewCommandsVersion() : installation.homebrewVersion();
    const auto other = commands ? installation.homebrewVersion() : installation.homebrewCommandsVersion();
    QCOMPARE(version, expected.isEmpty() ? std::nullopt : std::optional(expected));
    // Each version reads its own folder only.
    QCOMPARE(other, std::nullopt);
}

void TestHomebrewInstallation::machineName_data()
{
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<bool>("decodes");
    QTest::addColumn<QString>("expected");

    QTest::newRow("padded with NULs") << QByteArray("x86_64\0\0\0\0", 10) << true << "x86_64";
    QTest::newRow("NULs on both ends") << QByteArray("\0\0arm64\0", 8) << true << "arm64";
    QTest::newRow("no padding") << QByteArray("aarch64") << true << "aarch64";
    QTest::newRow("all NULs") << QByteArray(65, '\0') << true << "";
    QTest::newRow("not UTF-8") << QByteArray("x86\xff_64\0", 8) << false << "";
    QTest::newRow("overlong NUL") << QByteArray("\xc0\x80x86_64", 8) << false << "";
}

void TestHomebrewInstallation::machineName()
{
    QFETCH(QByteArray, field);
    QFETCH(bool, decodes);
    QFETCH(QString, expected);
    QCOMPARE(Installation::machineName(field), decodes ? std::optional(expected) : std::nullopt);
}

void TestHomebrewInstallation::systemArchitectureIsTheKernels()
{
    QProcess uname;
    uname.start(QStringLiteral("/bin/uname"), {QStringLiteral("-m")});
    QVERIFY(uname.waitForFinished());
    QCOMPARE(uname.exitCode(), 0);
    QCOMPARE(Installation::systemArchitecture(), std::optional(QString::fromUtf8(uname.readAll().trimmed())));
}

void TestHomebrewInstallation::locationArguments_data()
{
    QTest::addColumn<std::optional<QString>>("apps");
    QTest::addColumn<std::optional<QString>>("fonts");
    QTest::addColumn<QStringList>("expected");

    const QString apps = QStringLiteral("/Users/me/My Apps");
    const QString fonts = QStringLiteral("/Users/me/Library/Fonts=custom");
    QTest::newRow("neither") << std::optional<QString>() << std::optional<QString>() << QStringList{};
    QTest::newRow("only fonts") << std::optional<QString>() << std::optional(fonts) << QStringList{"--fontdir", fonts};
    QTest::newRow("only apps") << std::optional(apps) << std::optional<QString>() << QStringList{"--appdir", apps};
    QTest::newRow("apps come first") << std::optional(apps) << std::optional(fonts)
                                     << QStringList{"--appdir", apps, "--fontdir", fonts};
}

void TestHomebrewInstallation::locationArguments()
{
    QFETCH(std::optional<QString>, apps);
    QFETCH(std::optional<QString>, fonts);
    QFETCH(QStringList, expected);
    QCOMPARE(Homebrew::arguments(Homebrew::Locations{apps, fonts}), expected);
}

void TestHomebrewInstallation::diagnosticInformation()
{
    QTemporaryDir root;
    QTemporaryDir resources;
    QVERIFY(root.isValid() && resources.isValid());
    const Bundle bundle(resources.path());
    const Installation installation(root.path());

    // Without Homebrew and without version keys the keys are still all there, empty.
    QMap<QString, QString> expected{
        {"Version", ""},
        {"Build", ""},
        {"OS Version", QSysInfo::prettyProductName()},
        {"System Architecture", Installation::systemArchitecture().value_or(QString())},
        {"Homebrew Version", ""},
        {"Homebrew Commands Version", ""},
    };
    QCOMPARE(Homebrew::DiagnosticInformation::collect(bundle, installation), expected);

    QVERIFY(writeFile(
        resources.filePath("Info.plist"),
        PropertyList::serialize(QVariantMap{{"CFBundleShortVersionString", "2.3.4"}, {"CFBundleVersion", "567"}})));
    QVERIFY(makeTags(root.path() + usrLocal + QStringLiteral("/.git/refs/tags"), {"4.2.21", "4.3.0"}));
    QVERIFY(makeTags(root.path() + usrLocal + commandsTags, {"1.0.4"}));
    const Bundle configured(resources.path());
    expected.insert(QMap<QString, QString>{
        {"Version", "2.3.4"}, {"Build", "567"}, {"Homebrew Version", "4.3.0"}, {"Homebrew Commands Version", "1.0.4"}});
    QCOMPARE(Homebrew::DiagnosticInformation::collect(configured, installation), expected);
}

QTEST_GUILESS_MAIN(TestHomebrewInstallation)
#include "TestHomebrewInstallation.moc"
