#include "operations/AgentError.h"

QString AgentError::domain()
{
    return QStringLiteral("AgentError");
}

QString AgentError::description(Code code, const QString& detail)
{
    switch (code) {
    case definitionNotFound:
        return tr("The agent definition %1 is missing from the application").arg(detail);
    case invalidDefinition:
        return tr("The agent definition is not usable: %1").arg(detail);
    case toolNotFound:
        return tr("The system tool %1 was not found").arg(detail);
    case commandFailed:
        return detail;
    case unableToWrite:
        return tr("Unable to write %1").arg(detail);
    }
    return detail;
}

Error AgentError::make(Code code, const QString& detail)
{
    return Error(domain(), code, description(code, detail));
}
