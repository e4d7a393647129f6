// Asks a person to answer an alert. The UI answers with a message box, tests with scripted answers; code that
// needs a confirmation only ever talks to this interface.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>

class Defaults;

struct Alert {
    enum class Style { Informational, Warning, Critical };

    Style style = Style::Warning;
    QString message;
    QString informativeText;
    // Button titles in order; the first is the default button.
    QStringList buttons;
    // The preference that remembers "do not ask again"; empty when the alert cannot be suppressed.
    QString suppressionKey;
};

struct AlertResponse {
    // Index into Alert::buttons of the chosen button.
    int button = 0;
    bool suppressionChecked = false;
};

class Alerter {
public:
    virtual ~Alerter() = default;

    // Shows the alert without blocking the caller's event loop; done runs on the GUI thread once answered.
    virtual void present(const Alert& alert, std::function<void(AlertResponse)> done) = 0;

    // The preferences that suppress confirmations.
    static QStringList suppressedAlerts();

    // Removes every suppression so that each confirmation is asked again.
    static void restoreSuppressedAlerts(Defaults& defaults);
};
