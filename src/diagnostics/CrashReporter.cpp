#include "diagnostics/CrashReporter.h"

#include "diagnostics/CrashReport.h"
#include "diagnostics/CrashReportUpload.h"
#include "diagnostics/CrashReporterError.h"
#include "foundation/Bundle.h"
#include "foundation/Defaults.h"
#include "foundation/Logging.h"
#include "foundation/PreferenceKeys.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr std::chrono::seconds uploadTimeout(60);

// Letters and digits only: everything else, the unreserved "-._~" included, is percent-encoded.
QByteArray encodedBuildNumber(const QString& buildNumber)
{
    return buildNumber.toUtf8().toPercentEncoding(QByteArray(), QByteArrayLiteral("-._~"));
}

QByteArray encodedBasePath(const QUrl& base)
{
    QByteArray path = base.path(QUrl::FullyEncoded).toUtf8();
    while (path.endsWith('/')) {
        path.chop(1);
    }
    return path;
}

} // namespace

CrashReporter::CrashReporter(CrashCaptureEngine& reporter, const Bundle& bundle, Defaults& defaults,
                             WindowFactory windowFactory, QObject* parent)
    : QObject(parent)
    , m_reporter(reporter)
    , m_bundle(bundle)
    , m_defaults(defaults)
    , m_windowFactory(std::move(windowFactory))
{}

CrashReporter::~CrashReporter() = default;

Result<void> CrashReporter::enableCapture(const QString& processName)
{
    return m_reporter.enable({processName, m_bundle.version(), m_bundle.buildNumber().value_or(QString())});
}

void CrashReporter::checkPendingReport()
{
    if (!m_reporter.hasPendingCrashReport()) {
        return;
    }
    const Result<QByteArray> data = m_reporter.loadPendingCrashReportData();
    const Result<CrashReport> report = data ? CrashReport::fromData(data.value()) : Result<CrashReport>(data.error());
    // Purged whatever happened: a report that cannot be read now cannot be read at the next start either.
    if (const Result<void> purged = m_reporter.purgePendingCrashReport(); !purged) {
        qCWarning(lcCorvel).noquote() << purged.error().description();
    }
    if (!report) {
        qCWarning(lcCorvel).noquote() << "Unable to read crash report:" << report.error().description();
        return;
    }
    const QString text = report.value().text();
    if (m_defaults.boolValue(PreferenceKeys::AllowAutomaticCrashReportsCollection)) {
        sendAndLog(text);
    } else {
        showWindow(text);
    }
}

void CrashReporter::showWindow(const QString& report)
{
    if (!m_window && m_windowFactory) {
        m_window = m_windowFactory();
    }
    if (!m_window) {
        return;
    }
    m_window->showReport(report, [this, report](bool send) {
        if (send) {
            sendAndLog(report);
        }
    });
}

void CrashReporter::sendAndLog(const QString& report)
{
    send(report, [](const Result<void>& sent) {
        if (!sent) {
            qCWarning(lcCorvel).noquote()
                << QStringLiteral("Unable to send crash report: %1").arg(sent.error().description());
        }
    });
}

Result<QUrl> CrashReporter::uploadURL(const QUrl& base, const QString& buildNumber)
{
    if (!base.isValid() || base.host().isEmpty() || buildNumber.isEmpty()) {
        return CrashReporterError::makeInvalidURL();
    }
    const QUrl url = QUrl::fromEncoded(base.toEncoded(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment) +
                                           uploadTarget(base, buildNumber),
                                       QUrl::StrictMode);
    if (!url.isValid()) {
        return CrashReporterError::makeInvalidURL();
    }
    return url;
}

QByteArray CrashReporter::uploadTarget(const QUrl& base, const QString& buildNumber)
{
    return encodedBasePath(base) + "/apps/corvel_x/releases/" + encodedBuildNumber(buildNumber) + "/crash_reports.json";
}

QByteArray CrashReporter::uploadBody(const QString& report, const std::optional<QString>& reporterIdentity)
{
    const QJsonObject crashReport{
        {QStringLiteral("reporter"), reporterIdentity ? QJsonValue(*reporterIdentity) : QJsonValue(QJsonValue::Null)},
        {QStringLiteral("content"), report},
    };
    return QJsonDocument(QJsonObject{{QStringLiteral("crash_report"), crashReport}}).toJson(QJsonDocument::Compact);
}

void CrashReporter::send(const QString& report, std::function<void(Result<void>)> completion)
{
    const std::optional<QString> buildNumber = m_bundle.buildNumber();
    if (!buildNumber) {
        qFatal("Build number not found");
    }
    const auto finish = [this, completion = std::move(completion)](const Result<void>& result) {
        if (completion) {
            completion(result);
        }
        Q_EMIT sendFinished(result.ok());
    };
    const QUrl base = m_bundle.serviceURL();
    const Result<QUrl> url = uploadURL(base, *buildNumber);
    if (!url) {
        QMetaObject::invokeMethod(
            this, [finish, error = url.error()] { finish(error); }, Qt::QueuedConnection);
        return;
    }
    // No user identity is known to the application, so reports go out without a reporter.
    auto* upload =
        new CrashReportUpload(url.value(), uploadTarget(base, *buildNumber), uploadBody(report, std::nullopt),
                              std::chrono::duration_cast<std::chrono::milliseconds>(uploadTimeout), this);
    upload->start([finish](const Result<CrashReportUpload::Answer>& answer) {
        if (!answer) {
            finish(answer.error());
        } else if (answer.value().status != 200) {
            const QString text = QString::fromUtf8(answer.value().body);
            finish(CrashReporterError::makeInvalidResponse(text.isEmpty() ? std::nullopt : std::optional(text)));
        } else {
            finish({});
        }
    });
}
