#include "LogCapture.h"
#include "PiecewiseDownloadServer.h"
#include "foundation/Bundle.h"
#include "homebrew/HomebrewCommands.h"
#include "operations/HomebrewInstaller.h"
#include "operations/PackageOpener.h"
#include "operations/SystemPackageOpener.h"

#include <QDir>
#include <QFile>
#include <QHttpServer>
#include <QMutex>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int finishTimeout = 60000;

const QString failureMessage = u"Impossible to install Homebrew. Try again later."_s;
const QString releasePath = u"/api/repos/Homebrew/brew/releases/latest"_s;
// GitHub's answers about the latest release. The tests' own class cannot hold raw strings: moc would not read it.
const QByteArray fullRelease = R"({"url": "https://api.github.com/repos/Homebrew/brew/releases/1", "tag_name": "4.4.0",
                                   "name": "4.4.0", "assets": [{"name": "Homebrew-4.4.0.pkg", "size": 1}]})";
const QByteArray taggedRelease = R"({"tag_name": "4.4.0", "name": "4.4.0", "assets": []})";
const QByteArray untaggedRelease = R"({"name": "4.4.0"})";
const QByteArray escapingRelease = R"({"tag_name": "../../4.4.0"})";

// Stands in for the desktop: remembers what it was asked to open and answers as told. Called on a worker thread.
class ScriptedPackageOpener : public PackageOpener {
public:
    explicit ScriptedPackageOpener(bool accepts = true)
        : m_accepts(accepts)
    {}

    Result<void> open(const QString& path) override
    {
        QMutexLocker lock(&m_mutex);
        m_opened.append(path);
        if (!m_accepts) {
            return Error(u"Desktop"_s, 1, u"The desktop refused the package"_s);
        }
        return {};
    }

    QStringList opened() const
    {
        QMutexLocker lock(&m_mutex);
        return m_opened;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_opened;
    bool m_accepts;
};

QByteArray packageBytes()
{
    QByteArray bytes(300000, Qt::Uninitialized);
    for (int i = 0; i < bytes.size(); ++i) {
        bytes[i] = char(i % 251);
    }
    return bytes;
}

bool writeFile(const QString& path, const QByteArray& content, QFileDevice::Permissions permissions = {})
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        return false;
    }
    return permissions == QFileDevice::Permissions() || file.setPermissions(permissions);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A shell script that writes each of its arguments on a line of <folder>/arguments.txt and exits with status.
QString recordingScript(const QTemporaryDir& folder, int status)
{
    const QString path = folder.filePath(u"record.sh"_s);
    const QByteArray record = folder.filePath(u"arguments.txt"_s).toUtf8();
    const QByteArray script = "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"" + record + ".part\"\nmv \"" + record +
                              ".part\" \"" + record + "\"\nexit " + QByteArray::number(status) + "\n";
    return writeFile(path, script, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)
               ? path
               : QString();
}

} // namespace

class TestHomebrewInstaller : public QObject {
    Q_OBJECT

    QUrl serverUrl(const QString& path) const { return QUrl(u"http://127.0.0.1:%1%2"_s.arg(m_port).arg(path)); }
    // The application's bundle over folder, with GitHub's API on the test server and its downloads at downloads.
    void pointAtServer(Bundle& bundle, const QString& downloads) const
    {
        bundle.overlayInfo({{"TW_GITHUB_API_URL", serverUrl(u"/api"_s).toString()}, {"TW_GITHUB_URL", downloads}});
    }

    QHttpServer m_server;
    quint16 m_port = 0;
    QStringList m_paths;
    QByteArray m_release;
    int m_releaseStatus = 200;
    QString m_download; // "package", "missing" or "redirect"
    QByteArray m_package = packageBytes();

private Q_SLOTS:
    void initTestCase()
    {
        m_server.route(releasePath, [this](const QHttpServerRequest& request) {
            m_paths.append(request.url().path());
            return QHttpServerResponse("application/json", m_release, QHttpServerResponse::StatusCode(m_releaseStatus));
        });
        m_server.route(u"/dl/Homebrew/brew/releases/download/<arg>/<arg>"_s,
                       [this](const QString&, const QString& file, const QHttpServerRequest& request) {
                           m_paths.append(request.url().path());
                           if (m_download == u"missing") {
                               return QHttpServerResponse(QHttpServerResponse::StatusCode::NotFound);
                           }
                           if (m_download == u"redirect") {
                               QHttpServerResponse moved(QHttpServerResponse::StatusCode::Found);
                               moved.setHeader("Location", serverUrl(u"/objects/"_s + file).toEncoded());
                               return moved;
                           }
                           return QHttpServerResponse("application/octet-stream", m_package);
                       });
        m_server.route(u"/objects/<arg>"_s, [this](const QString&, const QHttpServerRequest& request) {
            m_paths.append(request.url().path());
            return QHttpServerResponse("application/octet-stream", m_package);
        });
        m_port = m_server.listen(QHostAddress::LocalHost);
        QVERIFY(m_port != 0);
    }

    void init()
    {
        m_paths.clear();
        m_release = fullRelease;
        m_releaseStatus = 200;
        m_download = u"package"_s;
    }

    void install_data()
    {
        QTest::addColumn<QByteArray>("release");
        QTest::addColumn<int>("releaseStatus");
        QTest::addColumn<QString>("download");
        QTest::addColumn<QString>("setup"); // "stale package", "no folder", "desktop refuses" or empty
        QTest::addColumn<QStringList>("expectedPaths");
        QTest::addColumn<QString>("expectedReason"); // part of the logged error; empty on success

        const QString packagePath = u"/dl/Homebrew/brew/releases/download/4.4.0/Homebrew-4.4.0.pkg"_s;
        const QStringList both{releasePath, packagePath};
        const QStringList releaseOnly{releasePath};
        const auto row = [](const char* name, const QByteArray& release, int status, const QString& download,
                            const QString& setup, const QStringList& paths, const QString& reason) {
            QTest::newRow(name) << release << status << download << setup << paths << reason;
        };

        row("tag 4.4.0", taggedRelease, 200, "package", "", both, {});
        row("older package replaced", taggedRelease, 200, "package", "stale package", both, {});
        row("download redirected", taggedRelease, 200, "redirect", "",
            {releasePath, packagePath, u"/objects/Homebrew-4.4.0.pkg"_s}, {});
        row("no answer from GitHub", taggedRelease, 500, "package", "", releaseOnly, "Internal Server Error");
        row("answer without a tag", untaggedRelease, 200, "package", "", releaseOnly, "No value associated with key");
        row("answer not JSON", "<html>rate limited</html>", 200, "package", "", releaseOnly, "not valid JSON");
        row("tag that escapes the folder", escapingRelease, 200, "package", "", releaseOnly, "cannot name a package");
        row("package missing", taggedRelease, 200, "missing", "", both, "Not Found");
        row("folder cannot be made", taggedRelease, 200, "package", "no folder", releaseOnly,
            "Cannot create the folder");
        row("desktop refuses the package", taggedRelease, 200, "package", "desktop refuses", both,
            "The desktop refused the package");
    }

    void install()
    {
        QFETCH(QByteArray, release);
        QFETCH(int, releaseStatus);
        QFETCH(QString, download);
        QFETCH(QString, setup);
        QFETCH(QStringList, expectedPaths);
        QFETCH(QString, expectedReason);

        const bool opens = setup != "desktop refuses";
        const bool folderUsable = setup != "no folder";
        const bool stalePackage = setup == "stale package";
        m_release = release;
        m_releaseStatus = releaseStatus;
        m_download = download;
        QTemporaryDir folder;
        Bundle bundle(folder.path());
        pointAtServer(bundle, serverUrl(u"/dl/"_s).toString());
        const QString installers = folder.filePath(u"caches/Installers"_s);
        if (!folderUsable) {
            QVERIFY(writeFile(folder.filePath(u"caches"_s), "a file where a folder should be"));
        }
        const QString package = installers + u"/Homebrew-4.4.0.pkg"_s;
        if (stalePackage) {
            QVERIFY(QDir().mkpath(installers));
            QVERIFY(writeFile(package, "an older package"));
        }
        QNetworkAccessManager network;
        ScriptedPackageOpener opener(opens);
        Homebrew::Installer installer(bundle, network, opener, installers);
        QSignalSpy installing(&installer, &Homebrew::Installer::installingChanged);
        QSignalSpy finished(&installer, &Homebrew::Installer::finished);
        LogCapture log;

        QVERIFY(installer.install());
        QVERIFY(installer.isInstalling());
        QVERIFY(!installer.install());
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, finishTimeout);

        const bool succeeded = expectedReason.isEmpty();
        QCOMPARE(finished.first().at(0).toBool(), succeeded);
        QCOMPARE(m_paths, expectedPaths);
        QVERIFY(!installer.isInstalling());
        QCOMPARE(installing.size(), 2);
        QCOMPARE(installer.isInstalled(), succeeded);
        QCOMPARE(installer.errorMessage(), succeeded ? QString() : failureMessage);
        QCOMPARE(log.lines().size(), 1);
        if (succeeded) {
            QCOMPARE(log.texts(), QStringList{u"Homebrew installed"_s});
            QCOMPARE(installer.downloadPercentage(), 100.0);
        } else {
            QCOMPARE(log.lines().first().type, QtWarningMsg);
            const QString line = log.texts().first();
            QVERIFY2(line.startsWith(u"Failed to install Homebrew: "_s) && line.contains(expectedReason),
                     qPrintable(line));
        }

        // The package is opened from the caches folder once it is complete; a broken download leaves nothing behind.
        const bool downloaded = succeeded || !opens;
        QCOMPARE(opener.opened(), downloaded ? QStringList{package} : QStringList());
        if (downloaded) {
            QCOMPARE(readFile(package), m_package);
        } else if (folderUsable) {
            QCOMPARE(QDir(installers).entryList(QDir::Files),
                     stalePackage ? QStringList{"Homebrew-4.4.0.pkg"} : QStringList());
        }
    }

    void downloadProgress()
    {
        // The package comes in three parts from a server that waits for the percentage of each before sending more.
        PiecewiseDownloadServer downloads(1000, 250);
        QVERIFY(downloads.listen());

        QTemporaryDir folder;
        Bundle bundle(folder.path());
        pointAtServer(bundle, downloads.baseUrl().toString());
        QNetworkAccessManager network;
        ScriptedPackageOpener opener;
        Homebrew::Installer installer(bundle, network, opener, folder.filePath(u"Installers"_s));
        QSignalSpy percentages(&installer, &Homebrew::Installer::downloadPercentageChanged);
        QSignalSpy finished(&installer, &Homebrew::Installer::finished);

        QVERIFY(installer.install());
        QTRY_COMPARE_WITH_TIMEOUT(installer.downloadPercentage(), 25.0, finishTimeout);
        QVERIFY(downloads.request().startsWith(
            "GET /Homebrew/brew/releases/download/4.4.0/Homebrew-4.4.0.pkg HTTP/1.1\r\n"));
        downloads.send(QByteArray(500, 'b'));
        QTRY_COMPARE_WITH_TIMEOUT(installer.downloadPercentage(), 75.0, finishTimeout);
        QVERIFY(installer.isInstalling());
        QVERIFY(finished.isEmpty());
        downloads.send(QByteArray(250, 'c'), true);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, finishTimeout);
        QVERIFY(finished.first().at(0).toBool());

        QList<double> seen;
        for (const QList<QVariant>& emission : std::as_const(percentages)) {
            seen.append(emission.at(0).toDouble());
        }
        QCOMPARE(seen, (QList<double>{25.0, 75.0, 100.0}));
        QCOMPARE(readFile(folder.filePath(u"Installers/Homebrew-4.4.0.pkg"_s)),
                 QByteArray(250, 'a') + QByteArray(500, 'b') + QByteArray(250, 'c'));
    }

    void retryAfterFailure()
    {
        QTemporaryDir folder;
        Bundle bundle(folder.path());
        pointAtServer(bundle, serverUrl(u"/dl"_s).toString());
        QNetworkAccessManager network;
        ScriptedPackageOpener opener;
        Homebrew::Installer installer(bundle, network, opener, folder.filePath(u"Installers"_s));
        QSignalSpy finished(&installer, &Homebrew::Installer::finished);
        QSignalSpy errors(&installer, &Homebrew::Installer::errorMessageChanged);

        m_releaseStatus = 503;
        QVERIFY(installer.install());
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, finishTimeout);
        QCOMPARE(installer.errorMessage(), failureMessage);

        m_releaseStatus = 200;
        QVERIFY(installer.install());
        // The message goes as soon as the person tries again, and does not come back on success.
        QCOMPARE(errors.size(), 2);
        QCOMPARE(installer.errorMessage(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, finishTimeout);
        QVERIFY(finished.last().at(0).toBool());
        QVERIFY(installer.isInstalled());
        QCOMPARE(errors.size(), 2);
    }

    void relaunchCommand_data()
    {
        using Desktop = Homebrew::Installer::Desktop;
        QTest::addColumn<Desktop>("desktop");
        QTest::addColumn<QString>("executable");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expectedScript"); // the program is always /bin/sh -c
        const auto row = [](const char* name, Desktop desktop, const QString& executable, const QStringList& arguments,
                            const QString& script) {
            QTest::newRow(name) << desktop << executable << arguments << script;
        };
        const QString inBundle = u"/Applications/Corvel X.app/Contents/MacOS/Corvel X"_s;

        row("macOS bundle", Desktop::macOS, inBundle, {"--root", "/tmp"},
            "sleep 0.2; open \"/Applications/Corvel X.app\"");
        row("macOS executable outside a bundle", Desktop::macOS, "/usr/local/bin/corvel-x", {},
            "sleep 0.2; exec '/usr/local/bin/corvel-x'");
        row("freedesktop", Desktop::freedesktop, "/opt/corvel x/bin/corvel-x", {"--config", "/tmp/it's.plist"},
            "sleep 0.2; exec '/opt/corvel x/bin/corvel-x' '--config' '/tmp/it'\\''s.plist'");
        row("freedesktop ignores bundles", Desktop::freedesktop, inBundle, {},
            "sleep 0.2; exec '/Applications/Corvel X.app/Contents/MacOS/Corvel X'");
    }

    void relaunchCommand()
    {
        QFETCH(Homebrew::Installer::Desktop, desktop);
        QFETCH(QString, executable);
        QFETCH(QStringList, arguments);
        QFETCH(QString, expectedScript);

        const auto command = Homebrew::Installer::relaunchCommand(desktop, executable, arguments);
        QCOMPARE(command.program, u"/bin/sh"_s);
        QCOMPARE(command.arguments, (QStringList{"-c", expectedScript}));
    }

    void launch()
    {
        // The shell hands every argument to the new process exactly, whatever it holds.
        QTemporaryDir folder;
        const QString script = recordingScript(folder, 0);
        QVERIFY(!script.isEmpty());
        const QStringList arguments{"--root", "/tmp/with space", "it's", "$HOME", "`id`", "a\"b", "back\\slash", ""};
        const auto command =
            Homebrew::Installer::relaunchCommand(Homebrew::Installer::Desktop::freedesktop, script, arguments);
        QVERIFY(Homebrew::Installer::launch(command));
        const QString recorded = folder.filePath(u"arguments.txt"_s);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(recorded), finishTimeout);
        QCOMPARE(QString::fromUtf8(readFile(recorded)), arguments.join(u'\n') + u'\n');

        // A shell that cannot start is an error of the launch, not a silent nothing.
        const Result<void> launched = Homebrew::Installer::launch({u"/nonexistent/sh"_s, {"-c", "true"}});
        QVERIFY(!launched);
        QCOMPARE(launched.error().domain(), Homebrew::Commands::launchErrorDomain());
        QVERIFY(!launched.error().description().isEmpty());
    }

    void systemOpener_data()
    {
        QTest::addColumn<QString>("program"); // "script" for a recording script, else the program itself
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("packageExists");
        QTest::addColumn<QString>("expectedDomain"); // empty on success

        QTest::newRow("accepted") << u"script"_s << 0 << true << QString();
        QTest::newRow("no handler") << u"script"_s << 3 << true << u"PackageOpener"_s;
        QTest::newRow("no opener on this desktop") << QString() << 0 << true << u"PackageOpener"_s;
        QTest::newRow("opener missing") << u"/nonexistent/xdg-open"_s << 0 << true
                                        << Homebrew::Commands::launchErrorDomain();
        QTest::newRow("package missing") << u"script"_s << 0 << false << u"PackageOpener"_s;
    }

    void systemOpener()
    {
        QFETCH(QString, program);
        QFETCH(int, status);
        QFETCH(bool, packageExists);
        QFETCH(QString, expectedDomain);

        QTemporaryDir folder;
        const bool scripted = program == u"script";
        if (scripted) {
            program = recordingScript(folder, status);
            QVERIFY(!program.isEmpty());
        }
        const QString package = folder.filePath(u"Homebrew 4.4.0.pkg"_s);
        if (packageExists) {
            QVERIFY(writeFile(package, "package"));
        }
        const Result<void> opened = SystemPackageOpener(program).open(package);
        QCOMPARE(opened ? QString() : opened.error().domain(), expectedDomain);
        // The opener gets the path as its one argument, and only for a file that exists.
        const QByteArray recorded = readFile(folder.filePath(u"arguments.txt"_s));
        QCOMPARE(recorded, scripted && packageExists ? package.toUtf8() + '\n' : QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestHomebrewInstaller)
#include "TestHomebrewInstaller.moc"
