#include "LogCapture.h"
#include "foundation/Alerter.h"
#include "foundation/Bundle.h"
#include "foundation/DefaultSettings.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"
#include "foundation/UpdateChannels.h"
#include "foundation/ViewOptions.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QString key = QStringLiteral("Key");

// Every typed reading of a key at once: bool, integer, real, text and date ("-" for absent).
QString readings(const Defaults& defaults)
{
    const auto date = defaults.dateValue(key);
    return QStringList{defaults.boolValue(key) ? "true" : "false", QString::number(defaults.integerValue(key)),
                       QString::number(defaults.doubleValue(key)), defaults.stringValue(key).value_or("-"),
                       date ? date->toString(Qt::ISODateWithMs) : "-"}
        .join(u' ');
}

// The keys announced so far, forgetting them.
QStringList takeKeys(QSignalSpy& spy)
{
    QStringList keys;
    for (const QList<QVariant>& arguments : std::as_const(spy)) {
        keys.append(arguments.at(0).toString());
    }
    spy.clear();
    return keys;
}

} // namespace

class TestDefaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void typedValues_data();
    void typedValues();
    void stringArrayDictionary();
    void changeSignals();
    void observeOneKey();
    void standardFollowsConfigHome();
    void resetViewOptions();
    void restoreSuppressedAlerts();
    void updateChannels();
    void registerFromBundle_data();
    void registerFromBundle();

private:
    QString path() const { return m_dir->filePath("prefs.conf"); }
    std::unique_ptr<Defaults> nextRun();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    int m_runs = 0;
};

void TestDefaults::init()
{
    m_defaults.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(path());
}

// What the next run of the application reads. QSettings shares one cache per file name within a process, so only
// a copy of the file is read from disk afresh.
std::unique_ptr<Defaults> TestDefaults::nextRun()
{
    m_defaults->sync();
    const QString copy = m_dir->filePath(QString("run%1.conf").arg(++m_runs));
    return QFile::copy(path(), copy) ? std::make_unique<Defaults>(copy) : nullptr;
}

// A reopened file hands every scalar back as text, the way the next run of the application reads it.
void TestDefaults::typedValues_data()
{
    QTest::addColumn<QVariant>("registered");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<bool>("reopen");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* tag, const QVariant& registered, const QVariant& written, bool reopen,
                        const char* expected) {
        QTest::newRow(tag) << registered << written << reopen << QString(expected);
    };
    const QVariant none;
    const QDateTime moment(QDate(2024, 1, 31), QTime(12, 0, 0, 250), Qt::UTC);

    row("neither", none, none, false, "false 0 0 - -");
    row("registered", true, none, false, "true 1 1 true -");
    row("written over registered", 3, 0, false, "false 0 0 0 -");
    row("list is not text", none, QStringList{"a"}, false, "false 0 0 - -");
    row("reopened false over true", true, false, true, "false 0 0 false -");
    row("reopened true", none, true, true, "true 0 0 true -");
    row("reopened integer", 42, 3, true, "true 3 3 3 -");
    row("reopened real", none, 0.5, true, "true 0 0.5 0.5 -");
    row("reopened empty text", none, "", true, "false 0 0  -");
    row("reopened date", none, moment, true, "false 0 0 - 2024-01-31T12:00:00.250Z");
}

void TestDefaults::typedValues()
{
    QFETCH(QVariant, registered);
    QFETCH(QVariant, written);
    QFETCH(bool, reopen);
    QFETCH(QString, expected);

    m_defaults->setValue(key, written);
    if (reopen) {
        m_defaults = nextRun();
        QVERIFY(m_defaults);
    }
    m_defaults->registerDefaults({{key, registered}});
    QCOMPARE(readings(*m_defaults), expected);
    QCOMPARE(m_defaults->isWritten(key), written.isValid());
}

void TestDefaults::stringArrayDictionary()
{
    const QMap<QString, QStringList> recent{{"0", {"firefox", "visual studio code"}}, {"1", {}}, {"2", {"a,b", "c=d"}}};
    m_defaults->setStringArrayDictionary(PreferenceKeys::MainWindowRecentSearches, recent);
    QCOMPARE(m_defaults->stringArrayDictionary(PreferenceKeys::MainWindowRecentSearches), recent);
    const auto reopened = nextRun();
    QVERIFY(reopened);
    QCOMPARE(reopened->stringArrayDictionary(PreferenceKeys::MainWindowRecentSearches), recent);
}

// One announcement per change of a key's effective value, and none for a write or registration that changes nothing.
void TestDefaults::changeSignals()
{
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);
    m_defaults->registerDefaults({{"A", 3}, {"B", 1}});
    QCOMPARE(takeKeys(spy), QStringList({"A", "B"}));
    m_defaults->setValue("A", 5);
    m_defaults->setValue("A", 5);
    QCOMPARE(takeKeys(spy), QStringList{"A"});
    m_defaults->registerDefaults({{"A", 4}, {"B", 1}});
    QCOMPARE(takeKeys(spy), QStringList());
    QCOMPARE(m_defaults->integerValue("A"), 5);

    m_defaults->remove("A");
    QCOMPARE(m_defaults->integerValue("A"), 4);
    m_defaults->remove("A");
    m_defaults->setValue("A", QVariant());
    QCOMPARE(takeKeys(spy), QStringList{"A"});

    m_defaults->registerDefaults({});
    QCOMPARE(takeKeys(spy), QStringList({"A", "B"}));
    QVERIFY(!m_defaults->value("A").isValid());

    // The value read back from the file is text; writing the same number over it changes nothing.
    m_defaults->setValue("C", 2.5);
    const auto reopened = nextRun();
    QVERIFY(reopened && !reopened->isWritten("B"));
    QSignalSpy reopenedSpy(reopened.get(), &Defaults::valueChanged);
    reopened->setValue("C", 2.5);
    QCOMPARE(reopenedSpy.count(), 0);
}

void TestDefaults::observeOneKey()
{
    int calls = 0;
    auto context = std::make_unique<QObject>();
    m_defaults->observe(key, context.get(), [&calls] { ++calls; });
    m_defaults->setValue("Other", 1);
    m_defaults->setValue(key, 7);
    QCOMPARE(calls, 1);
    context.reset();
    m_defaults->setValue(key, 8);
    QCOMPARE(calls, 1);
}

void TestDefaults::standardFollowsConfigHome()
{
    // Nothing here may touch the real user's preferences.
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir->path()));
    QCOMPARE(Defaults::standard().filePath(), m_dir->path() + "/works.tessel.corvel/Corvel X.conf");
}

void TestDefaults::resetViewOptions()
{
    const QStringList keys{PreferenceKeys::TableShowUpgradesAbove, PreferenceKeys::TableStyle,
                           PreferenceKeys::TableColumnSizing, PreferenceKeys::TranscriptFontStyle};
    m_defaults->registerDefaults({{keys[0], true}, {keys[1], 2}, {keys[2], 0}, {keys[3], 0}});
    m_defaults->setValue(keys[2], 1);
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);

    ViewOptions::reset(*m_defaults);
    QCOMPARE(takeKeys(spy), keys);
    // Written explicitly, even where the registered value was the same: later registrations no longer move them.
    m_defaults->registerDefaults({{keys[0], true}, {keys[1], 3}, {keys[2], 1}, {keys[3], 1}});
    for (const QString& written : keys) {
        QVERIFY2(m_defaults->isWritten(written) && m_defaults->integerValue(written) == 0, qPrintable(written));
    }
    QVERIFY(!m_defaults->boolValue(keys[0]));
}

void TestDefaults::restoreSuppressedAlerts()
{
    const QStringList others{PreferenceKeys::AllowDataCollection, "SuppressOther"};
    const QStringList suppressions{"SuppressMoveToAlert", "SuppressReinstallAlert", "SuppressUpgradeAllAlert"};
    for (const QString& written : suppressions + others) {
        m_defaults->setValue(written, true);
    }
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);

    Alerter::restoreSuppressedAlerts(*m_defaults);
    QStringList removed = takeKeys(spy);
    removed.sort();
    QCOMPARE(removed, suppressions);
    for (const QString& written : suppressions + others) {
        QCOMPARE(m_defaults->isWritten(written), others.contains(written));
    }
}

void TestDefaults::updateChannels()
{
    const auto allowed = [this](const QVariant& registered, const QVariant& written) {
        m_defaults->registerDefaults({{PreferenceKeys::ReceiveBetaUpdates, registered}});
        m_defaults->setValue(PreferenceKeys::ReceiveBetaUpdates, written);
        return UpdateChannels::allowed(*m_defaults);
    };
    QCOMPARE(allowed({}, {}), QSet<QString>());
    QCOMPARE(allowed(false, {}), QSet<QString>());
    QCOMPARE(allowed(true, {}), QSet<QString>{"beta"});
    QCOMPARE(allowed(true, false), QSet<QString>());
}

// A null content means no DefaultSettings.plist in the bundle.
void TestDefaults::registerFromBundle_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("usable");
    QFile shipped(CORVEL_RESOURCES_SOURCE_DIR "/DefaultSettings.plist");
    QVERIFY(shipped.open(QIODevice::ReadOnly));
    QTest::newRow("shipped") << shipped.readAll() << true;
    QTest::newRow("missing") << QByteArray() << false;
    QTest::newRow("array") << PropertyList::serialize(QVariantList{"IsFirstRun"}) << false;
    QTest::newRow("malformed") << QByteArray("<plist><dict><key>IsFirstRun</key></dict></plist>") << false;
}

void TestDefaults::registerFromBundle()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, usable);
    QFile file(m_dir->filePath("DefaultSettings.plist"));
    QVERIFY(content.isNull() || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
    file.close();
    LogCapture log;

    QCOMPARE(DefaultSettings::registerFromBundle(Bundle(m_dir->path()), *m_defaults), usable);
    // One line at info level when registered; a packaging fault is not reported to the user.
    for (const LogCapture::Line& line : log.lines()) {
        QVERIFY2(line.type == (usable ? QtInfoMsg : QtDebugMsg), qPrintable(line.text));
    }
    QCOMPARE(log.contains("Loading default settings"), usable);
    QCOMPARE(m_defaults->registeredDefaults().isEmpty(), !usable);
    QCOMPARE(m_defaults->boolValue(PreferenceKeys::IsFirstRun) &&
                 m_defaults->boolValue(PreferenceKeys::TranscriptPaneVisible),
             usable);
}

QTEST_GUILESS_MAIN(TestDefaults)
#include "TestDefaults.moc"
