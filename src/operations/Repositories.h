// Adds and removes Homebrew repositories (taps), each as one brew command with its activity, busy mark, log lines,
// failure alert and usage event; also reads one repository's record from brew and its description from GitHub.
#pragma once

#include "catalogue/HomebrewGithubRepository.h"
#include "catalogue/HomebrewTap.h"
#include "foundation/Result.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <optional>

class Alerter;
class Analytics;
class ApplicationState;
class CoreDataManager;
class ManagedObjectContext;
struct ChangeSet;
class HttpClient;
class Tap;

namespace Homebrew {
class Commands;
class Sources;
} // namespace Homebrew

class Repositories : public QObject {
    Q_OBJECT

public:
    enum class Operation { install, uninstall };
    Q_ENUM(Operation)

    // A repository's home on GitHub.
    struct GithubLocation {
        QString owner;
        QString repository;
        bool operator==(const GithubLocation&) const = default;
    };

    // Everything passed in must outlive this object, and this object its running operations. githubApiBase is the
    // bundle's TW_GITHUB_API_URL.
    Repositories(CoreDataManager& store, const Homebrew::Commands& commands, const Homebrew::Sources& sources,
                 HttpClient& httpClient, QUrl githubApiBase, ApplicationState& state, Alerter& alerter,
                 Analytics& analytics, QObject* parent = nullptr);

    // owner/name, each part letters, digits, "_" or "-", as brew accepts a tap's name.
    static bool isValidName(const QString& name);

    // The progress text the settings show while an operation runs: "Adding repository..." or
    // "Uninstalling repository...".
    static QString progressText(Operation operation);

    // GUI thread. Taps name, then reads its record from brew and stores it. A name that is not of the form
    // owner/name runs nothing and is reported as a failure before this returns. finished() follows in every case.
    void install(const QString& name);

    // GUI thread. Asks for confirmation (always), then untaps the repository and drops it and its packages from the
    // catalogue. False, and nothing is asked, when tap cannot be removed now (not installed, or busy). Either
    // finished() or, when the person declines, cancelled() follows a true.
    bool uninstall(Tap* tap);

    // Runs "tap-info", name, "--json" and decodes the record. Blocks: worker threads only.
    Result<Homebrew::Tap> get(const QString& name) const;

    // Homebrew's convention: the tap owner/name lives in the GitHub repository owner/homebrew-name. None for a
    // malformed name.
    static std::optional<GithubLocation> githubLocation(const QString& tapName);
    // The repository API address: the base with "/repos/" + owner + "/" + repository appended to its path.
    QUrl githubRepositoryUrl(const GithubLocation& location) const;
    // GETs GitHub's record of the repository. Blocks: worker threads only. A missing description is no error.
    Result<Homebrew::GithubRepository> fetchGithubRepository(const QString& owner, const QString& repository) const;

    // GUI thread. The description of tap for the repositories list, fetched from GitHub in the background; done gets
    // none when the request fails (nobody is told) or GitHub has no description. Dropped when context is gone.
    void fetchDescription(const QString& tapName, QObject* context,
                          std::function<void(std::optional<QString>)> done) const;

Q_SIGNALS:
    // The operation's command is about to run; progressText(operation) says what to show meanwhile.
    void started(Repositories::Operation operation, const QString& name);
    // The operation ended; errorDescription is empty on success. Busy marks are already cleared.
    void finished(Repositories::Operation operation, const QString& name, bool succeeded,
                  const QString& errorDescription);
    // The person declined to remove name.
    void cancelled(const QString& name);

private:
    // Brings the store in line once brew succeeded, on the worker, recording what it changed.
    using StoreUpdate = std::function<Result<void>(ManagedObjectContext& context, ChangeSet& changes)>;

    void runUninstall(Tap* tap);
    // Runs "tap" or "untap" for name on a worker with a store context of its own, then reports on the GUI thread;
    // markRecord sets and clears the record's busy mark around it.
    void perform(Operation operation, const QString& name, const StoreUpdate& afterCommand,
                 const std::function<void(bool busy)>& markRecord);
    void fail(Operation operation, const QString& name, const Error& error);
    void setBusy(const QString& name, bool busy);

    CoreDataManager& m_store;
    const Homebrew::Commands& m_commands;
    const Homebrew::Sources& m_sources;
    HttpClient& m_httpClient;
    QUrl m_githubApiBase;
    ApplicationState& m_state;
    Alerter& m_alerter;
    Analytics& m_analytics;
};
