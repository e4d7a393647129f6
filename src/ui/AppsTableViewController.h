// The Apps table: the casks of the catalogue, with the app-only entries (install into a folder, move, show the
// installed folder) in its row menu.
#pragma once

#include "ui/PackageTableViewController.h"

class Cask;

class AppsTableViewController : public PackageTableViewController {
    Q_OBJECT

public:
    AppsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, QWidget* parent = nullptr);

    // The apps among records, in order, for the app operations.
    static QList<Cask*> apps(const QList<Package*>& records);
};
