#include "operations/HomebrewInstaller.h"

#include "foundation/Bundle.h"
#include "foundation/HttpClient.h"
#include "foundation/Logging.h"
#include "foundation/RailsJSONDecoder.h"
#include "foundation/Threading.h"
#include "homebrew/HomebrewCommands.h"
#include "operations/GithubRelease.h"
#include "operations/PackageOpener.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QStandardPaths>
#include <algorithm>

namespace Homebrew {

namespace {

const QString errorDomain = QStringLiteral("HomebrewInstaller");

enum ErrorCode {
    NotConfigured = 1,
    UnusableTag = 2,
    FileError = 3,
};

// A stalled transfer fails instead of leaving the sheet waiting for ever.
constexpr int transferTimeoutMs = 60000;

// path appended to base's own path, without doubling the slash between them.
QUrl appendPath(QUrl base, const QString& path)
{
    QString basePath = base.path();
    while (basePath.endsWith(QLatin1Char('/'))) {
        basePath.chop(1);
    }
    base.setPath(basePath + path);
    return base;
}

QNetworkRequest request(const QUrl& url)
{
    QNetworkRequest request(url);
    request.setTransferTimeout(transferTimeoutMs);
    return request;
}

Error networkError(QNetworkReply* reply)
{
    return Error(HttpClient::errorDomain, int(reply->error()), reply->errorString());
}

// Single quotes keep every character as it is; a quote itself closes, escapes and reopens.
QString shellQuoted(const QString& text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

// The application bundle ("Corvel X.app") that holds executablePath in its Contents/MacOS, if any.
std::optional<QString> applicationBundle(const QString& executablePath)
{
    const QDir macOS = QFileInfo(executablePath).absoluteDir();
    const QString contents = QFileInfo(macOS.absolutePath()).absolutePath();
    const QString bundle = QFileInfo(contents).absolutePath();
    if (QFileInfo(macOS.absolutePath()).fileName() != u"MacOS" || QFileInfo(contents).fileName() != u"Contents" ||
        !bundle.endsWith(QStringLiteral(".app"))) {
        return std::nullopt;
    }
    return bundle;
}

} // namespace

Installer::Installer(const Bundle& bundle, QNetworkAccessManager& network, PackageOpener& opener,
                     QString installersFolder, QObject* parent)
    : QObject(parent)
    , m_bundle(bundle)
    , m_network(network)
    , m_opener(opener)
    , m_installersFolder(std::move(installersFolder))
{}

Installer::~Installer()
{
    dropReply();
}

QString Installer::defaultInstallersFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + QStringLiteral("/Installers");
}

QUrl Installer::latestReleaseUrl() const
{
    const QUrl base = configuredBase(QStringLiteral("TW_GITHUB_API_URL"));
    return base.isEmpty() ? QUrl() : appendPath(base, QStringLiteral("/repos/Homebrew/brew/releases/latest"));
}

QUrl Installer::downloadUrl(const QString& tag) const
{
    const QUrl base = configuredBase(QStringLiteral("TW_GITHUB_URL"));
    return base.isEmpty() ? QUrl()
                          : appendPath(base, QStringLiteral("/Homebrew/brew/releases/download/") + tag +
                                                 QLatin1Char('/') + packageFileName(tag));
}

QString Installer::packageFileName(const QString& tag)
{
    return QStringLiteral("Homebrew-") + tag + QStringLiteral(".pkg");
}

bool Installer::isUsableTag(const QString& tag)
{
    return !tag.isEmpty() && tag != u"." && tag != u".." && !tag.contains(QLatin1Char('/')) &&
           !tag.contains(QLatin1Char('\\'));
}

bool Installer::install()
{
    if (m_installing) {
        return false;
    }
    setErrorMessage(QString());
    setDownloadPercentage(0.0);
    setInstalling(true);
    requestLatestRelease();
    return true;
}

void Installer::requestLatestRelease()
{
    const QUrl url = latestReleaseUrl();
    if (url.isEmpty()) {
        fail(Error(errorDomain, NotConfigured, tr("GitHub's API address is not configured")));
        return;
    }
    m_reply = m_network.get(request(url));
    connect(m_reply, &QNetworkReply::finished, this, [this] {
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError) {
            fail(networkError(reply));
            return;
        }
        const Result<GithubRelease> release = RailsJSONDecoder().decode<GithubRelease>(reply->readAll());
        if (!release) {
            fail(release.error());
            return;
        }
        const QString& tag = release.value().tagName;
        if (!isUsableTag(tag)) {
            fail(Error(errorDomain, UnusableTag, tr("The release tag \"%1\" cannot name a package").arg(tag)));
            return;
        }
        download(tag);
    });
}

void Installer::download(const QString& tag)
{
    const QUrl url = downloadUrl(tag);
    if (url.isEmpty()) {
        fail(Error(errorDomain, NotConfigured, tr("GitHub's download address is not configured")));
        return;
    }
    if (!QDir().mkpath(m_installersFolder)) {
        fail(Error(errorDomain, FileError, tr("Cannot create the folder %1").arg(m_installersFolder)));
        return;
    }
    // Written beside its final name and renamed when complete, so that a broken download never replaces a package.
    m_package = std::make_unique<QSaveFile>(QDir(m_installersFolder).filePath(packageFileName(tag)));
    if (!m_package->open(QIODevice::WriteOnly)) {
        const Error error(errorDomain, FileError, m_package->errorString());
        m_package.reset();
        fail(error);
        return;
    }

    m_reply = m_network.get(request(url));
    m_received = 0;
    connect(m_reply, &QNetworkReply::readyRead, this, [this] {
        // Only the final answer's body goes into the file, not that of a redirection.
        if (m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() >= 300) {
            return;
        }
        const QByteArray chunk = m_reply->readAll();
        if (m_package->write(chunk) != chunk.size()) {
            const Error error(errorDomain, FileError, m_package->errorString());
            dropReply();
            fail(error);
            return;
        }
        // Counted here rather than from downloadProgress, which Qt holds back while bytes trickle in.
        m_received += chunk.size();
        const qint64 total = m_reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
        if (total > 0) {
            setDownloadPercentage(std::clamp(100.0 * double(m_received) / double(total), 0.0, 100.0));
        }
    });
    connect(m_reply, &QNetworkReply::finished, this, [this] {
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError) {
            m_package.reset();
            fail(networkError(reply));
            return;
        }
        const QByteArray rest = reply->readAll();
        if (m_package->write(rest) != rest.size() || !m_package->commit()) {
            const Error error(errorDomain, FileError, m_package->errorString());
            m_package.reset();
            fail(error);
            return;
        }
        const QString path = m_package->fileName();
        m_package.reset();
        setDownloadPercentage(100.0);
        openPackage(path);
    });
}

void Installer::openPackage(const QString& path)
{
    PackageOpener* opener = &m_opener;
    Threading::runAsync<Result<void>>([opener, path] { return opener->open(path); }, this,
                                      [this](const Result<void>& opened) {
                                          if (opened) {
                                              succeed();
                                          } else {
                                              fail(opened.error());
                                          }
                                      });
}

void Installer::succeed()
{
    qCInfo(lcCorvel, "Homebrew installed");
    setInstalled(true);
    setInstalling(false);
    Q_EMIT finished(true);
}

void Installer::fail(const Error& error)
{
    qCWarning(lcCorvel, "Failed to install Homebrew: %s", qUtf8Printable(error.description()));
    setErrorMessage(tr("Impossible to install Homebrew. Try again later."));
    setInstalling(false);
    Q_EMIT finished(false);
}

Installer::Command Installer::relaunchCommand(Desktop desktop, const QString& executablePath,
                                              const QStringList& arguments)
{
    const QString sh = QStringLiteral("/bin/sh");
    const QString pause = QStringLiteral("sleep 0.2; ");
    if (desktop == Desktop::macOS) {
        if (const std::optional<QString> bundle = applicationBundle(executablePath)) {
            return {sh, {QStringLiteral("-c"), pause + QStringLiteral("open \"") + *bundle + QLatin1Char('"')}};
        }
    }
    QStringList words{QStringLiteral("exec"), shellQuoted(executablePath)};
    std::ranges::transform(arguments, std::back_inserter(words), shellQuoted);
    return {sh, {QStringLiteral("-c"), pause + words.join(QLatin1Char(' '))}};
}

Installer::Command Installer::relaunchCommand()
{
#ifdef Q_OS_MACOS
    constexpr Desktop desktop = Desktop::macOS;
#else
    constexpr Desktop desktop = Desktop::freedesktop;
#endif
    return relaunchCommand(desktop, QCoreApplication::applicationFilePath(), QCoreApplication::arguments().mid(1));
}

Result<void> Installer::launch(const Command& command)
{
    QProcess process;
    process.setProgram(command.program);
    process.setArguments(command.arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    if (!process.startDetached()) {
        return Error(Commands::launchErrorDomain(), int(process.error()), process.errorString());
    }
    return {};
}

Result<void> Installer::relaunch()
{
    return launch(relaunchCommand());
}

void Installer::setDownloadPercentage(double percentage)
{
    if (m_downloadPercentage != percentage) {
        m_downloadPercentage = percentage;
        Q_EMIT downloadPercentageChanged(percentage);
    }
}

void Installer::setInstalling(bool installing)
{
    if (m_installing != installing) {
        m_installing = installing;
        Q_EMIT installingChanged(installing);
    }
}

void Installer::setInstalled(bool installed)
{
    if (m_installed != installed) {
        m_installed = installed;
        Q_EMIT installedChanged(installed);
    }
}

void Installer::setErrorMessage(const QString& message)
{
    if (m_errorMessage != message) {
        m_errorMessage = message;
        Q_EMIT errorMessageChanged(message);
    }
}

QUrl Installer::configuredBase(const QString& key) const
{
    const QUrl url(m_bundle.infoString(key).value_or(QString()), QUrl::StrictMode);
    return url.isValid() && !url.scheme().isEmpty() ? url : QUrl();
}

void Installer::dropReply()
{
    if (QNetworkReply* reply = m_reply) {
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    m_package.reset();
}

} // namespace Homebrew
