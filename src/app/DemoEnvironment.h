// A throw-away machine to try the application on: a simulated Homebrew with a sample catalogue under a temporary
// root, with settings, store and caches of its own, so that nothing of the person's real machine is read or changed.
#pragma once

#include "foundation/Result.h"

#include <QString>
#include <QTemporaryDir>
#include <memory>

class Bundle;

class DemoEnvironment {
public:
    // Creates the root and moves the home, configuration, data and cache folders into it. Must run before anything
    // reads the settings or the standard paths, that is before the application object exists.
    static Result<std::unique_ptr<DemoEnvironment>> create();

    // Once the application object exists: builds the simulated Homebrew from bundle's "demo" resources, serves the
    // sample catalogue to the application from files, sends every other service to a closed local port, and points
    // the Homebrew search and the first-run flag at the demo.
    Result<void> install(Bundle& bundle);

    QString root() const { return m_root.path(); }
    QString catalogueFolder() const { return m_root.filePath(QStringLiteral("catalogue")); }

    // Whether the arguments (program name first) ask for the demo.
    static bool requested(const QStringList& arguments);

private:
    DemoEnvironment() = default;

    QTemporaryDir m_root;
};
