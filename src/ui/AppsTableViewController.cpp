#include "ui/AppsTableViewController.h"

#include "catalogue/Cask.h"

AppsTableViewController::AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, QWidget* parent)
    : PackageTableViewController(PackageOperation::Persona::apps, viewContext, defaults, parent)
{
    setObjectName(QStringLiteral("AppsTableViewController"));
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
