// Installs Homebrew from the installer package of its latest GitHub release, downloaded with progress into the caches
// folder and handed to the desktop; then relaunches the application so that it finds Homebrew afresh.
#pragma once

#include "foundation/Result.h"

#include <QObject>
#include <QPointer>
#include <QSaveFile>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <memory>

class Bundle;
class PackageOpener;
class QNetworkAccessManager;
class QNetworkReply;

namespace Homebrew {

class Installer : public QObject {
    Q_OBJECT
    Q_PROPERTY(double downloadPercentage READ downloadPercentage NOTIFY downloadPercentageChanged)
    Q_PROPERTY(bool installing READ isInstalling NOTIFY installingChanged)
    Q_PROPERTY(bool installed READ isInstalled NOTIFY installedChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)

public:
    // A program and its arguments, as handed to QProcess.
    struct Command {
        QString program;
        QStringList arguments;
        bool operator==(const Command&) const = default;
    };

    // How the desktop starts an application again.
    enum class Desktop {
        macOS,       // application bundles are opened by "open"
        freedesktop, // the executable is started again with its arguments
    };
    Q_ENUM(Desktop)

    // Everything passed in must outlive this object. The bundle gives TW_GITHUB_API_URL (the releases API) and
    // TW_GITHUB_URL (the release downloads); requests go out on network's thread, which must be this object's.
    Installer(const Bundle& bundle, QNetworkAccessManager& network, PackageOpener& opener,
              QString installersFolder = defaultInstallersFolder(), QObject* parent = nullptr);
    ~Installer() override;

    // "Installers" in the application's caches folder.
    static QString defaultInstallersFolder();
    QString installersFolder() const { return m_installersFolder; }

    // The API base + "/repos/Homebrew/brew/releases/latest"; empty when the bundle has no usable base.
    QUrl latestReleaseUrl() const;
    // The download base + "/Homebrew/brew/releases/download/" + tag + "/" + packageFileName(tag); empty when the
    // bundle has no usable base.
    QUrl downloadUrl(const QString& tag) const;
    // "Homebrew-" + tag + ".pkg".
    static QString packageFileName(const QString& tag);
    // A tag names a file and a path segment: it must not be empty, ".", ".." or hold a "/".
    static bool isUsableTag(const QString& tag);

    // GUI thread. The guided installation: latest release, download, open. False, and nothing starts, while one is
    // under way. finished() tells the end; on failure errorMessage() says "Impossible to install Homebrew. Try
    // again later." and the log has the reason.
    bool install();

    // 0 to 100, the share of the package downloaded so far against the response's announced length.
    double downloadPercentage() const { return m_downloadPercentage; }
    // True while the package is fetched and opened.
    bool isInstalling() const { return m_installing; }
    // True once the package was handed to the desktop.
    bool isInstalled() const { return m_installed; }
    // Empty unless the last installation failed.
    QString errorMessage() const { return m_errorMessage; }

    // The command that starts the application again a moment after this process has ended: on macOS
    // "/bin/sh" "-c" "sleep 0.2; open \"<bundle>\"" for an executable inside an application bundle; otherwise (and
    // for a macOS executable outside a bundle) "/bin/sh" "-c" "sleep 0.2; exec '<executable>' '<argument>'...".
    static Command relaunchCommand(Desktop desktop, const QString& executablePath, const QStringList& arguments);
    // The same for the running application on this desktop.
    static Command relaunchCommand();

    // Starts command detached from this process; a launch failure is the error.
    static Result<void> launch(const Command& command);
    // Launches relaunchCommand(); on success the caller ends the application so that the new one takes over.
    static Result<void> relaunch();

Q_SIGNALS:
    void downloadPercentageChanged(double percentage);
    void installingChanged(bool installing);
    void installedChanged(bool installed);
    void errorMessageChanged(const QString& message);
    // The guided installation ended.
    void finished(bool succeeded);

private:
    void requestLatestRelease();
    void download(const QString& tag);
    void openPackage(const QString& path);
    void fail(const Error& error);
    void succeed();
    void setDownloadPercentage(double percentage);
    void setInstalling(bool installing);
    void setInstalled(bool installed);
    void setErrorMessage(const QString& message);
    QUrl configuredBase(const QString& key) const;
    void dropReply();

    const Bundle& m_bundle;
    QNetworkAccessManager& m_network;
    PackageOpener& m_opener;
    QString m_installersFolder;
    QPointer<QNetworkReply> m_reply;
    std::unique_ptr<QSaveFile> m_package;
    qint64 m_received = 0;
    double m_downloadPercentage = 0.0;
    bool m_installing = false;
    bool m_installed = false;
    QString m_errorMessage;
};

} // namespace Homebrew
