// A command that needs the administrator password, from start to end: the runner starts the simulated brew with
// the real Askpass helper as SUDO_ASKPASS; the simulator runs the helper as sudo would; the helper reaches the
// application's relay, whose prompt answers.
#include "LogCapture.h"
#include "ScriptedPasswordPrompt.h"
#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "foundation/Bundle.h"
#include "foundation/Threading.h"
#include "homebrew/Askpass.h"
#include "homebrew/HomebrewCommands.h"
#include "homebrew/HomebrewInstallation.h"
#include "homebrew/SimulatedHomebrew.h"

#include <QFile>
#include <QJsonArray>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <memory>

class TestAskpassEndToEnd : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void installNeedingPassword_data();
    void installNeedingPassword();
};

void TestAskpassEndToEnd::installNeedingPassword_data()
{
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<QString>("password");

    QTest::newRow("non-ASCII password") << false << QStringLiteral("correct horse pässwörd🔑");
    QTest::newRow("empty Continue") << false << QString();
    QTest::newRow("cancel") << true << QString();
}

void TestAskpassEndToEnd::installNeedingPassword()
{
    QFETCH(bool, cancel);
    QFETCH(QString, password);
    const QString token = QStringLiteral("corretto");

    QTemporaryDir root;
    QTemporaryDir resources;
    QVERIFY(root.isValid() && resources.isValid());
    auto simulated = SimulatedHomebrew::create(
        root.path(), {{QStringLiteral("faults"), QJsonObject{{QStringLiteral("sudo"), QJsonArray{"install"}}}}});
    QVERIFY2(simulated.ok(), simulated ? "" : qPrintable(simulated.error().description()));
    const SimulatedHomebrew& brew = simulated.value();

    // A bundle of our own whose "Askpass" resource is the real helper program of this build.
    const std::optional<QString> helper = Bundle::main().pathForResource(QStringLiteral("Askpass"));
    QVERIFY(helper);
    const QString bundledHelper = resources.filePath(QStringLiteral("Askpass"));
    QVERIFY(QFile::link(*helper, bundledHelper));
    Bundle bundle(resources.path());

    Homebrew::Installation installation(root.path());
    ActivityCenter activityCenter;
    Transcript transcript;
    Homebrew::Commands commands(installation, bundle, activityCenter, transcript);
    // Should a check fail early, the worker still uses the runner: wait for it after the relay has cancelled.
    const auto waitForWorker = qScopeGuard([] { Threading::pool().waitForDone(); });

    ScriptedPasswordPrompt prompt;
    prompt.answerNext(cancel ? std::nullopt : std::optional<QString>(password));
    Askpass askpass(prompt);
    // The user's one socket is shared with other test programs and a running Corvel X: wait for our turn.
    QVERIFY(QTest::qWaitFor([&] { return askpass.registerPort().ok(); }, 60000));

    LogCapture log;
    // The runner blocks its worker while brew runs, and the relay answers on this thread's event loop.
    auto outcome = std::make_shared<std::optional<Result<void>>>();
    auto done = std::make_shared<std::atomic_bool>(false);
    Threading::runInBackground([&commands, token, outcome, done] {
        *outcome = commands.run({QStringLiteral("install"), QStringLiteral("--cask"), token}, {}, token,
                                QStringLiteral("Install"));
        done->store(true);
    });
    QTRY_VERIFY_WITH_TIMEOUT(done->load(), 60000);
    QCoreApplication::sendPostedEvents();

    QCOMPARE(prompt.asked(), 1);
    const QList<SimulatedHomebrew::Invocation> invocations = brew.invocations();
    QCOMPARE(invocations.size(), 1);
    const SimulatedHomebrew::Invocation& invocation = invocations.first();
    QCOMPARE(invocation.arguments, (QStringList{QStringLiteral("install"), QStringLiteral("--cask"), token}));
    QCOMPARE(invocation.environment.value(QStringLiteral("SUDO_ASKPASS")), bundledHelper);

    QStringList lines;
    for (const TranscriptMessage& message : transcript.messages()) {
        lines.append(message.string());
    }
    const bool installed = brew.state().value(QStringLiteral("casks")).toObject().contains(token);
    if (cancel) {
        QVERIFY(!outcome->value().ok());
        QCOMPARE(outcome->value().error().description(), QStringLiteral("Process terminated with an error"));
        QCOMPARE(invocation.sudoPassword, std::nullopt);
        QVERIFY(!installed);
        QVERIFY2(lines.contains(QStringLiteral("sudo: a password is required")), qPrintable(lines.join(u'\n')));
    } else {
        QVERIFY2(outcome->value().ok(), qPrintable(outcome->value().error().description()));
        // What reached sudo is exactly what the person typed, an empty password included.
        QCOMPARE(invocation.sudoPassword, std::optional<QString>(password));
        QVERIFY(installed);
    }

    // The password goes to sudo only: not into the transcript, not into the log.
    if (!password.isEmpty()) {
        QVERIFY(!lines.join(u'\n').contains(password));
        QVERIFY(!log.texts().join(u'\n').contains(password));
    }
}

QTEST_GUILESS_MAIN(TestAskpassEndToEnd)
#include "TestAskpassEndToEnd.moc"
