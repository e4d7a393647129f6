// Asks a person for a folder, such as where an app is to be installed. The UI answers with a folder dialog, tests
// with scripted answers; the operations only ever talk to this interface.
#pragma once

#include <QString>
#include <optional>

class FolderChooser {
public:
    virtual ~FolderChooser() = default;

    // An absolute folder path, or none when the user dismissed the panel. title/message say what is asked. A dialog
    // offers folders only (no files), lets the person create one, confirms with "Choose" and opens at startFolder.
    virtual std::optional<QString> chooseFolder(const QString& title, const QString& message,
                                                const QString& startFolder) = 0;
};
