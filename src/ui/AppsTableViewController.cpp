#include "ui/AppsTableViewController.h"

#include "catalogue/Cask.h"
#include "ui/WebsiteIconLoader.h"

AppsTableViewController::AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, QWidget* parent)
    : AppsTableViewController(viewContext, defaults, static_cast<WebsiteIcons*>(nullptr), parent)
{}

AppsTableViewController::AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults,
                                                 WebsiteIcons& websiteIcons, QWidget* parent)
    : AppsTableViewController(viewContext, defaults, &websiteIcons, parent)
{}

AppsTableViewController::AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults,
                                                 WebsiteIcons* websiteIcons, QWidget* parent)
    : PackageTableViewController(PackageOperation::Persona::apps, viewContext, defaults, parent)
{
    setObjectName(QStringLiteral("AppsTableViewController"));
    m_websiteIconLoader = new WebsiteIconLoader(tableView(), model(), defaults, websiteIcons, this);
}

AppsTableViewController::~AppsTableViewController()
{
    // While the table it watches is still whole.
    delete m_websiteIconLoader;
}

QList<Cask*> AppsTableViewController::apps(const QList<Package*>& records)
{
    QList<Cask*> apps;
    for (Package* record : records) {
        if (auto* app = qobject_cast<Cask*>(record)) {
            apps.append(app);
        }
    }
    return apps;
}
