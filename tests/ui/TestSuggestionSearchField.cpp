#include "activities/Notifications.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "search/SGKSuggestionList.h"
#include "search/SearchController.h"
#include "search/SearchPredicates.h"
#include "ui/SGKSuggestionIcons.h"
#include "ui/SGKSuggestionPopup.h"
#include "ui/SGKSuggestionSearchField.h"
#include "ui/SGKSuggestionToken.h"
#include "ui/SGKSuggestionTokenBar.h"

#include <QApplication>
#include <QFile>
#include <QHeaderView>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListView>
#include <QMenu>
#include <QPainter>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>
#include <memory>

// The search field as the main window wires it: the real suggestion list, the application's search controller over
// preferences in a temporary folder, and a window that can hold the focus.
struct SearchWindow {
    QTemporaryDir directory;
    std::unique_ptr<Defaults> defaults;
    std::unique_ptr<QWidget> window;
    SGKSuggestionList* list = nullptr;
    SearchController* controller = nullptr;
    SGKSuggestionSearchField* field = nullptr;
    QWidget* other = nullptr;
    QVBoxLayout* layout = nullptr;

    explicit SearchWindow(const QMap<QString, QStringList>& recents = {}, int persona = 0)
    {
        defaults = std::make_unique<Defaults>(directory.filePath(QStringLiteral("settings.ini")));
        defaults->setValue(PreferenceKeys::PersonasSelectedIndex, persona);
        if (!recents.isEmpty()) {
            defaults->setStringArrayDictionary(PreferenceKeys::MainWindowRecentSearches, recents);
        }
        window = std::make_unique<QWidget>();
        window->resize(640, 480);
        layout = new QVBoxLayout(window.get());
        field = new SGKSuggestionSearchField(window.get());
        // Something else to hold the focus until a test clicks into the field.
        other = new QLineEdit(window.get());
        other->setObjectName(QStringLiteral("other"));
        layout->addWidget(field);
        layout->addWidget(other);
        layout->addStretch();

        list = new SGKSuggestionList(window.get());
        controller = new SearchController(*defaults, list, window.get());
        field->setSuggestionList(list);
        QObject::connect(field, &SGKSuggestionSearchField::textDidChange, controller,
                         &SearchController::searchTextDidChange);
        QObject::connect(field, &SGKSuggestionSearchField::searchActionTriggered, controller,
                         &SearchController::searchAction);
        QObject::connect(controller, &SearchController::searchTextChangeRequested, field, &QLineEdit::setText);
    }

    bool open()
    {
        other->setFocus();
        window->show();
        window->activateWindow();
        return QTest::qWaitForWindowActive(window.get()) && other->hasFocus();
    }

    void focusField() { field->setFocus(Qt::MouseFocusReason); }

    QStringList rowLabels() const
    {
        QStringList labels;
        for (int row = 0; row < list->rowCount(); ++row) {
            labels.append(list->index(row).data().toString());
        }
        return labels;
    }

    QListView* view() const { return field->popup()->listView(); }

    QPoint rowCentre(int row) const { return view()->visualRect(list->index(row)).center(); }

    // The pointer moves over the popup's own window, as the window system reports it.
    void hover(int row) const
    {
        SGKSuggestionPopup* popup = field->popup();
        QTest::mouseMove(popup->windowHandle(), view()->viewport()->mapTo(popup, rowCentre(row)));
    }

    void click(int row) const
    {
        SGKSuggestionPopup* popup = field->popup();
        QTest::mouseClick(popup->windowHandle(), Qt::LeftButton, {}, view()->viewport()->mapTo(popup, rowCentre(row)));
    }
};

class TestSuggestionSearchField : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void focusShowsRecentSearches_data();
    void focusShowsRecentSearches();
    void typingShowsSuggestions_data();
    void typingShowsSuggestions();
    void keyboardChoosesSecondSelectableRow_data();
    void keyboardChoosesSecondSelectableRow();
    void escapeClosesThePopupOnly();
    void popupSitsUnderTheField();
    void pointerSelectsOnlySelectableRows();
    void tokensRemoveAndSwitch();
    void applicationIconsLoad();
    void screenshot();
};

void TestSuggestionSearchField::focusShowsRecentSearches_data()
{
    QTest::addColumn<QStringList>("stored");
    QTest::addColumn<int>("persona");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("apps") << QStringList{QStringLiteral("fire"), QStringLiteral("git")} << 0
                          << QStringList{QStringLiteral("Recent: fire"), QStringLiteral("Recent: git"), QString(),
                                         QStringLiteral("Clear Recent Searches")};
    // Stored under Apps only: the Scripts persona has none, so the popup stays closed.
    QTest::newRow("other persona") << QStringList{QStringLiteral("fire")} << 1 << QStringList{};
    QTest::newRow("none") << QStringList{} << 0 << QStringList{};
}

void TestSuggestionSearchField::focusShowsRecentSearches()
{
    QFETCH(QStringList, stored);
    QFETCH(int, persona);
    QFETCH(QStringList, expected);

    QMap<QString, QStringList> recents;
    if (!stored.isEmpty()) {
        recents.insert(QStringLiteral("0"), stored);
    }
    SearchWindow window(recents, persona);
    QVERIFY(window.open());
    QVERIFY(!window.field->popup()->isVisible());

    window.focusField();
    QTRY_VERIFY(window.field->hasFocus());
    QCOMPARE(window.rowLabels(), expected);
    QCOMPARE(window.field->popup()->isVisible(), !expected.isEmpty());
    QCOMPARE(window.list->selectedRow(), -1);
}

void TestSuggestionSearchField::typingShowsSuggestions_data()
{
    QTest::addColumn<int>("persona");
    QTest::addColumn<QStringList>("expected");

    const QStringList textItems{QStringLiteral("Search: fire"),
                                QStringLiteral("Name Contains: fire"),
                                QStringLiteral("Description Contains: fire"),
                                QStringLiteral("Token Contains: fire"),
                                QString(),
                                QStringLiteral("State"),
                                QStringLiteral("Installed"),
                                QStringLiteral("Available")};
    QTest::newRow("apps") << 0
                          << textItems + QStringList{QString(), QStringLiteral("Kind"), QStringLiteral("App"),
                                                     QStringLiteral("Font")};
    QTest::newRow("scripts") << 1 << textItems;
    QTest::newRow("unknown persona") << 7 << QStringList{};
}

void TestSuggestionSearchField::typingShowsSuggestions()
{
    QFETCH(int, persona);
    QFETCH(QStringList, expected);

    SearchWindow window({{QStringLiteral("0"), {QStringLiteral("git")}}}, persona);
    QVERIFY(window.open());
    window.focusField();
    QTRY_VERIFY(window.field->hasFocus());

    QTest::keyClicks(window.field, QStringLiteral("fire"));
    QCOMPARE(window.field->text(), QStringLiteral("fire"));
    QCOMPARE(window.rowLabels(), expected);
    QCOMPARE(window.field->popup()->isVisible(), !expected.isEmpty());

    // Deleting the text again brings the recent searches back (Apps) or keeps the popup closed.
    for (int i = 0; i < 4; ++i) {
        QTest::keyClick(window.field, Qt::Key_Backspace);
    }
    QCOMPARE(window.field->popup()->isVisible(), persona == 0);
}

void TestSuggestionSearchField::keyboardChoosesSecondSelectableRow_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("fieldText");
    QTest::addColumn<QStringList>("active");
    QTest::addColumn<QString>("predicate");

    QTest::newRow("name filter") << QStringLiteral("fire") << QStringLiteral("fire")
                                 << QStringList{QStringLiteral("NameSuggestionViewItem")}
                                 << SearchPredicates::name(QStringLiteral("fire")).format();
    // With an empty field the second row is the older recent search, which replaces the text.
    QTest::newRow("recent search") << QString() << QStringLiteral("git") << QStringList{} << QString();
}

void TestSuggestionSearchField::keyboardChoosesSecondSelectableRow()
{
    QFETCH(QString, typed);
    QFETCH(QString, fieldText);
    QFETCH(QStringList, active);
    QFETCH(QString, predicate);

    SearchWindow window({{QStringLiteral("0"), {QStringLiteral("fire"), QStringLiteral("git")}}});
    QVERIFY(window.open());
    window.focusField();
    QTRY_VERIFY(window.field->popup()->isVisible());
    QTest::keyClicks(window.field, typed);

    QSignalSpy performed(&Notifications::instance(), &Notifications::searchPerformed);
    QTest::keyClick(window.field, Qt::Key_Down);
    QCOMPARE(window.list->selectedRow(), 0);
    QTest::keyClick(window.field, Qt::Key_Down);
    QCOMPARE(window.list->selectedRow(), 1);
    QTest::keyClick(window.field, Qt::Key_Return);

    QCOMPARE(window.field->text(), fieldText);
    QStringList identifiers = window.list->activeSuggestionIdentifiers().values();
    identifiers.sort();
    QCOMPARE(identifiers, active);
    QVERIFY(window.field->hasFocus());
    QVERIFY(window.field->popup()->isVisible());
    if (!predicate.isEmpty()) {
        QVERIFY(!performed.isEmpty());
        const auto last = performed.last().at(0).value<std::optional<Predicate>>();
        QVERIFY(last);
        QCOMPARE(last->format(), predicate);
        QCOMPARE(window.field->tokenBar()->tokens().size(), 1);
        QCOMPARE(window.field->tokenBar()->tokens().first()->labelButton()->text(),
                 QStringLiteral("Name Contains: fire"));
        // The token sits inside the field, and the typed text starts after it.
        QVERIFY(window.field->tokenBar()->isVisible());
        QVERIFY(window.field->textMargins().left() >= window.field->tokenBar()->width());
    } else {
        QVERIFY(window.field->tokenBar()->tokens().isEmpty());
        QCOMPARE(window.field->textMargins().left(), 0);
    }
}

void TestSuggestionSearchField::escapeClosesThePopupOnly()
{
    SearchWindow window;
    QVERIFY(window.open());
    window.focusField();
    QTest::keyClicks(window.field, QStringLiteral("fire"));
    QVERIFY(window.field->popup()->isVisible());

    QTest::keyClick(window.field, Qt::Key_Escape);
    QVERIFY(!window.field->popup()->isVisible());
    QVERIFY(window.field->hasFocus());
    QCOMPARE(window.field->text(), QStringLiteral("fire"));

    // Typing again reopens it; leaving the field closes it.
    QTest::keyClick(window.field, Qt::Key_S);
    QVERIFY(window.field->popup()->isVisible());
    window.other->setFocus(Qt::TabFocusReason);
    QTRY_VERIFY(!window.field->popup()->isVisible());
}

void TestSuggestionSearchField::popupSitsUnderTheField()
{
    SearchWindow window;
    QVERIFY(window.open());
    window.focusField();
    QTest::keyClicks(window.field, QStringLiteral("fire"));
    SGKSuggestionPopup* popup = window.field->popup();
    QVERIFY(popup->isVisible());

    QVERIFY(popup->isWindow());
    QCOMPARE(popup->parentWidget(), window.window.get());
    QVERIFY(popup->windowFlags() & Qt::FramelessWindowHint);
    const QPoint fieldBottomLeft = window.field->mapToGlobal(QPoint(0, window.field->height()));
    QCOMPARE(popup->geometry().topLeft(), fieldBottomLeft + QPoint(-2, -2));
    QCOMPARE(popup->width(), window.field->width());
    // Every row is visible without scrolling.
    const QRect lastRow = window.view()->visualRect(window.list->index(window.list->rowCount() - 1));
    QVERIFY(window.view()->viewport()->rect().contains(lastRow));

    // The popup follows the window and the field's width.
    window.window->move(window.window->pos() + QPoint(40, 30));
    window.window->resize(700, 480);
    QTRY_COMPARE(popup->geometry().topLeft(),
                 window.field->mapToGlobal(QPoint(0, window.field->height())) + QPoint(-2, -2));
    QTRY_COMPARE(popup->width(), window.field->width());
}

void TestSuggestionSearchField::pointerSelectsOnlySelectableRows()
{
    SearchWindow window;
    QVERIFY(window.open());
    window.focusField();
    QTest::keyClicks(window.field, QStringLiteral("fire"));
    window.hover(6);
    QTRY_COMPARE(window.list->selectedRow(), 6);
    // The separator and the "Kind" heading are passed over; the selection stays on the last selectable row.
    window.hover(8);
    window.hover(9);
    QCOMPARE(window.list->selectedRow(), 6);
    window.hover(10);
    QTRY_COMPARE(window.list->selectedRow(), 10);

    // A click chooses the row under the pointer and leaves the focus in the field.
    window.click(10);
    QCOMPARE(window.list->activeSuggestionIdentifiers(), QSet<QString>{QStringLiteral("AppSuggestionViewItem")});
    QVERIFY(window.field->hasFocus());
    window.click(8);
    QCOMPARE(window.list->activeSuggestionIdentifiers(), QSet<QString>{QStringLiteral("AppSuggestionViewItem")});
}

void TestSuggestionSearchField::tokensRemoveAndSwitch()
{
    SearchWindow window;
    QVERIFY(window.open());
    window.focusField();
    QTest::keyClicks(window.field, QStringLiteral("fire"));
    QVERIFY(window.list->chooseRow(1)); // Name Contains
    QVERIFY(window.list->chooseRow(6)); // Installed

    const QList<SGKSuggestionToken*> tokens = window.field->tokenBar()->tokens();
    QCOMPARE(tokens.size(), 2);
    QCOMPARE(tokens.at(0)->labelButton()->text(), QStringLiteral("Name Contains: fire"));
    QCOMPARE(tokens.at(1)->labelButton()->text(), QStringLiteral("Installed"));
    QVERIFY(!tokens.at(1)->labelButton()->menu());

    // The text token offers the other three text kinds; choosing one switches it without retyping.
    QMenu* menu = tokens.at(0)->labelButton()->menu();
    QVERIFY(menu);
    QStringList titles;
    QAction* description = nullptr;
    const auto actions = menu->actions();
    for (QAction* action : actions) {
        titles.append(action->text());
        if (action->text() == u"Description Contains") {
            description = action;
        }
    }
    titles.sort();
    QCOMPARE(titles, (QStringList{QStringLiteral("Description Contains"), QStringLiteral("Search"),
                                  QStringLiteral("Token Contains")}));
    QSignalSpy performed(&Notifications::instance(), &Notifications::searchPerformed);
    description->trigger();
    QCOMPARE(window.field->text(), QStringLiteral("fire"));
    QTRY_COMPARE(window.field->tokenBar()->tokens().size(), 2);
    QCOMPARE(window.field->tokenBar()->tokens().at(0)->labelButton()->text(),
             QStringLiteral("Description Contains: fire"));
    QVERIFY(!performed.isEmpty());
    QCOMPARE(
        performed.last().at(0).value<std::optional<Predicate>>()->format(),
        Predicate::andPredicate({SearchPredicates::description(QStringLiteral("fire")), SearchPredicates::installed()})
            .format());

    // Removing both tokens leaves no filter at all.
    QTest::mouseClick(window.field->tokenBar()->tokens().at(0)->removeButton(), Qt::LeftButton);
    QTRY_COMPARE(window.field->tokenBar()->tokens().size(), 1);
    QTest::mouseClick(window.field->tokenBar()->tokens().at(0)->removeButton(), Qt::LeftButton);
    QTRY_VERIFY(window.field->tokenBar()->tokens().isEmpty());
    QVERIFY(window.list->activeSuggestionIdentifiers().isEmpty());
    QVERIFY(!performed.last().at(0).value<std::optional<Predicate>>().has_value());
    QVERIFY(window.field->tokenBar()->isHidden());
    QCOMPARE(window.field->textMargins().left(), 0);
}

void TestSuggestionSearchField::applicationIconsLoad()
{
    if (!QFile::exists(QStringLiteral(":/icons/Installed.svg"))) {
        QSKIP("the suggestion icons are not compiled into this build");
    }
    if (!QImageReader::supportedImageFormats().contains("svg")) {
        QSKIP("Qt's SVG image plugin is not installed");
    }
    const QStringList names{QStringLiteral(":/icons/Installed.svg"),
                            QStringLiteral(":/icons/Available.svg"),
                            QStringLiteral(":/icons/App.svg"),
                            QStringLiteral(":/icons/Font.svg"),
                            QStringLiteral("checkmark"),
                            QStringLiteral("clock.arrow.circlepath")};
    for (const QString& name : names) {
        QVERIFY2(!SGKSuggestionIcons::icon(name).pixmap(16, 16).isNull(), qPrintable(name));
    }
    QVERIFY(SGKSuggestionIcons::icon(QStringLiteral("no.such.symbol")).isNull());
}

// Renders the open popup over a table of casks; with CORVEL_SCREENSHOT set, writes the picture there.
void TestSuggestionSearchField::screenshot()
{
    SearchWindow window;
    window.window->resize(760, 520);
    auto* table = new QTableView(window.window.get());
    window.layout->insertWidget(1, table, 1);

    QFile file(QStringLiteral(CORVEL_TEST_DATA_DIR "/catalogue/cask-sample.json"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonArray casks = QJsonDocument::fromJson(file.readAll()).array();
    QVERIFY(casks.size() >= 60);
    QStandardItemModel model(0, 4);
    model.setHorizontalHeaderLabels(
        {QStringLiteral("Name"), QStringLiteral("Token"), QStringLiteral("Version"), QStringLiteral("Description")});
    for (int i = 22; i < 42; ++i) {
        const QJsonObject cask = casks.at(i).toObject();
        model.appendRow({new QStandardItem(cask.value(u"name").toArray().first().toString()),
                         new QStandardItem(cask.value(u"token").toString()),
                         new QStandardItem(cask.value(u"version").toString()),
                         new QStandardItem(cask.value(u"desc").toString())});
    }
    table->setModel(&model);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setStretchLastSection(true);
    table->setWordWrap(false);
    table->setColumnWidth(0, 190);
    table->setColumnWidth(1, 210);
    table->setColumnWidth(2, 90);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 8);
    window.other->hide();

    window.window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.window.get()));
    window.focusField();
    QTest::keyClicks(window.field, QStringLiteral("fire"));
    QVERIFY(window.list->chooseRow(6)); // Installed
    QTest::keyClick(window.field, Qt::Key_Down);
    QTest::keyClick(window.field, Qt::Key_Down);
    QVERIFY(window.field->popup()->isVisible());
    QCOMPARE(window.list->selectedRow(), 1);
    // It opens over the table's first rows, which stay drawn around it.
    const QRect tableOnScreen(table->viewport()->mapToGlobal(QPoint(0, 0)), table->viewport()->size());
    QVERIFY(tableOnScreen.intersects(window.field->popup()->geometry()));

    // The popup is a window of its own: paint it onto the main window's picture where it sits.
    QPixmap picture = window.window->grab();
    const QPixmap popup = window.field->popup()->grab();
    QVERIFY(!popup.isNull());
    {
        QPainter painter(&picture);
        painter.drawPixmap(window.window->mapFromGlobal(window.field->popup()->pos()), popup);
    }
    QVERIFY(picture.size() == window.window->size() * picture.devicePixelRatio());
    const QString target = qEnvironmentVariable("CORVEL_SCREENSHOT");
    if (!target.isEmpty()) {
        QVERIFY(picture.save(target));
    }
}

QTEST_MAIN(TestSuggestionSearchField)
#include "TestSuggestionSearchField.moc"
