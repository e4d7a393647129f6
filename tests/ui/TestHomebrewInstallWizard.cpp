#include "LogCapture.h"
#include "PiecewiseDownloadServer.h"
#include "foundation/Bundle.h"
#include "operations/HomebrewInstaller.h"
#include "operations/SystemPackageOpener.h"
#include "ui/HomebrewInstallWizardViewController.h"

#include <QFile>
#include <QHttpServer>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int timeout = 60000;

const QString failureMessage = u"Impossible to install Homebrew. Try again later."_s;
const QByteArray release = R"({"tag_name": "4.4.0", "name": "4.4.0"})";

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A shell script that writes its arguments, one a line, to <folder>/<name>.txt and exits with status: a real program
// for the sheet to open packages with or to relaunch.
QString recordingScript(const QTemporaryDir& folder, const QString& name, int status)
{
    const QString path = folder.filePath(name + u".sh"_s);
    const QByteArray record = folder.filePath(name + u".txt"_s).toUtf8();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"" + record + ".part\"\nmv \"" + record + ".part\" \"" +
                   record + "\"\nexit " + QByteArray::number(status) + "\n") < 0 ||
        !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)) {
        return {};
    }
    return path;
}

// What a person sees of the sheet at one moment.
struct Seen {
    bool progressShown;
    bool errorShown;
    bool cautionShown;
    QString error;
    bool guidedEnabled;
    bool relaunchEnabled;
    bool relaunchIsDefault;
};

Seen look(const HomebrewInstallWizardViewController& sheet)
{
    return {sheet.downloadProgress()->isVisibleTo(&sheet), sheet.errorLabel()->isVisibleTo(&sheet),
            sheet.cautionIcon()->isVisibleTo(&sheet),      sheet.errorLabel()->text(),
            sheet.guidedInstallationButton()->isEnabled(), sheet.checkAndRelaunchButton()->isEnabled(),
            sheet.checkAndRelaunchButton()->isDefault()};
}

} // namespace

class TestHomebrewInstallWizard : public QObject {
    Q_OBJECT

    QUrl serverUrl(const QString& path) const { return QUrl(u"http://127.0.0.1:%1%2"_s.arg(m_port).arg(path)); }

    QHttpServer m_server;
    quint16 m_port = 0;
    int m_releaseStatus = 200;
    bool m_packageFound = true;
    QByteArray m_package;

private Q_SLOTS:
    void initTestCase()
    {
        // Large enough that the download arrives in more than one piece.
        m_package = QByteArray(4 * 1024 * 1024, 'p');
        m_server.route(u"/api/repos/Homebrew/brew/releases/latest"_s, [this] {
            return QHttpServerResponse("application/json", release, QHttpServerResponse::StatusCode(m_releaseStatus));
        });
        m_server.route(u"/dl/Homebrew/brew/releases/download/<arg>/<arg>"_s, [this](const QString&, const QString&) {
            if (!m_packageFound) {
                return QHttpServerResponse(QHttpServerResponse::StatusCode::NotFound);
            }
            return QHttpServerResponse("application/octet-stream", m_package);
        });
        m_port = m_server.listen(QHostAddress::LocalHost);
        QVERIFY(m_port != 0);
    }

    void guidedInstallation_data()
    {
        QTest::addColumn<int>("releaseStatus");
        QTest::addColumn<bool>("packageFound");
        QTest::addColumn<int>("openerStatus");
        QTest::addColumn<bool>("succeeds");

        QTest::newRow("installed") << 200 << true << 0 << true;
        QTest::newRow("package missing") << 200 << false << 0 << false;
        QTest::newRow("desktop refuses the package") << 200 << true << 3 << false;
    }

    void guidedInstallation()
    {
        QFETCH(int, releaseStatus);
        QFETCH(bool, packageFound);
        QFETCH(int, openerStatus);
        QFETCH(bool, succeeds);

        m_releaseStatus = releaseStatus;
        m_packageFound = packageFound;
        QTemporaryDir folder;
        const QString openerScript = recordingScript(folder, u"opener"_s, openerStatus);
        QVERIFY(!openerScript.isEmpty());
        Bundle bundle(folder.path());
        bundle.overlayInfo({{"TW_GITHUB_API_URL", serverUrl(u"/api"_s).toString()},
                            {"TW_GITHUB_URL", serverUrl(u"/dl"_s).toString()}});
        QNetworkAccessManager network;
        SystemPackageOpener opener(openerScript);
        Homebrew::Installer installer(bundle, network, opener, folder.filePath(u"Installers"_s));
        HomebrewInstallWizardViewController sheet(installer);
        sheet.show();
        QVERIFY(QTest::qWaitForWindowExposed(&sheet));
        QList<int> values;
        QList<bool> shownWhileChanging;
        connect(sheet.downloadProgress(), &QProgressBar::valueChanged, this, [&](int value) {
            values.append(value);
            shownWhileChanging.append(sheet.downloadProgress()->isVisibleTo(&sheet));
        });
        QSignalSpy finished(&installer, &Homebrew::Installer::finished);
        LogCapture log;

        // Idle: nothing to report, both ways forward open, the installation is the next step.
        const Seen idle = look(sheet);
        QVERIFY(!idle.progressShown && !idle.errorShown && !idle.cautionShown);
        QVERIFY(idle.guidedEnabled && idle.relaunchEnabled && !idle.relaunchIsDefault);

        QTest::mouseClick(sheet.guidedInstallationButton(), Qt::LeftButton);
        QVERIFY(sheet.isInstalling());
        const Seen installing = look(sheet);
        QVERIFY(installing.progressShown);
        QVERIFY(!installing.guidedEnabled && !installing.relaunchEnabled);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, timeout);

        const Seen after = look(sheet);
        QCOMPARE(sheet.isInstalled(), succeeds);
        QVERIFY(!sheet.isInstalling());
        QVERIFY(!after.progressShown);
        QCOMPARE(after.errorShown, !succeeds);
        QCOMPARE(after.cautionShown, !succeeds);
        QCOMPARE(after.error, succeeds ? QString() : failureMessage);
        QCOMPARE(sheet.errorMessage(), succeeds ? QString() : failureMessage);
        QVERIFY(after.guidedEnabled && after.relaunchEnabled);
        QCOMPARE(after.relaunchIsDefault, succeeds);
        QVERIFY(!sheet.cautionIcon()->pixmap().isNull());
        QCOMPARE(log.texts().size(), 1);
        QVERIFY(log.texts().first().startsWith(succeeds ? u"Homebrew installed"_s : u"Failed to install Homebrew: "_s));

        // The bar followed the download forward while it was shown.
        QVERIFY(std::ranges::is_sorted(values));
        QVERIFY(!shownWhileChanging.contains(false));
        const bool downloaded = releaseStatus == 200 && packageFound;
        QCOMPARE(!values.isEmpty() && values.constLast() == 100, downloaded);
        // The package that reached the desktop is the whole download.
        const QString package = folder.filePath(u"Installers/Homebrew-4.4.0.pkg"_s);
        QCOMPARE(readFile(folder.filePath(u"opener.txt"_s)), downloaded ? package.toUtf8() + '\n' : QByteArray());
        if (downloaded) {
            QCOMPARE(readFile(package).size(), m_package.size());
        }

        if (!succeeds) {
            // Trying again clears the message at once.
            m_releaseStatus = 200;
            m_packageFound = true;
            QTest::mouseClick(sheet.guidedInstallationButton(), Qt::LeftButton);
            QVERIFY(sheet.isInstalling());
            QVERIFY(!sheet.errorLabel()->isVisibleTo(&sheet));
            QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, timeout);
        }
    }

    // The download arrives in pieces that the test releases one by one, so the sheet is seen part of the way.
    void progressPartWay()
    {
        PiecewiseDownloadServer downloads(1000, 400);
        QVERIFY(downloads.listen());

        m_releaseStatus = 200;
        QTemporaryDir folder;
        const QString openerScript = recordingScript(folder, u"opener"_s, 0);
        QVERIFY(!openerScript.isEmpty());
        Bundle bundle(folder.path());
        bundle.overlayInfo({{"TW_GITHUB_API_URL", serverUrl(u"/api"_s).toString()},
                            {"TW_GITHUB_URL", downloads.baseUrl().toString()}});
        QNetworkAccessManager network;
        SystemPackageOpener opener(openerScript);
        Homebrew::Installer installer(bundle, network, opener, folder.filePath(u"Installers"_s));
        HomebrewInstallWizardViewController sheet(installer);
        sheet.show();
        QVERIFY(QTest::qWaitForWindowExposed(&sheet));
        QSignalSpy finished(&installer, &Homebrew::Installer::finished);

        sheet.guidedInstallationButton()->click();
        QTRY_COMPARE_WITH_TIMEOUT(sheet.downloadProgress()->value(), 40, timeout);
        QVERIFY(sheet.downloadProgress()->isVisibleTo(&sheet));
        QVERIFY(!sheet.guidedInstallationButton()->isEnabled());
        QVERIFY(!sheet.checkAndRelaunchButton()->isEnabled());
        downloads.send(QByteArray(600, 'b'), true);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, timeout);
        QVERIFY(finished.first().at(0).toBool());
        QCOMPARE(sheet.downloadProgress()->value(), 100);
        QVERIFY(!sheet.downloadProgress()->isVisibleTo(&sheet));
        QVERIFY(sheet.isInstalled());
    }

    void checkAndRelaunch_data()
    {
        QTest::addColumn<bool>("shellStarts");
        QTest::addColumn<bool>("quits");
        QTest::addColumn<QString>("expectedError");

        QTest::newRow("before Homebrew is installed, restarts") << true << true << QString();
        QTest::newRow("shell cannot start")
            << false << false << u"Impossible to relaunch Corvel X. Open it again yourself."_s;
    }

    void checkAndRelaunch()
    {
        QFETCH(bool, shellStarts);
        QFETCH(bool, quits);
        QFETCH(QString, expectedError);

        QTemporaryDir folder;
        const QString program = shellStarts ? recordingScript(folder, u"relaunched"_s, 0) : u"/nonexistent/sh"_s;
        QVERIFY(!program.isEmpty());
        Bundle bundle(folder.path());
        QNetworkAccessManager network;
        SystemPackageOpener opener(u"/nonexistent/opener"_s);
        Homebrew::Installer installer(bundle, network, opener, folder.filePath(u"Installers"_s));
        HomebrewInstallWizardViewController sheet(installer);
        int quitCalls = 0;
        sheet.setRelaunch([&] { return Homebrew::Installer::launch({program, {u"--again"_s}}); }, [&] { ++quitCalls; });
        sheet.show();
        QVERIFY(QTest::qWaitForWindowExposed(&sheet));
        LogCapture log;

        QVERIFY(sheet.checkAndRelaunchButton()->isEnabled());
        sheet.checkAndRelaunchButton()->click();
        QCOMPARE(quitCalls, quits ? 1 : 0);
        QCOMPARE(sheet.errorLabel()->text(), expectedError);
        QCOMPARE(sheet.errorLabel()->isVisibleTo(&sheet), !expectedError.isEmpty());
        QCOMPARE(log.texts().size(), quits ? 0 : 1);
        if (shellStarts) {
            // The new process really ran, with what it was given.
            QTRY_COMPARE_WITH_TIMEOUT(readFile(folder.filePath(u"relaunched.txt"_s)), QByteArray("--again\n"), timeout);
        }
    }
};

QTEST_MAIN(TestHomebrewInstallWizard)
#include "TestHomebrewInstallWizard.moc"
