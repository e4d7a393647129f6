// Asks a person for the administrator password on behalf of a command that runs sudo. The UI answers with a
// password dialog, tests with scripted answers; the password relay only ever talks to this interface.
#pragma once

#include <QString>
#include <functional>
#include <optional>

class PasswordPrompt {
public:
    virtual ~PasswordPrompt() = default;

    // Asks without blocking the caller's event loop. done runs once, on the GUI thread, with the password as typed
    // (possibly empty) or nullopt when the person cancelled.
    virtual void askPassword(std::function<void(std::optional<QString> password)> done) = 0;
};
