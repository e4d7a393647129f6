// Finds the crash report an earlier run left behind, renders it, and either sends it to the crash-report service at
// once (when the user allowed automatic collection) or shows it in a window where the user may send it.
#pragma once

#include "diagnostics/CrashCaptureEngine.h"
#include "diagnostics/CrashReporterWindowController.h"
#include "foundation/Result.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>

class Bundle;
class Defaults;

class CrashReporter : public QObject {
    Q_OBJECT

public:
    using WindowFactory = std::function<std::unique_ptr<CrashReporterWindowController>()>;

    // reporter, bundle and defaults must outlive this object. The window is made by windowFactory when it is first
    // needed, so a run without a pending report never builds one.
    CrashReporter(CrashCaptureEngine& reporter, const Bundle& bundle, Defaults& defaults, WindowFactory windowFactory,
                  QObject* parent = nullptr);
    ~CrashReporter() override;

    CrashCaptureEngine& reporter() { return m_reporter; }
    // None until the window was first needed.
    CrashReporterWindowController* crashReportWindowController() const { return m_window.get(); }

    // Enables capture for this process with the bundle's version and build.
    Result<void> enableCapture(const QString& processName);

    // At start: handles a pending report once (renders it, purges it, then sends it or shows it).
    void checkPendingReport();

    // Uploads report asynchronously; completion (optional) runs on this object's thread with nothing, a
    // CrashReporterError, or the transport's error (family HttpClient::errorDomain). Ends the process with "Build
    // number not found" when the bundle has none.
    void send(const QString& report, std::function<void(Result<void>)> completion = {});

    // Shows the window with report; the user may send it from there.
    void showWindow(const QString& report);

    // The service's address for a build: base + "/apps/corvel_x/releases/" + build (only letters and digits left
    // unescaped) + "/crash_reports.json". QUrl decodes "%2E" and its kind again, so the returned URL is only where
    // the report goes (scheme, host, port); uploadTarget() is the exact path on the request line.
    static Result<QUrl> uploadURL(const QUrl& base, const QString& buildNumber);
    static QByteArray uploadTarget(const QUrl& base, const QString& buildNumber);
    // {"crash_report": {"reporter": reporter or null, "content": report}}.
    static QByteArray uploadBody(const QString& report, const std::optional<QString>& reporterIdentity);

Q_SIGNALS:
    // Every upload ends with exactly one of these, after its completion ran.
    void sendFinished(bool succeeded);

private:
    // Logs the failure of a send that nobody else waits for.
    void sendAndLog(const QString& report);

    CrashCaptureEngine& m_reporter;
    const Bundle& m_bundle;
    Defaults& m_defaults;
    WindowFactory m_windowFactory;
    std::unique_ptr<CrashReporterWindowController> m_window;
};
