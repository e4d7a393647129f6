// The failures of registering and unregistering background agents: a definition that the bundle lacks or that
// cannot be turned into an agent, a missing system tool, a tool that refused, a file that could not be written.
#pragma once

#include "foundation/Error.h"

#include <QCoreApplication>

class AgentError {
    Q_DECLARE_TR_FUNCTIONS(AgentError)

public:
    enum Code {
        definitionNotFound = 1,
        invalidDefinition,
        toolNotFound,
        commandFailed,
        unableToWrite,
    };

    static QString domain();
    // detail: the definition's name, what is wrong with it, the tool's name, the command and its complaint, or the
    // file and the reason.
    static QString description(Code code, const QString& detail);
    static Error make(Code code, const QString& detail);
};
