// The Apps table: the casks of the catalogue, with the app-only entries (install into a folder, move, show the
// installed folder) in its row menu, and the apps on screen showing their website's icon when the person wants it.
#pragma once

#include "ui/PackageTableViewController.h"

class Cask;
class WebsiteIconLoader;
class WebsiteIcons;

class AppsTableViewController : public PackageTableViewController {
    Q_OBJECT

public:
    // Website icons come from the application's shared service.
    AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, QWidget* parent = nullptr);
    // Website icons come from websiteIcons, which must outlive the table.
    AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, WebsiteIcons& websiteIcons,
                            QWidget* parent = nullptr);
    ~AppsTableViewController() override;

    // The apps among records, in order, for the app operations.
    static QList<Cask*> apps(const QList<Package*>& records);

    WebsiteIconLoader* websiteIconLoader() const { return m_websiteIconLoader; }

private:
    AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, WebsiteIcons* websiteIcons,
                            QWidget* parent);

    WebsiteIconLoader* m_websiteIconLoader = nullptr;
};
