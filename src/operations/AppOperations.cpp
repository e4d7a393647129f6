#include "operations/AppOperations.h"

#include "catalogue/ArrayController.h"
#include "catalogue/Cask.h"
#include "catalogue/HomebrewSources.h"
#include "diagnostics/Analytics.h"
#include "operations/FolderChooser.h"
#include "operations/OperationConfirmation.h"

#include <QDir>

namespace {

using Kind = PackageOperation::Kind;

QList<Package*> packages(const QList<Cask*>& apps)
{
    return {apps.cbegin(), apps.cend()};
}

// Uninstalling needs no question to Homebrew; everything else re-reads the app as the synchronisation would.
Result<void> refreshApp(const Homebrew::Sources& sources, Kind kind, ManagedObject& record)
{
    if (kind == Kind::uninstall) {
        record.setValue(u"installed", false);
        record.setValue(u"outdated", false);
        record.setValue(u"version", QVariant());
        return {};
    }
    const Result<Homebrew::Cask> cask = sources.cask(record.token());
    if (!cask) {
        return cask.error();
    }
    const std::optional<QString>& version = cask.value().version;
    record.setValue(u"version", version ? QVariant(*version) : QVariant());
    record.setValue(u"installed", version.has_value());
    // An install or upgrade leaves the newest version in place. A reinstall keeps the mark as it was: whether it
    // brought a newer version is for the next synchronisation to tell.
    if (kind == Kind::install || kind == Kind::installInFolder || kind == Kind::upgrade) {
        record.setValue(u"outdated", false);
    }
    return {};
}

} // namespace

AppOperations::AppOperations(const Services& services, const Homebrew::Sources& sources, FolderChooser& folderChooser,
                             QObject* parent)
    : PackageOperations(
          PackageOperation::Persona::apps, services,
          [&sources](Kind kind, ManagedObject& record) { return refreshApp(sources, kind, record); }, parent)
    , m_folderChooser(folderChooser)
{}

void AppOperations::install(const QList<Cask*>& apps, const Homebrew::Locations& locations)
{
    run(Kind::install, offering(Kind::install, packages(apps)), locations);
}

void AppOperations::installInFolder(Cask* app)
{
    const QList<QPointer<Package>> records = offering(Kind::installInFolder, {app});
    if (records.isEmpty()) {
        Q_EMIT requestSettled(Kind::installInFolder, {});
        return;
    }
    const std::optional<Homebrew::Locations> locations = chooseLocations(Kind::installInFolder, app);
    if (!locations) {
        Q_EMIT requestSettled(Kind::installInFolder, {});
        return;
    }
    run(Kind::installInFolder, records, *locations);
}

void AppOperations::uninstall(const QList<Cask*>& apps)
{
    const QList<QPointer<Package>> records = offering(Kind::uninstall, packages(apps));
    if (records.isEmpty()) {
        Q_EMIT requestSettled(Kind::uninstall, {});
        return;
    }
    confirmThen(Kind::uninstall, OperationConfirmation::uninstall(persona(), names(records)),
                [this, records] { run(Kind::uninstall, records); });
}

void AppOperations::upgrade(const QList<Cask*>& apps)
{
    run(Kind::upgrade, offering(Kind::upgrade, packages(apps)));
}

void AppOperations::upgradeAll(const ArrayController& apps)
{
    QList<Package*> arranged;
    for (ManagedObject* object : apps.arrangedObjects()) {
        if (auto* app = qobject_cast<Cask*>(object)) {
            arranged.append(app);
        }
    }
    const QList<QPointer<Package>> records = offering(Kind::upgrade, arranged);
    confirmThen(Kind::upgrade, OperationConfirmation::upgradeAll(), [this, records] { run(Kind::upgrade, records); });
}

void AppOperations::reinstall(const QList<Cask*>& apps, const Homebrew::Locations& locations)
{
    const QList<QPointer<Package>> records = offering(Kind::reinstall, packages(apps));
    if (records.isEmpty()) {
        Q_EMIT requestSettled(Kind::reinstall, {});
        return;
    }
    confirmThen(Kind::reinstall, OperationConfirmation::reinstall(persona(), names(records)),
                [this, records, locations] { run(Kind::reinstall, records, locations); });
}

void AppOperations::moveTo(Cask* app)
{
    const QList<QPointer<Package>> records = offering(Kind::move, {app});
    if (records.isEmpty()) {
        Q_EMIT requestSettled(Kind::move, {});
        return;
    }
    confirmThen(Kind::move, OperationConfirmation::move(app->name()), [this, records] {
        auto* app = qobject_cast<Cask*>(records.constFirst().data());
        const std::optional<Homebrew::Locations> locations = app ? chooseLocations(Kind::move, app) : std::nullopt;
        if (!locations) {
            Q_EMIT requestSettled(Kind::move, {});
            return;
        }
        run(Kind::move, records, *locations);
    });
}

QString AppOperations::startFolder(PackageOperation::Folder folder)
{
    return folder == PackageOperation::Folder::applications ? QDir::homePath() + QStringLiteral("/Applications")
                                                            : QDir::homePath() + QStringLiteral("/Library/Fonts");
}

std::optional<Homebrew::Locations> AppOperations::chooseLocations(Kind kind, Cask* app)
{
    const std::optional<PackageOperation::Folder> folder = PackageOperation::folderFor(*app);
    if (!folder) {
        return std::nullopt;
    }
    const QString title = kind == Kind::move ? tr("Move") : tr("Install in Folder");
    const QString message = kind == Kind::move ? tr("Choose the folder to move '%1' to.").arg(app->name())
                                               : tr("Choose the folder to install '%1' in.").arg(app->name());
    const std::optional<QString> chosen = m_folderChooser.chooseFolder(title, message, startFolder(*folder));
    // An empty answer names no folder; taken as a dismissal rather than passed to brew.
    if (!chosen || chosen->isEmpty()) {
        return std::nullopt;
    }
    Homebrew::Locations locations;
    if (*folder == PackageOperation::Folder::applications) {
        locations.appsDirectory = *chosen;
    } else {
        locations.fontsDirectory = *chosen;
    }
    return locations;
}

void AppOperations::didSucceed(Kind kind, const QString& token, const std::optional<QString>& tap)
{
    services().analytics.appEvent(PackageOperation::eventName(kind), token, tap);
    if (kind == Kind::uninstall) {
        Q_EMIT appUninstalled(token);
    }
}
