#include "ui/ScriptsTableViewController.h"

#include "catalogue/Formula.h"

ScriptsTableViewController::ScriptsTableViewController(ManagedObjectContext* viewContext, Defaults& defaults,
                                                       QWidget* parent)
    : PackageTableViewController(PackageOperation::Persona::scripts, viewContext, defaults, parent)
{
    setObjectName(QStringLiteral("ScriptsTableViewController"));
}

QList<Formula*> ScriptsTableViewController::scripts(const QList<Package*>& records)
{
    QList<Formula*> scripts;
    for (Package* record : records) {
        if (auto* script = qobject_cast<Formula*>(record)) {
            scripts.append(script);
        }
    }
    return scripts;
}
