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
#include <QImageReader>
#include <QListView>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>
#include <memory>

using namespace Qt::StringLiterals;

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

    explicit SearchWindow(const QMap<QString, QStringList>& recents = {}, int persona = 0)
    {
        defaults = std::make_unique<Defaults>(directory.filePath(u"settings.ini"_s));
        defaults->setValue(PreferenceKeys::PersonasSelectedIndex, persona);
        if (!recents.isEmpty()) {
            defaults->setStringArrayDictionary(PreferenceKeys::MainWindowRecentSearches, recents);
        }
        window = std::make_unique<QWidget>();
        window->resize(640, 480);
        auto* layout = new QVBoxLayout(window.get());
        field = new SGKSuggestionSearchField(window.get());
        // Something else to hold the focus until a test clicks into the field.
        other = new QLineEdit(window.get());
        other->setObjectName(u"other"_s);
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

    // Opens the window, clicks into the field and types text.
    bool type(const QString& text)
    {
        if (!open()) {
            return false;
        }
        focusField();
        if (!QTest::qWaitFor([this] { return field->hasFocus(); })) {
            return false;
        }
        QTest::keyClicks(field, text);
        return true;
    }

    QStringList rowLabels() const
    {
        QStringList labels;
        for (int row = 0; row < list->rowCount(); ++row) {
            labels.append(list->index(row).data().toString());
        }
        return labels;
    }

    QStringList tokenLabels() const
    {
        QStringList texts;
        for (const SGKSuggestionToken* token : field->tokenBar()->tokens()) {
            texts.append(token->labelButton()->text());
        }
        return texts;
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
    void popupRows_data();
    void popupRows();
    void keyboardChoosesSecondSelectableRow_data();
    void keyboardChoosesSecondSelectableRow();
    void escapeClosesThePopupOnly();
    void popupSitsUnderTheField();
    void pointerSelectsOnlySelectableRows();
    void tokensRemoveAndSwitch();
    void applicationIconsLoad();
};

void TestSuggestionSearchField::popupRows_data()
{
    QTest::addColumn<QStringList>("stored"); // recent searches of the Apps persona
    QTest::addColumn<int>("persona");
    QTest::addColumn<QString>("typed"); // empty: the field only takes the focus
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("focus, recent searches")
        << QStringList{u"fire"_s, u"git"_s} << 0 << QString()
        << QStringList{u"Recent: fire"_s, u"Recent: git"_s, QString(), u"Clear Recent Searches"_s};
    QTest::newRow("focus, none") << QStringList{} << 0 << QString() << QStringList{};
    const QStringList textItems{u"Search: fire"_s,
                                u"Name Contains: fire"_s,
                                u"Description Contains: fire"_s,
                                u"Token Contains: fire"_s,
                                QString(),
                                u"State"_s,
                                u"Installed"_s,
                                u"Available"_s};
    QTest::newRow("typed, apps") << QStringList{u"git"_s} << 0 << u"fire"_s
                                 << textItems + QStringList{QString(), u"Kind"_s, u"App"_s, u"Font"_s};
    QTest::newRow("typed, scripts") << QStringList{u"git"_s} << 1 << u"fire"_s << textItems;
}

void TestSuggestionSearchField::popupRows()
{
    QFETCH(QStringList, stored);
    QFETCH(int, persona);
    QFETCH(QString, typed);
    QFETCH(QStringList, expected);

    QMap<QString, QStringList> recents;
    if (!stored.isEmpty()) {
        recents.insert(u"0"_s, stored);
    }
    SearchWindow window(recents, persona);
    QVERIFY(window.open());
    QVERIFY(!window.field->popup()->isVisible());
    QVERIFY(window.type(typed));
    QCOMPARE(window.field->text(), typed);
    QCOMPARE(window.rowLabels(), expected);
    QCOMPARE(window.field->popup()->isVisible(), !expected.isEmpty());
    if (typed.isEmpty()) {
        QCOMPARE(window.list->selectedRow(), -1);
    } else {
        // Deleting the text again brings the recent searches back (Apps) or keeps the popup closed.
        for (qsizetype i = 0; i < typed.size(); ++i) {
            QTest::keyClick(window.field, Qt::Key_Backspace);
        }
        QCOMPARE(window.field->popup()->isVisible(), persona == 0);
    }
}

void TestSuggestionSearchField::keyboardChoosesSecondSelectableRow_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("fieldText");
    QTest::addColumn<QStringList>("active");
    QTest::addColumn<QStringList>("tokens");
    QTest::addColumn<QString>("predicate");

    QTest::newRow("name filter") << u"fire"_s << u"fire"_s << QStringList{u"NameSuggestionViewItem"_s}
                                 << QStringList{u"Name Contains: fire"_s} << SearchPredicates::name(u"fire"_s).format();
    // With an empty field the second row is the older recent search, which replaces the text.
    QTest::newRow("recent search") << QString() << u"git"_s << QStringList{} << QStringList{} << QString();
}

void TestSuggestionSearchField::keyboardChoosesSecondSelectableRow()
{
    QFETCH(QString, typed);
    QFETCH(QString, fieldText);
    QFETCH(QStringList, active);
    QFETCH(QStringList, tokens);
    QFETCH(QString, predicate);

    SearchWindow window({{u"0"_s, {u"fire"_s, u"git"_s}}});
    QVERIFY(window.type(typed));

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
    QCOMPARE(window.tokenLabels(), tokens);
    if (!predicate.isEmpty()) {
        QVERIFY(!performed.isEmpty());
        const auto last = performed.last().at(0).value<std::optional<Predicate>>();
        QCOMPARE(last ? last->format() : QString(), predicate);
        // The token sits inside the field, and the typed text starts after it.
        QVERIFY(window.field->tokenBar()->isVisible());
        QVERIFY(window.field->textMargins().left() >= window.field->tokenBar()->width());
    } else {
        QCOMPARE(window.field->textMargins().left(), 0);
    }
}

void TestSuggestionSearchField::escapeClosesThePopupOnly()
{
    SearchWindow window;
    QVERIFY(window.type(u"fire"_s));
    QVERIFY(window.field->popup()->isVisible());

    QTest::keyClick(window.field, Qt::Key_Escape);
    QVERIFY(!window.field->popup()->isVisible());
    QVERIFY(window.field->hasFocus());
    QCOMPARE(window.field->text(), u"fire"_s);

    // Typing again reopens it; leaving the field closes it.
    QTest::keyClick(window.field, Qt::Key_S);
    QVERIFY(window.field->popup()->isVisible());
    window.other->setFocus(Qt::TabFocusReason);
    QTRY_VERIFY(!window.field->popup()->isVisible());
}

void TestSuggestionSearchField::popupSitsUnderTheField()
{
    SearchWindow window;
    QVERIFY(window.type(u"fire"_s));
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
    QVERIFY(window.type(u"fire"_s));
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
    QCOMPARE(window.list->activeSuggestionIdentifiers(), QSet<QString>{u"AppSuggestionViewItem"_s});
    QVERIFY(window.field->hasFocus());
    window.click(8);
    QCOMPARE(window.list->activeSuggestionIdentifiers(), QSet<QString>{u"AppSuggestionViewItem"_s});
}

void TestSuggestionSearchField::tokensRemoveAndSwitch()
{
    SearchWindow window;
    QVERIFY(window.type(u"fire"_s));
    QVERIFY(window.list->chooseRow(1)); // Name Contains
    QVERIFY(window.list->chooseRow(6)); // Installed

    const QList<SGKSuggestionToken*> tokens = window.field->tokenBar()->tokens();
    QCOMPARE(window.tokenLabels(), (QStringList{u"Name Contains: fire"_s, u"Installed"_s}));
    QVERIFY(!tokens.at(1)->labelButton()->menu());

    // The text token offers the other three text kinds; choosing one switches it without retyping.
    QMenu* menu = tokens.at(0)->labelButton()->menu();
    QVERIFY(menu);
    QMap<QString, QAction*> actions;
    for (QAction* action : menu->actions()) {
        actions.insert(action->text(), action);
    }
    QCOMPARE(actions.keys(), (QStringList{u"Description Contains"_s, u"Search"_s, u"Token Contains"_s}));
    QCOMPARE(menu->actions().size(), actions.size());
    QSignalSpy performed(&Notifications::instance(), &Notifications::searchPerformed);
    actions.value(u"Description Contains"_s)->trigger();
    QCOMPARE(window.field->text(), u"fire"_s);
    QTRY_COMPARE(window.tokenLabels(), (QStringList{u"Description Contains: fire"_s, u"Installed"_s}));
    QVERIFY(!performed.isEmpty());
    QCOMPARE(
        performed.last().at(0).value<std::optional<Predicate>>()->format(),
        Predicate::andPredicate({SearchPredicates::description(u"fire"_s), SearchPredicates::installed()}).format());

    // Removing both tokens leaves no filter at all.
    QTest::mouseClick(window.field->tokenBar()->tokens().at(0)->removeButton(), Qt::LeftButton);
    QTRY_COMPARE(window.tokenLabels(), QStringList{u"Installed"_s});
    QTest::mouseClick(window.field->tokenBar()->tokens().at(0)->removeButton(), Qt::LeftButton);
    QTRY_COMPARE(window.tokenLabels(), QStringList());
    QVERIFY(window.list->activeSuggestionIdentifiers().isEmpty());
    QVERIFY(!performed.last().at(0).value<std::optional<Predicate>>().has_value());
    QVERIFY(window.field->tokenBar()->isHidden());
    QCOMPARE(window.field->textMargins().left(), 0);
}

void TestSuggestionSearchField::applicationIconsLoad()
{
    if (!QFile::exists(u":/icons/Installed.svg"_s)) {
        QSKIP("the suggestion icons are not compiled into this build");
    }
    if (!QImageReader::supportedImageFormats().contains("svg")) {
        QSKIP("Qt's SVG image plugin is not installed");
    }
    for (const QString& name : {u":/icons/Installed.svg"_s, u":/icons/Available.svg"_s, u":/icons/App.svg"_s,
                                u":/icons/Font.svg"_s, u"checkmark"_s, u"clock.arrow.circlepath"_s}) {
        QVERIFY2(!SGKSuggestionIcons::icon(name).pixmap(16, 16).isNull(), qPrintable(name));
    }
    QVERIFY(SGKSuggestionIcons::icon(u"no.such.symbol"_s).isNull());
}

QTEST_MAIN(TestSuggestionSearchField)
#include "TestSuggestionSearchField.moc"
