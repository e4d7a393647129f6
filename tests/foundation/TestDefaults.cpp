#include "LogCapture.h"
#include "foundation/Alerter.h"
#include "foundation/Bundle.h"
#include "foundation/DefaultSettings.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "foundation/PropertyList.h"
#include "foundation/UpdateChannels.h"
#include "foundation/ViewOptions.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <memory>

namespace {

const QString key = QStringLiteral("Key");
const QString resourcesDir = QStringLiteral(CORVEL_RESOURCES_SOURCE_DIR);

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QStringList signalledKeys(const QSignalSpy& spy)
{
    QStringList keys;
    for (const QList<QVariant>& arguments : spy) {
        keys.append(arguments.at(0).toString());
    }
    return keys;
}

} // namespace

class TestDefaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void typedValues_data();
    void typedValues();
    void valuesFromIniText_data();
    void valuesFromIniText();
    void dateValue_data();
    void dateValue();
    void stringArrayDictionary_data();
    void stringArrayDictionary();
    void writtenBeatsRegistered();
    void registrationIsNeverWritten();
    void changeSignals();
    void registrationSignals();
    void observeOneKey();
    void observeFromAnotherThread();
    void standardFollowsConfigHome();
    void resetViewOptions();
    void restoreSuppressedAlerts();
    void updateChannels_data();
    void updateChannels();
    void registerShippedDefaults();
    void unusableDefaultSettings_data();
    void unusableDefaultSettings();

private:
    QString settingsPath() const { return m_dir->filePath(QStringLiteral("prefs.conf")); }

    QTemporaryDir m_configHome;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
};

void TestDefaults::initTestCase()
{
    QVERIFY(m_configHome.isValid());
    // Nothing here may touch the real user's preferences.
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_configHome.path()));
}

void TestDefaults::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(settingsPath());
}

void TestDefaults::cleanup()
{
    m_defaults.reset();
    m_dir.reset();
}

// Each row: what is registered, what is written (invalid = nothing), and what each getter then reads.
void TestDefaults::typedValues_data()
{
    QTest::addColumn<QVariant>("registered");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<bool>("asBool");
    QTest::addColumn<qint64>("asInteger");
    QTest::addColumn<double>("asDouble");
    QTest::addColumn<QVariant>("asString");

    const QVariant none;
    QTest::newRow("neither") << none << none << false << qint64(0) << 0.0 << none;
    QTest::newRow("registered true") << QVariant(true) << none << true << qint64(1) << 1.0 << QVariant("true");
    QTest::newRow("written false over true")
        << QVariant(true) << QVariant(false) << false << qint64(0) << 0.0 << QVariant("false");
    QTest::newRow("registered integer") << QVariant(qint64(3)) << none << true << qint64(3) << 3.0 << QVariant("3");
    QTest::newRow("written zero over 3") << QVariant(qint64(3)) << QVariant(0) << false << qint64(0) << 0.0
                                         << QVariant("0");
    QTest::newRow("real") << none << QVariant(2.75) << true << qint64(2) << 2.75 << QVariant("2.75");
    QTest::newRow("negative real") << none << QVariant(-2.75) << true << qint64(-2) << -2.75 << QVariant("-2.75");
    QTest::newRow("text false") << none << QVariant("false") << false << qint64(0) << 0.0 << QVariant("false");
    QTest::newRow("text YES") << none << QVariant("YES") << true << qint64(1) << 1.0 << QVariant("YES");
    QTest::newRow("text number") << none << QVariant(" 12 ") << true << qint64(12) << 12.0 << QVariant(" 12 ");
    QTest::newRow("text word") << none << QVariant("hello") << false << qint64(0) << 0.0 << QVariant("hello");
    QTest::newRow("empty text") << none << QVariant("") << false << qint64(0) << 0.0 << QVariant("");
    QTest::newRow("list") << none << QVariant(QStringList{"a"}) << false << qint64(0) << 0.0 << none;
}

void TestDefaults::typedValues()
{
    QFETCH(QVariant, registered);
    QFETCH(QVariant, written);
    QFETCH(bool, asBool);
    QFETCH(qint64, asInteger);
    QFETCH(double, asDouble);
    QFETCH(QVariant, asString);

    if (registered.isValid()) {
        m_defaults->registerDefaults({{key, registered}});
    }
    if (written.isValid()) {
        m_defaults->setValue(key, written);
    }
    QCOMPARE(m_defaults->boolValue(key), asBool);
    QCOMPARE(m_defaults->integerValue(key), asInteger);
    QCOMPARE(m_defaults->doubleValue(key), asDouble);
    QCOMPARE(m_defaults->stringValue(key).has_value(), asString.isValid());
    if (asString.isValid()) {
        QCOMPARE(*m_defaults->stringValue(key), asString.toString());
    }
    QCOMPARE(m_defaults->isWritten(key), written.isValid());
}

// What a later run reads from the file: every scalar comes back as text.
void TestDefaults::valuesFromIniText_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("asBool");
    QTest::addColumn<qint64>("asInteger");
    QTest::addColumn<double>("asDouble");

    QTest::newRow("false") << QByteArray("Key=false") << false << qint64(0) << 0.0;
    QTest::newRow("true") << QByteArray("Key=true") << true << qint64(1) << 1.0;
    QTest::newRow("integer") << QByteArray("Key=3") << true << qint64(3) << 3.0;
    QTest::newRow("zero") << QByteArray("Key=0") << false << qint64(0) << 0.0;
    QTest::newRow("real") << QByteArray("Key=0.5") << true << qint64(0) << 0.5;
    QTest::newRow("large integer") << QByteArray("Key=9007199254740993") << true << qint64(9007199254740993)
                                   << 9007199254740993.0;
    QTest::newRow("empty") << QByteArray("Key=") << false << qint64(0) << 0.0;
}

void TestDefaults::valuesFromIniText()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, asBool);
    QFETCH(qint64, asInteger);
    QFETCH(double, asDouble);

    const QString path = m_dir->filePath(QStringLiteral("written-earlier.conf"));
    QVERIFY(writeFile(path, "[General]\n" + line + "\n"));
    Defaults defaults(path);
    // A registered value must not leak through a written one.
    defaults.registerDefaults({{key, 42}});
    QVERIFY(defaults.isWritten(key));
    QCOMPARE(defaults.boolValue(key), asBool);
    QCOMPARE(defaults.integerValue(key), asInteger);
    QCOMPARE(defaults.doubleValue(key), asDouble);
}

void TestDefaults::dateValue_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QDateTime>("expected");

    const QDateTime moment(QDate(2024, 1, 31), QTime(12, 0, 0, 250), Qt::UTC);
    QTest::newRow("date") << QVariant(moment) << moment;
    QTest::newRow("ISO text") << QVariant("2024-01-31T12:00:00Z")
                              << QDateTime(QDate(2024, 1, 31), QTime(12, 0), Qt::UTC);
    QTest::newRow("other text") << QVariant("last Tuesday") << QDateTime();
    QTest::newRow("number") << QVariant(17) << QDateTime();
    QTest::newRow("nothing") << QVariant() << QDateTime();
}

void TestDefaults::dateValue()
{
    QFETCH(QVariant, stored);
    QFETCH(QDateTime, expected);

    m_defaults->setValue(key, stored);
    m_defaults->sync();
    Defaults reopened(settingsPath());
    for (const Defaults* defaults : {m_defaults.get(), &reopened}) {
        const auto date = defaults->dateValue(key);
        QCOMPARE(date.has_value(), expected.isValid());
        if (date) {
            QCOMPARE(*date, expected);
        }
    }
}

void TestDefaults::stringArrayDictionary_data()
{
    QTest::addColumn<QStringList>("apps");
    QTest::addColumn<QStringList>("scripts");

    QTest::newRow("several") << QStringList{"firefox", "visual studio code"} << QStringList{"wget", "jq", "gh"};
    QTest::newRow("one each") << QStringList{"zoom"} << QStringList{"git"};
    QTest::newRow("one empty") << QStringList() << QStringList{"a,b", "c=d"};
}

void TestDefaults::stringArrayDictionary()
{
    QFETCH(QStringList, apps);
    QFETCH(QStringList, scripts);

    const QMap<QString, QStringList> recent{{QStringLiteral("apps"), apps}, {QStringLiteral("scripts"), scripts}};
    m_defaults->setStringArrayDictionary(PreferenceKeys::MainWindowRecentSearches, recent);
    QCOMPARE(m_defaults->stringArrayDictionary(PreferenceKeys::MainWindowRecentSearches), recent);
    m_defaults->sync();
    QCOMPARE(Defaults(settingsPath()).stringArrayDictionary(PreferenceKeys::MainWindowRecentSearches), recent);
}

void TestDefaults::writtenBeatsRegistered()
{
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);
    m_defaults->registerDefaults({{key, 3}});
    m_defaults->setValue(key, 5);
    QCOMPARE(m_defaults->integerValue(key), 5);
    m_defaults->registerDefaults({{key, 4}});
    QCOMPARE(m_defaults->integerValue(key), 5);

    m_defaults->remove(key);
    QVERIFY(!m_defaults->isWritten(key));
    QCOMPARE(m_defaults->integerValue(key), 4);
    QCOMPARE(m_defaults->registeredDefaults(), QVariantMap({{key, 4}}));
    // Registering, writing and removing each changed the value once; the second registration was hidden.
    QCOMPARE(spy.count(), 3);
}

void TestDefaults::registrationIsNeverWritten()
{
    m_defaults->registerDefaults({{key, true}});
    m_defaults->setValue(QStringLiteral("Other"), 1);
    m_defaults->sync();
    QFile file(settingsPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QVERIFY(text.contains("Other=1"));
    QVERIFY(!text.contains("Key"));
    Defaults reopened(settingsPath());
    QVERIFY(!reopened.isWritten(key));
    QVERIFY(!reopened.value(key).isValid());
    QVERIFY(!reopened.boolValue(key));
    QCOMPARE(reopened.integerValue(QStringLiteral("Other")), 1);
}

void TestDefaults::changeSignals()
{
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);
    m_defaults->setValue(key, 1);
    QCOMPARE(signalledKeys(spy), QStringList{key});
    m_defaults->setValue(key, 1);
    QCOMPARE(spy.count(), 1);
    m_defaults->setValue(key, 2);
    QCOMPARE(spy.count(), 2);
    m_defaults->remove(key);
    QCOMPARE(spy.count(), 3);
    m_defaults->remove(key);
    QCOMPARE(spy.count(), 3);
    // Writing an invalid value is removing; there is nothing left to remove.
    m_defaults->setValue(key, QVariant());
    QCOMPARE(spy.count(), 3);
    QCOMPARE(signalledKeys(spy), QStringList({key, key, key}));
}

void TestDefaults::registrationSignals()
{
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);
    m_defaults->setValue(QStringLiteral("Written"), 1);
    spy.clear();

    m_defaults->registerDefaults({{QStringLiteral("A"), 1}, {QStringLiteral("B"), 2}, {QStringLiteral("Written"), 9}});
    QCOMPARE(signalledKeys(spy), QStringList({QStringLiteral("A"), QStringLiteral("B")}));
    spy.clear();

    m_defaults->registerDefaults({{QStringLiteral("A"), 1}, {QStringLiteral("B"), 3}});
    QCOMPARE(signalledKeys(spy), QStringList{QStringLiteral("B")});
    spy.clear();

    m_defaults->registerDefaults({});
    QCOMPARE(signalledKeys(spy), QStringList({QStringLiteral("A"), QStringLiteral("B")}));
    QVERIFY(!m_defaults->value(QStringLiteral("A")).isValid());
}

void TestDefaults::observeOneKey()
{
    int calls = 0;
    auto context = std::make_unique<QObject>();
    m_defaults->observe(PreferenceKeys::TableStyle, context.get(), [&calls] { ++calls; });
    m_defaults->setValue(PreferenceKeys::TableColumnSizing, 1);
    QCOMPARE(calls, 0);
    m_defaults->setValue(PreferenceKeys::TableStyle, 1);
    QCOMPARE(calls, 1);
    context.reset();
    m_defaults->setValue(PreferenceKeys::TableStyle, 2);
    QCOMPARE(calls, 1);
}

void TestDefaults::observeFromAnotherThread()
{
    QThread* observedOn = nullptr;
    int calls = 0;
    QObject context;
    m_defaults->observe(key, &context, [&] {
        observedOn = QThread::currentThread();
        ++calls;
    });
    QThread* emittedOn = nullptr;
    connect(
        m_defaults.get(), &Defaults::valueChanged, m_defaults.get(),
        [&emittedOn] { emittedOn = QThread::currentThread(); }, Qt::DirectConnection);

    std::unique_ptr<QThread> writer(QThread::create([this] { m_defaults->setValue(key, 7); }));
    writer->start();
    QVERIFY(writer->wait(60000));
    QCOMPARE(emittedOn, writer.get());
    QTRY_COMPARE(calls, 1);
    QCOMPARE(observedOn, QThread::currentThread());
    QCOMPARE(m_defaults->integerValue(key), 7);
}

void TestDefaults::standardFollowsConfigHome()
{
    const QString expected = m_configHome.path() + QStringLiteral("/works.tessel.corvel/Corvel X.conf");
    QCOMPARE(Defaults::standardFilePath(), expected);
    QCOMPARE(Defaults::standard().filePath(), expected);
    QCOMPARE(&Defaults::standard(), &Defaults::standard());
    Defaults::standard().setValue(key, QStringLiteral("kept"));
    Defaults::standard().sync();
    QVERIFY(QFileInfo::exists(expected));
    QCOMPARE(Defaults(expected).stringValue(key), std::optional(QStringLiteral("kept")));
}

void TestDefaults::resetViewOptions()
{
    m_defaults->registerDefaults({{PreferenceKeys::TableShowUpgradesAbove, true},
                                  {PreferenceKeys::TableStyle, 2},
                                  {PreferenceKeys::TableColumnSizing, 0},
                                  {PreferenceKeys::TranscriptFontStyle, 0}});
    m_defaults->setValue(PreferenceKeys::TableColumnSizing, 1);
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);

    ViewOptions::reset(*m_defaults);

    const QStringList keys{PreferenceKeys::TableShowUpgradesAbove, PreferenceKeys::TableStyle,
                           PreferenceKeys::TableColumnSizing, PreferenceKeys::TranscriptFontStyle};
    QCOMPARE(signalledKeys(spy), keys);
    for (const QString& written : keys) {
        QVERIFY2(m_defaults->isWritten(written), qPrintable(written));
        QCOMPARE(m_defaults->integerValue(written), 0);
    }
    QVERIFY(!m_defaults->boolValue(PreferenceKeys::TableShowUpgradesAbove));

    // Written explicitly: later registrations no longer move them.
    m_defaults->registerDefaults({{PreferenceKeys::TableStyle, 3}, {PreferenceKeys::TranscriptFontStyle, 1}});
    QCOMPARE(m_defaults->integerValue(PreferenceKeys::TableStyle), 0);
    QCOMPARE(m_defaults->integerValue(PreferenceKeys::TranscriptFontStyle), 0);
}

void TestDefaults::restoreSuppressedAlerts()
{
    const QStringList suppressions{PreferenceKeys::SuppressReinstallAlert, PreferenceKeys::SuppressUpgradeAllAlert,
                                   PreferenceKeys::SuppressMoveToAlert};
    for (const QString& suppression : suppressions) {
        m_defaults->setValue(suppression, true);
    }
    m_defaults->setValue(PreferenceKeys::AllowDataCollection, true);
    m_defaults->setValue(QStringLiteral("SuppressSomethingElse"), true);
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);

    Alerter::restoreSuppressedAlerts(*m_defaults);

    const QStringList removed = signalledKeys(spy);
    QCOMPARE(QSet<QString>(removed.cbegin(), removed.cend()),
             QSet<QString>(suppressions.cbegin(), suppressions.cend()));
    for (const QString& suppression : suppressions) {
        QVERIFY(!m_defaults->isWritten(suppression));
        QVERIFY(!m_defaults->boolValue(suppression));
    }
    QVERIFY(m_defaults->boolValue(PreferenceKeys::AllowDataCollection));
    QVERIFY(m_defaults->boolValue(QStringLiteral("SuppressSomethingElse")));
}

void TestDefaults::updateChannels_data()
{
    QTest::addColumn<QVariant>("registered");
    QTest::addColumn<QByteArray>("iniLine");
    QTest::addColumn<bool>("beta");

    QTest::newRow("unset") << QVariant() << QByteArray() << false;
    QTest::newRow("registered false") << QVariant(false) << QByteArray() << false;
    QTest::newRow("registered true") << QVariant(true) << QByteArray() << true;
    QTest::newRow("written false over true") << QVariant(true) << QByteArray("ReceiveBetaUpdates=false") << false;
    QTest::newRow("written true") << QVariant() << QByteArray("ReceiveBetaUpdates=true") << true;
}

void TestDefaults::updateChannels()
{
    QFETCH(QVariant, registered);
    QFETCH(QByteArray, iniLine);
    QFETCH(bool, beta);

    QVERIFY(writeFile(settingsPath() + QStringLiteral(".channels"), "[General]\n" + iniLine + "\n"));
    Defaults defaults(settingsPath() + QStringLiteral(".channels"));
    if (registered.isValid()) {
        defaults.registerDefaults({{PreferenceKeys::ReceiveBetaUpdates, registered}});
    }
    const QSet<QString> expected = beta ? QSet<QString>{QStringLiteral("beta")} : QSet<QString>();
    QCOMPARE(UpdateChannels::allowed(defaults), expected);
}

void TestDefaults::registerShippedDefaults()
{
    QVERIFY(QFile::copy(resourcesDir + QStringLiteral("/DefaultSettings.plist"),
                        m_dir->filePath(QStringLiteral("DefaultSettings.plist"))));
    const Bundle bundle(m_dir->path());
    LogCapture log;

    QVERIFY(DefaultSettings::registerFromBundle(bundle, *m_defaults));

    QVERIFY(log.contains(QStringLiteral("Loading default settings")));
    for (const LogCapture::Line& line : log.lines()) {
        if (line.text == u"Loading default settings") {
            QCOMPARE(line.type, QtInfoMsg);
        }
    }
    QVERIFY(m_defaults->boolValue(PreferenceKeys::TranscriptPaneVisible));
    QCOMPARE(m_defaults->doubleValue(PreferenceKeys::TranscriptPaneThickness), 200.0);
    QVERIFY(m_defaults->boolValue(PreferenceKeys::IsFirstRun));
    QVERIFY(m_defaults->boolValue(PreferenceKeys::SyncOnAppLaunch));
    QCOMPARE(UpdateChannels::allowed(*m_defaults), QSet<QString>());
    QVERIFY(!m_defaults->isWritten(PreferenceKeys::IsFirstRun));
}

void TestDefaults::unusableDefaultSettings_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("missing") << QByteArray();
    QTest::newRow("array") << PropertyList::serialize(QVariantList{QStringLiteral("IsFirstRun")});
    QTest::newRow("malformed") << QByteArray("<plist><dict><key>IsFirstRun</key></dict></plist>");
    QTest::newRow("empty file") << QByteArray("");
}

void TestDefaults::unusableDefaultSettings()
{
    QFETCH(QByteArray, content);
    if (!content.isNull()) {
        QVERIFY(writeFile(m_dir->filePath(QStringLiteral("DefaultSettings.plist")), content));
    }
    const Bundle bundle(m_dir->path());
    QSignalSpy spy(m_defaults.get(), &Defaults::valueChanged);
    LogCapture log;

    QVERIFY(!DefaultSettings::registerFromBundle(bundle, *m_defaults));

    QVERIFY(!log.contains(QStringLiteral("Loading default settings")));
    for (const LogCapture::Line& line : log.lines()) {
        QVERIFY2(line.type == QtDebugMsg, qPrintable(line.text));
    }
    QVERIFY(m_defaults->registeredDefaults().isEmpty());
    QCOMPARE(spy.count(), 0);
}

QTEST_GUILESS_MAIN(TestDefaults)
#include "TestDefaults.moc"
