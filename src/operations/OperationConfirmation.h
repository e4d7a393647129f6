// The questions asked before an operation that removes, rewrites or moves packages: their texts, buttons and the
// preference that lets a person stop being asked, and the asking itself through an Alerter.
#pragma once

#include "foundation/Alerter.h"
#include "operations/PackageOperation.h"

#include <QObject>
#include <QStringList>
#include <functional>

class Defaults;

class OperationConfirmation {
public:
    // "Are you sure you want to uninstall '<name>'?", or the number of apps (scripts) when there are several. It
    // cannot be suppressed: removing software is always confirmed.
    static Alert uninstall(PackageOperation::Persona persona, const QStringList& names);
    // Suppressed for apps and scripts alike by "SuppressReinstallAlert".
    static Alert reinstall(PackageOperation::Persona persona, const QStringList& names);
    static Alert upgradeAll();
    // Warns that the app is reinstalled, which may lose data.
    static Alert move(const QString& name);

    // Asks alert and calls done(true) when the first button was chosen. An alert whose suppression key is true in
    // defaults is not shown at all and counts as confirmed (done runs before this returns); confirming with the
    // checkbox ticked sets the key. done is dropped when context is destroyed before the answer.
    static void ask(Alerter& alerter, Defaults& defaults, const Alert& alert, QObject* context,
                    std::function<void(bool confirmed)> done);
};
