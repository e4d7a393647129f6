#include "HomebrewFixture.h"
#include "LogCapture.h"
#include "ScriptedAlerter.h"
#include "foundation/Threading.h"
#include "operations/CommandsInstallation.h"
#include "operations/CompanionCommands.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int finishTimeout = 60000;

const QString processError = u"Process terminated with an error"_s;

enum class Machine {
    noHomebrew,
    withoutCommands,
    withCommands,
};

struct World : HomebrewFixture {
    CompanionCommands companion{installation, commands};
    ScriptedAlerter alerter;

    bool setUp(Machine machine, const QJsonObject& faults = {})
    {
        if (machine == Machine::noHomebrew) {
            return true;
        }
        QJsonArray taps{"homebrew/cask", "homebrew/core"};
        if (machine == Machine::withCommands) {
            taps.append(CompanionCommands::tapName);
        }
        return simulate(QJsonObject{{"taps", taps}, {"faults", faults}});
    }

    QList<QStringList> vectors() const
    {
        QList<QStringList> list;
        if (brew) {
            for (const SimulatedHomebrew::Invocation& invocation : brew->invocations()) {
                list.append(invocation.arguments);
            }
        }
        return list;
    }
};

} // namespace

Q_DECLARE_METATYPE(Machine)

class TestRepositoriesCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void detection_data();
    void detection();
    void install_data();
    void install();
    void requirements_data();
    void requirements();
    void requirementsRunOneAtATime();
    void repositoryPage_data();
    void repositoryPage();
};

void TestRepositoriesCommands::detection_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<bool>("expected");

    QTest::newRow("Homebrew missing") << Machine::noHomebrew << false;
    QTest::newRow("commands not tapped") << Machine::withoutCommands << false;
    QTest::newRow("commands tapped") << Machine::withCommands << true;
}

void TestRepositoriesCommands::detection()
{
    QFETCH(Machine, machine);
    QFETCH(bool, expected);

    World world;
    QVERIFY(world.setUp(machine));
    QCOMPARE(world.companion.installed(), expected);
    // Found out from the files alone.
    QVERIFY(world.vectors().isEmpty());
}

void TestRepositoriesCommands::install_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("expectedError"); // empty on success

    QTest::newRow("tapped") << QJsonObject() << QString();
    QTest::newRow("brew fails") << QJsonObject{{"failCommands", QJsonArray{"tap"}}} << processError;
}

void TestRepositoriesCommands::install()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QString, expectedError);

    World world;
    QVERIFY(world.setUp(Machine::withoutCommands, faults));
    std::optional<Result<void>> outcome;
    QObject context;
    Threading::runAsync<Result<void>>([&] { return world.companion.install(); }, &context,
                                      [&](Result<void> result) { outcome.emplace(std::move(result)); });
    QTRY_VERIFY_WITH_TIMEOUT(outcome.has_value(), finishTimeout);

    QCOMPARE(outcome->ok() ? QString() : outcome->error().description(), expectedError);
    QCOMPARE(world.vectors(), (QList<QStringList>{{"tap", "tesselworks/corvel-cmd"}}));
    // Silent: no activity, nothing in the transcript.
    QVERIFY(world.activityCenter.activities().isEmpty());
    QVERIFY(world.transcript.isEmpty());
    if (expectedError.isEmpty()) {
        QVERIFY(world.companion.installed());
        QCOMPARE(world.companion.version().value_or(u"none"_s), u"1.0.0"_s);
    }
}

void TestRepositoriesCommands::requirements_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QStringList>("expectedTexts");
    QTest::addColumn<CommandsInstallation::Outcome>("expectedOutcome");
    QTest::addColumn<QList<QStringList>>("expectedVectors");
    QTest::addColumn<QStringList>("expectedLog");
    QTest::addColumn<QString>("expectedAlert");

    const QString checkingHomebrew = u"Checking Homebrew installation..."_s;
    const QString checkingCommands = u"Checking commands installation..."_s;
    const QString installing = u"Installing commands..."_s;
    const QList<QStringList> tap{{"tap", "tesselworks/corvel-cmd"}};

    QTest::newRow("Homebrew missing") << Machine::noHomebrew << QJsonObject() << QStringList{checkingHomebrew}
                                      << CommandsInstallation::Outcome::homebrewMissing << QList<QStringList>()
                                      << QStringList() << QString();
    QTest::newRow("already installed") << Machine::withCommands << QJsonObject()
                                       << QStringList{checkingHomebrew, checkingCommands}
                                       << CommandsInstallation::Outcome::completed << QList<QStringList>()
                                       << QStringList() << QString();
    QTest::newRow("installed now") << Machine::withoutCommands << QJsonObject()
                                   << QStringList{checkingHomebrew, checkingCommands, installing}
                                   << CommandsInstallation::Outcome::completed << tap
                                   << QStringList{"Homebrew commands installed"} << QString();
    QTest::newRow("installation fails") << Machine::withoutCommands << QJsonObject{{"failCommands", QJsonArray{"tap"}}}
                                        << QStringList{checkingHomebrew, checkingCommands, installing}
                                        << CommandsInstallation::Outcome::failed << tap
                                        << QStringList{"Failed to install Homebrew commands"}
                                        << u"Impossible to install commands"_s;
}

void TestRepositoriesCommands::requirements()
{
    QFETCH(Machine, machine);
    QFETCH(QJsonObject, faults);
    QFETCH(QStringList, expectedTexts);
    QFETCH(CommandsInstallation::Outcome, expectedOutcome);
    QFETCH(QList<QStringList>, expectedVectors);
    QFETCH(QStringList, expectedLog);
    QFETCH(QString, expectedAlert);

    World world;
    QVERIFY(world.setUp(machine, faults));
    CommandsInstallation step(world.installation, world.companion, world.alerter);
    QSignalSpy texts(&step, &CommandsInstallation::statusTextChanged);
    QSignalSpy finished(&step, &CommandsInstallation::finished);
    LogCapture log;
    if (!expectedAlert.isEmpty()) {
        world.alerter.answerNext(u"OK"_s);
    }

    QVERIFY(step.start());
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, finishTimeout);
    QCOMPARE(finished.first().at(0).value<CommandsInstallation::Outcome>(), expectedOutcome);
    QVERIFY(!step.isRunning());

    QStringList shown;
    for (const QList<QVariant>& emission : std::as_const(texts)) {
        shown.append(emission.at(0).toString());
    }
    QCOMPARE(shown, expectedTexts);
    QCOMPARE(step.statusText(), expectedTexts.last());
    QCOMPARE(world.vectors(), expectedVectors);
    QCOMPARE(log.texts(), expectedLog);
    if (!expectedLog.isEmpty()) {
        QCOMPARE(log.lines().first().type,
                 expectedOutcome == CommandsInstallation::Outcome::failed ? QtWarningMsg : QtInfoMsg);
    }
    QCOMPARE(world.alerter.shown().size(), expectedAlert.isEmpty() ? 0 : 1);
    if (!expectedAlert.isEmpty()) {
        QCOMPARE(world.alerter.shown().first().message, expectedAlert);
    }
    QCOMPARE(world.companion.installed(), expectedOutcome == CommandsInstallation::Outcome::completed);
}

void TestRepositoriesCommands::requirementsRunOneAtATime()
{
    World world;
    QVERIFY(world.setUp(Machine::withoutCommands));
    CommandsInstallation step(world.installation, world.companion, world.alerter);
    QSignalSpy finished(&step, &CommandsInstallation::finished);

    QVERIFY(step.start());
    QVERIFY(step.isRunning());
    QVERIFY(!step.start());
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, finishTimeout);
    QCOMPARE(world.vectors().size(), 1);
    // Once done it may run again, and now finds the commands.
    QVERIFY(step.start());
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, finishTimeout);
    QCOMPARE(finished.last().at(0).value<CommandsInstallation::Outcome>(), CommandsInstallation::Outcome::completed);
    QCOMPARE(world.vectors().size(), 1);
}

void TestRepositoriesCommands::repositoryPage_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("expected");

    QTest::newRow("GitHub") << u"https://github.com"_s << u"https://github.com/tesselworks/homebrew-corvel-cmd"_s;
    QTest::newRow("mirror with a path") << u"http://127.0.0.1:8080/mirror/"_s
                                        << u"http://127.0.0.1:8080/mirror/tesselworks/homebrew-corvel-cmd"_s;
}

void TestRepositoriesCommands::repositoryPage()
{
    QFETCH(QString, base);
    QFETCH(QString, expected);

    QCOMPARE(CompanionCommands::repositoryPage(QUrl(base)).toString(), expected);
}

QTEST_GUILESS_MAIN(TestRepositoriesCommands)
#include "TestRepositoriesCommands.moc"
