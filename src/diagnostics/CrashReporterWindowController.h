// The window that shows a crash report of an earlier run and lets the user send it or dismiss it. Core code talks to
// this interface; the application implements it with a dialog, tests with a scripted answer.
#pragma once

#include <QString>
#include <functional>
#include <optional>

class CrashReporterWindowController {
public:
    virtual ~CrashReporterWindowController() = default;

    // Shows report and returns at once; answer is called on the GUI thread with true when the user chose to send
    // the report, false when it was dismissed. Showing another report replaces the one shown.
    virtual void showReport(const QString& report, std::function<void(bool send)> answer) = 0;
    // The report shown, if any.
    virtual std::optional<QString> report() const = 0;
};
