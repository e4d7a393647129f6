// What the Apps table (or a command line) does to apps: install, also into a folder the person chooses, uninstall,
// upgrade one or all, reinstall and move. Each call takes the records handed over and acts on those that offer the
// operation; an app is re-read from Homebrew after its command succeeded.
#pragma once

#include "operations/PackageOperations.h"

class ArrayController;
class Cask;
class FolderChooser;

namespace Homebrew {
class Sources;
}

class AppOperations : public PackageOperations {
    Q_OBJECT

public:
    // sources and folderChooser must outlive this object and the commands it started.
    AppOperations(const Services& services, const Homebrew::Sources& sources, FolderChooser& folderChooser,
                  QObject* parent = nullptr);

    // No question; the folder options, when set, go to every app's command.
    void install(const QList<Cask*>& apps, const Homebrew::Locations& locations = {});
    // Asks for a folder first; nothing happens when the person dismisses the panel.
    void installInFolder(Cask* app);
    // Always asks first.
    void uninstall(const QList<Cask*>& apps);
    void upgrade(const QList<Cask*>& apps);
    // Every outdated app that apps arranges right now (after its search filter). Asks first unless suppressed,
    // even when there is nothing to upgrade.
    void upgradeAll(const ArrayController& apps);
    // Asks first unless suppressed.
    void reinstall(const QList<Cask*>& apps, const Homebrew::Locations& locations = {});
    // Asks first unless suppressed, then for a folder, then reinstalls the app there.
    void moveTo(Cask* app);

    // Where the folder panel opens: the user's Applications folder, or the Fonts folder of the user's Library.
    static QString startFolder(PackageOperation::Folder folder);

Q_SIGNALS:
    // An app was uninstalled and its record marked so: lists and counts of installed apps are due a refresh.
    void appUninstalled(const QString& token);

protected:
    void didSucceed(PackageOperation::Kind kind, const QString& token, const std::optional<QString>& tap) override;

private:
    // Asks where app goes; none when dismissed.
    std::optional<Homebrew::Locations> chooseLocations(PackageOperation::Kind kind, Cask* app);

    FolderChooser& m_folderChooser;
};
