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

const QString opt = QStringLiteral("/opt/homebrew");
const QString usrLocal = QStringLiteral("/usr/local/homebrew");
const QString homebrewTags = QStringLiteral("/.git/refs/tags");
const QString commandsTags = QStringLiteral("/Library/Taps/tesselworks/homebrew-corvel-cmd/.git/refs/tags");

bool writeFile(const QString& path, const QByteArray& content = "0123456789abcdef\n")
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && file.open(QIODevice::WriteOnly) && file.write(content) > 0;
}

// Puts at path what entry names: "" nothing, "dir", "file", or "->dir", "->file", "->none" for a symbolic link to
// such a thing beside it.
bool place(const QString& path, const QString& entry)
{
    const bool link = entry.startsWith(QStringLiteral("->"));
    const QString made = link ? path + QStringLiteral(".target") : path;
    const QString kind = entry.mid(link ? 2 : 0);
    const bool placed = kind == QStringLiteral("dir")    ? QDir().mkpath(made)
                        : kind == QStringLiteral("file") ? writeFile(made)
                                                         : QDir().mkpath(QFileInfo(path).absolutePath());
    return placed && (!link || QFile::link(made, path));
}

bool makeTags(const QString& tagsPath, const QStringList& names)
{
    return QDir().mkpath(tagsPath) && std::all_of(names.begin(), names.end(), [&](const QString& name) {
               return writeFile(tagsPath + u'/' + name);
           });
}

} // namespace

class TestHomebrewInstallation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void prefixCandidates_data()
    {
        QTest::addColumn<QStringList>("entries"); // at the first and the second candidate, as place() takes them
        QTest::addColumn<QString>("expected");    // the candidate that wins, empty for none
        QTest::newRow("file, then directory") << QStringList{"file", "dir"} << usrLocal;
        QTest::newRow("both directories") << QStringList{"dir", "dir"} << opt;
        QTest::newRow("link to a directory counts") << QStringList{"->dir", ""} << opt;
        QTest::newRow("link to a file does not") << QStringList{"->file", ""} << QString();
        QTest::newRow("dangling link does not") << QStringList{"->none", ""} << QString();
        QTest::newRow("none") << QStringList{"", ""} << QString();
    }

    void prefixCandidates()
    {
        QFETCH(QStringList, entries);
        QFETCH(QString, expected);
        QTemporaryDir root;
        QVERIFY(place(root.path() + opt, entries.at(0)) && place(root.path() + usrLocal, entries.at(1)));
        // The classic prefix without the homebrew folder is never a candidate.
        QVERIFY(QDir().mkpath(root.path() + QStringLiteral("/usr/local/bin")));

        // The path under the root as it is, not where a link leads.
        const Installation installation(root.path());
        const auto found = expected.isEmpty() ? std::nullopt : std::optional(root.path() + expected);
        QCOMPARE(installation.prefix(), found);
        QCOMPARE(installation.brewPath(), found ? std::optional(*found + QStringLiteral("/bin/brew")) : std::nullopt);

        // Looked up afresh: Homebrew may go away while the application runs.
        QVERIFY(QDir(root.path() + QStringLiteral("/opt")).removeRecursively());
        QVERIFY(QDir(root.path() + QStringLiteral("/usr")).removeRecursively());
        QCOMPARE(installation.prefix(), std::nullopt);
    }

    void versionFromTags_data()
    {
        QTest::addColumn<QString>("tagsPath"); // under the prefix
        QTest::addColumn<QStringList>("tags"); // empty: the folder exists but is empty
        QTest::addColumn<QString>("expected");
        // Plain character order, not version order.
        QTest::newRow("4.9.0 beats 4.10.0") << homebrewTags << QStringList{"4.10.0", "4.9.0"} << "4.9.0";
        QTest::newRow("empty folder") << homebrewTags << QStringList{} << QString();
        QTest::newRow("commands tap") << commandsTags << QStringList{"1.2.0", "1.10.0"} << "1.2.0";
    }

    void versionFromTags()
    {
        QFETCH(QString, tagsPath);
        QFETCH(QStringList, tags);
        QFETCH(QString, expected);
        QTemporaryDir root;
        QVERIFY(makeTags(root.path() + opt + tagsPath, tags));
        const Installation installation(root.path());
        const bool commands = tagsPath == commandsTags;
        const auto version = commands ? installation.homebrewCommandsVersion() : installation.homebrewVersion();
        QCOMPARE(version, expected.isEmpty() ? std::nullopt : std::optional(expected));
        // Each version reads its own folder only.
        QCOMPARE(commands ? installation.homebrewVersion() : installation.homebrewCommandsVersion(), std::nullopt);
    }

    void machineName_data()
    {
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<std::optional<QString>>("expected");
        QTest::newRow("padded with NULs") << QByteArray("x86_64\0\0\0\0", 10) << std::optional<QString>("x86_64");
        QTest::newRow("NULs on both ends") << QByteArray("\0\0arm64\0", 8) << std::optional<QString>("arm64");
        QTest::newRow("not UTF-8") << QByteArray("x86\xff_64\0", 8) << std::optional<QString>();
        QTest::newRow("overlong NUL") << QByteArray("\xc0\x80x86_64", 8) << std::optional<QString>();
    }

    void machineName()
    {
        QFETCH(QByteArray, field);
        QFETCH(std::optional<QString>, expected);
        QCOMPARE(Installation::machineName(field), expected);
    }

    void locationArguments_data()
    {
        QTest::addColumn<std::optional<QString>>("apps");
        QTest::addColumn<std::optional<QString>>("fonts");
        QTest::addColumn<QStringList>("expected");
        const QString apps = QStringLiteral("/Users/me/My Apps");
        const QString fonts = QStringLiteral("/Users/me/Fonts=custom");
        QTest::newRow("neither") << std::optional<QString>() << std::optional<QString>() << QStringList{};
        QTest::newRow("only fonts") << std::optional<QString>() << std::optional(fonts)
                                    << QStringList{"--fontdir", fonts};
        QTest::newRow("apps come first") << std::optional(apps) << std::optional(fonts)
                                         << QStringList{"--appdir", apps, "--fontdir", fonts};
    }

    void locationArguments()
    {
        QFETCH(std::optional<QString>, apps);
        QFETCH(std::optional<QString>, fonts);
        QFETCH(QStringList, expected);
        QCOMPARE(Homebrew::arguments(Homebrew::Locations{apps, fonts}), expected);
    }

    void diagnosticInformation()
    {
        QTemporaryDir root;
        QTemporaryDir resources;
        const Installation installation(root.path());
        QProcess uname;
        uname.start(QStringLiteral("/bin/uname"), {QStringLiteral("-m")});
        QVERIFY(uname.waitForFinished());

        // Without Homebrew and without version keys every key is still there, empty.
        QMap<QString, QString> expected{{"Version", ""},
                                        {"Build", ""},
                                        {"OS Version", QSysInfo::prettyProductName()},
                                        {"System Architecture", QString::fromUtf8(uname.readAll().trimmed())},
                                        {"Homebrew Version", ""},
                                        {"Homebrew Commands Version", ""}};
        QCOMPARE(Homebrew::DiagnosticInformation::collect(Bundle(resources.path()), installation), expected);

        const QVariantMap info{{"CFBundleShortVersionString", "2.3.4"}, {"CFBundleVersion", "567"}};
        QVERIFY(writeFile(resources.filePath("Info.plist"), PropertyList::serialize(info)));
        QVERIFY(makeTags(root.path() + usrLocal + homebrewTags, {"4.2.21", "4.3.0"}));
        QVERIFY(makeTags(root.path() + usrLocal + commandsTags, {"1.0.4"}));
        expected.insert({{"Version", "2.3.4"},
                         {"Build", "567"},
                         {"Homebrew Version", "4.3.0"},
                         {"Homebrew Commands Version", "1.0.4"}});
        QCOMPARE(Homebrew::DiagnosticInformation::collect(Bundle(resources.path()), installation), expected);
    }
};

QTEST_GUILESS_MAIN(TestHomebrewInstallation)
#include "TestHomebrewInstallation.moc"
