// The Scripts table: the formulae of the catalogue, with their place in the dependency hierarchy and licence.
#pragma once

#include "ui/PackageTableViewController.h"

class Formula;

class ScriptsTableViewController : public PackageTableViewController {
    Q_OBJECT

public:
    ScriptsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults, QWidget* parent = nullptr);

    // The scripts among records, in order, for the script operations.
    static QList<Formula*> scripts(const QList<Package*>& records);
};
