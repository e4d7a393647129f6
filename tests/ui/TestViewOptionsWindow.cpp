// The view options window over a real preferences file: its controls follow the preferences, a person's choices
// are written, and the reset writes every option explicitly.
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/PreferenceCheckBox.h"
#include "ui/PreferenceComboBox.h"
#include "ui/ViewOptionsWindowController.h"

#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QStringList optionKeys{PreferenceKeys::TableShowUpgradesAbove, PreferenceKeys::TableStyle,
                             PreferenceKeys::TableColumnSizing, PreferenceKeys::TranscriptFontStyle};

PreferenceComboBox* comboFor(const ViewOptionsWindowController& window, const QString& key)
{
    if (key == PreferenceKeys::TableStyle) {
        return window.tableStyleComboBox();
    }
    if (key == PreferenceKeys::TableColumnSizing) {
        return window.columnSizingComboBox();
    }
    return key == PreferenceKeys::TranscriptFontStyle ? window.transcriptFontComboBox() : nullptr;
}

} // namespace

class TestViewOptionsWindow : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void resetWritesEveryOption_data();
    void resetWritesEveryOption();
    void choicesFollowThePreferences_data();
    void choicesFollowThePreferences();
    void choosingWritesThePreference_data();
    void choosingWritesThePreference();
    void checkBoxFollowsAndWrites();

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Defaults> m_defaults;
};

void TestViewOptionsWindow::init()
{
    m_defaults.reset();
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_defaults = std::make_unique<Defaults>(m_folder->filePath("settings.ini"));
}

void TestViewOptionsWindow::resetWritesEveryOption_data()
{
    QTest::addColumn<QVariantMap>("registered");
    QTest::addColumn<QVariantMap>("written");

    QTest::newRow("never written nor registered") << QVariantMap() << QVariantMap();
    QTest::newRow("registered only") << QVariantMap{{PreferenceKeys::TableShowUpgradesAbove, true},
                                                    {PreferenceKeys::TableStyle, 4},
                                                    {PreferenceKeys::TableColumnSizing, 6},
                                                    {PreferenceKeys::TranscriptFontStyle, 1}}
                                     << QVariantMap();
    QTest::newRow("all changed") << QVariantMap()
                                 << QVariantMap{{PreferenceKeys::TableShowUpgradesAbove, true},
                                                {PreferenceKeys::TableStyle, 3},
                                                {PreferenceKeys::TableColumnSizing, 7},
                                                {PreferenceKeys::TranscriptFontStyle, 1}};
    QTest::newRow("values without entries")
        << QVariantMap() << QVariantMap{{PreferenceKeys::TableStyle, 5}, {PreferenceKeys::TableColumnSizing, 2}};
}

void TestViewOptionsWindow::resetWritesEveryOption()
{
    QFETCH(QVariantMap, registered);
    QFETCH(QVariantMap, written);

    m_defaults->registerDefaults(registered);
    for (auto it = written.begin(); it != written.end(); ++it) {
        m_defaults->setValue(it.key(), it.value());
    }
    ViewOptionsWindowController window(*m_defaults);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QSignalSpy changes(m_defaults.get(), &Defaults::valueChanged);

    QTest::mouseClick(window.resetButton(), Qt::LeftButton);

    // Written, not merely equal to a default: the keys no longer follow the registration defaults.
    for (const QString& key : optionKeys) {
        QVERIFY2(m_defaults->isWritten(key), qPrintable(key));
    }
    QCOMPARE(m_defaults->boolValue(PreferenceKeys::TableShowUpgradesAbove), false);
    QCOMPARE(m_defaults->integerValue(PreferenceKeys::TableStyle), 0);
    QCOMPARE(m_defaults->integerValue(PreferenceKeys::TableColumnSizing), 0);
    QCOMPARE(m_defaults->integerValue(PreferenceKeys::TranscriptFontStyle), 0);
    m_defaults->sync();
    QSettings file(m_defaults->filePath(), QSettings::IniFormat);
    for (const QString& key : optionKeys) {
        QVERIFY2(file.contains(key), qPrintable(key));
    }
    m_defaults->registerDefaults(QVariantMap{{PreferenceKeys::TableStyle, 6}});
    QCOMPARE(m_defaults->integerValue(PreferenceKeys::TableStyle), 0);

    // Every key is announced once, in the window's order, so that observers hear of each.
    QStringList announced;
    for (const QList<QVariant>& change : std::as_const(changes)) {
        announced.append(change.first().toString());
    }
    QCOMPARE(announced, optionKeys);

    // The window shows the reset values.
    QVERIFY(!window.showUpgradesAboveCheckBox()->isChecked());
    QCOMPARE(window.tableStyleComboBox()->currentValue(), 0);
    QCOMPARE(window.columnSizingComboBox()->currentValue(), 0);
    QCOMPARE(window.transcriptFontComboBox()->currentValue(), 0);
}

void TestViewOptionsWindow::choicesFollowThePreferences_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("stored");
    QTest::addColumn<int>("shown");

    // The entries that choosingWritesThePreference does not reach, and the values without an entry.
    QTest::newRow("style horizontal solid") << PreferenceKeys::TableStyle << 2 << 2;
    QTest::newRow("style grid") << PreferenceKeys::TableStyle << 4 << 4;
    QTest::newRow("style 1 looks like alternating") << PreferenceKeys::TableStyle << 1 << 0;
    QTest::newRow("sizing uniform") << PreferenceKeys::TableColumnSizing << 1 << 1;
    QTest::newRow("sizing sequential") << PreferenceKeys::TableColumnSizing << 3 << 3;
    QTest::newRow("sizing first column") << PreferenceKeys::TableColumnSizing << 6 << 6;
    QTest::newRow("sizing 2 is none") << PreferenceKeys::TableColumnSizing << 2 << 0;
    QTest::newRow("transcript system font") << PreferenceKeys::TranscriptFontStyle << 1 << 1;
    QTest::newRow("transcript unknown is monospaced") << PreferenceKeys::TranscriptFontStyle << 9 << 0;
}

void TestViewOptionsWindow::choicesFollowThePreferences()
{
    QFETCH(QString, key);
    QFETCH(int, stored);
    QFETCH(int, shown);

    // Both at opening and when the key changes while the window is open.
    ViewOptionsWindowController window(*m_defaults);
    PreferenceComboBox* combo = comboFor(window, key);
    QVERIFY(combo);
    QCOMPARE(combo->currentValue(), 0);
    m_defaults->setValue(key, stored);
    QTRY_COMPARE(combo->currentValue(), shown);
    // Following the key is no choice of its own: the stored value stays as it was.
    QCOMPARE(m_defaults->integerValue(key), stored);

    ViewOptionsWindowController opened(*m_defaults);
    QCOMPARE(comboFor(opened, key)->currentValue(), shown);
}

void TestViewOptionsWindow::choosingWritesThePreference_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("value");

    QTest::newRow("style dashed") << PreferenceKeys::TableStyle << 3;
    QTest::newRow("style plain") << PreferenceKeys::TableStyle << 6;
    QTest::newRow("sizing last column") << PreferenceKeys::TableColumnSizing << 7;
    QTest::newRow("sizing reverse sequential") << PreferenceKeys::TableColumnSizing << 4;
    QTest::newRow("transcript system") << PreferenceKeys::TranscriptFontStyle << 1;
}

void TestViewOptionsWindow::choosingWritesThePreference()
{
    QFETCH(QString, key);
    QFETCH(int, value);

    ViewOptionsWindowController window(*m_defaults);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    PreferenceComboBox* combo = comboFor(window, key);
    QVERIFY(combo);
    const int index = combo->findData(value);
    QVERIFY(index > 0);
    QSignalSpy changes(m_defaults.get(), &Defaults::valueChanged);

    // Through the keyboard, as a person chooses: each Down moves to the next entry.
    combo->setFocus();
    for (int step = 0; step < index; ++step) {
        QTest::keyClick(combo, Qt::Key_Down);
    }

    QCOMPARE(combo->currentValue(), value);
    QCOMPARE(m_defaults->integerValue(key), value);
    QVERIFY(m_defaults->isWritten(key));
    for (const QString& other : optionKeys) {
        if (other != key) {
            QVERIFY2(!m_defaults->isWritten(other), qPrintable(other));
        }
    }
    QVERIFY(!changes.isEmpty());
}

void TestViewOptionsWindow::checkBoxFollowsAndWrites()
{
    ViewOptionsWindowController window(*m_defaults);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    PreferenceCheckBox* box = window.showUpgradesAboveCheckBox();
    QVERIFY(!box->isChecked());

    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(4, box->height() / 2));
    QVERIFY(m_defaults->boolValue(PreferenceKeys::TableShowUpgradesAbove));

    m_defaults->setValue(PreferenceKeys::TableShowUpgradesAbove, false);
    QTRY_VERIFY(!box->isChecked());
    QVERIFY(!m_defaults->boolValue(PreferenceKeys::TableShowUpgradesAbove));
}

QTEST_MAIN(TestViewOptionsWindow)
#include "TestViewOptionsWindow.moc"
