#include "homebrew/RuntimeError.h"

QString RuntimeError::domain()
{
    return QStringLiteral("RuntimeError");
}

Error RuntimeError::make(const QString& description)
{
    return Error(domain(), 0, description);
}

Error RuntimeError::processTerminated()
{
    return make(tr("Process terminated with an error"));
}
