#include "catalogue/CoreDataManagerError.h"

#include <QCoreApplication>

Error CoreDataManagerError::missingManagedObjectContext()
{
    return Error(QString::fromLatin1(domain), MissingManagedObjectContext,
                 QCoreApplication::translate("CoreDataManagerError", "Missing managed object context"));
}
