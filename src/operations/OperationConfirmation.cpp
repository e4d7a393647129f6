#include "operations/OperationConfirmation.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

#include <QCoreApplication>
#include <QPointer>

namespace {

using Persona = PackageOperation::Persona;

// The texts belong to the string table of the table that asks.
const char* tableOf(Persona persona)
{
    return persona == Persona::apps ? "AppsTableViewController" : "ScriptsTableViewController";
}

QString translate(const char* table, const char* text, int count = -1)
{
    return QCoreApplication::translate(table, text, nullptr, count);
}

// One confirming button then "Cancel".
Alert confirmation(const char* table, QString message, const char* confirmTitle, QString suppressionKey)
{
    Alert alert;
    alert.style = Alert::Style::Warning;
    alert.message = std::move(message);
    alert.buttons = {translate(table, confirmTitle), translate(table, "Cancel")};
    alert.suppressionKey = std::move(suppressionKey);
    return alert;
}

} // namespace

Alert OperationConfirmation::uninstall(Persona persona, const QStringList& names)
{
    const char* table = tableOf(persona);
    QString message;
    if (names.size() == 1) {
        message = translate(table, "Are you sure you want to uninstall '%1'?").arg(names.constFirst());
    } else if (persona == Persona::apps) {
        message = translate(table, "Are you sure you want to uninstall %n apps?", int(names.size()));
    } else {
        message = translate(table, "Are you sure you want to uninstall %n scripts?", int(names.size()));
    }
    return confirmation(table, message, "Uninstall", QString());
}

Alert OperationConfirmation::reinstall(Persona persona, const QStringList& names)
{
    const char* table = tableOf(persona);
    QString message;
    if (names.size() == 1) {
        message = translate(table, "Are you sure you want to reinstall '%1'?").arg(names.constFirst());
    } else if (persona == Persona::apps) {
        message = translate(table, "Are you sure you want to reinstall %n apps?", int(names.size()));
    } else {
        message = translate(table, "Are you sure you want to reinstall %n scripts?", int(names.size()));
    }
    return confirmation(table, message, "Reinstall", PreferenceKeys::SuppressReinstallAlert);
}

Alert OperationConfirmation::upgradeAll()
{
    const char* table = tableOf(Persona::apps);
    return confirmation(table, translate(table, "Are you sure you want to upgrade all the apps?"), "Upgrade All",
                        PreferenceKeys::SuppressUpgradeAllAlert);
}

Alert OperationConfirmation::move(const QString& name)
{
    const char* table = tableOf(Persona::apps);
    Alert alert = confirmation(table, translate(table, "Are you sure you want to move '%1'?").arg(name), "Move",
                               PreferenceKeys::SuppressMoveToAlert);
    alert.informativeText =
        translate(table, "'%1' will be reinstalled in the chosen location. The process may cause loss of data.")
            .arg(name);
    return alert;
}

void OperationConfirmation::ask(Alerter& alerter, Defaults& defaults, const Alert& alert, QObject* context,
                                std::function<void(bool confirmed)> done)
{
    if (!alert.suppressionKey.isEmpty() && defaults.boolValue(alert.suppressionKey)) {
        done(true);
        return;
    }
    alerter.present(alert, [&defaults, key = alert.suppressionKey, guard = QPointer<QObject>(context),
                            done = std::move(done)](AlertResponse response) {
        if (!guard) {
            return;
        }
        const bool confirmed = response.button == 0;
        if (confirmed && response.suppressionChecked && !key.isEmpty()) {
            defaults.setValue(key, true);
        }
        done(confirmed);
    });
}
