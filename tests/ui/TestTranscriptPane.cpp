#include "ScriptedAlerter.h"
#include "activities/ActivityCenter.h"
#include "activities/Transcript.h"
#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"
#include "ui/TranscriptModel.h"
#include "ui/TranscriptPane.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QFile>
#include <QFileDialog>
#include <QFontDatabase>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <cerrno>
#include <cstring>

namespace {

// What every pane needs, on real preferences in a temporary folder.
struct Parts {
    QTemporaryDir folder;
    Transcript transcript;
    ActivityCenter center;
    Defaults defaults{folder.filePath(QStringLiteral("settings.ini"))};
    ScriptedAlerter alerter;

    // Appends on the GUI thread and delivers at once, as the event loop would.
    void write(const ActivityPtr& activity, const QStringList& lines)
    {
        transcript.append(lines.join(u'\n') + u'\n', activity);
        QCoreApplication::sendPostedEvents(&transcript, QEvent::MetaCall);
    }
    ActivityPtr post(const QString& target, const QString& action = QStringLiteral("Install"))
    {
        ActivityPtr activity = Activity::make(target, action);
        center.post(activity);
        QCoreApplication::sendPostedEvents(&center, QEvent::MetaCall);
        return activity;
    }
};

QStringList numbered(const QString& prefix, int count)
{
    QStringList lines;
    for (int i = 0; i < count; ++i) {
        lines.append(prefix + QString::number(i));
    }
    return lines;
}

// The model must show exactly what is saved: the filter's messages sorted by date, ties in order of arrival.
bool matchesTranscript(const TranscriptModel& model, const Transcript& transcript)
{
    const QList<TranscriptMessage> expected =
        Transcript::shownMessages(transcript.messages(), model.activityFilter().get());
    if (model.rowCount() != expected.size()) {
        return false;
    }
    for (int row = 0; row < model.rowCount(); ++row) {
        const TranscriptMessage& shown = model.message(row);
        if (shown.date() != expected.at(row).date() || shown.string() != expected.at(row).string()) {
            return false;
        }
    }
    return true;
}

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace

class TestTranscriptPane : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void modelFollowsConcurrentOutput_data();
    void modelFollowsConcurrentOutput();
    void lateOlderLinesAreSortedIn();
    void roles();
    void sources_data();
    void sources();
    void filtering_data();
    void filtering();
    void copy_data();
    void copy();
    void save_data();
    void save();
    void saveDialog();
    void font_data();
    void font();
    void clearKeepsSources();
    void followsTheEnd();
};

void TestTranscriptPane::modelFollowsConcurrentOutput_data()
{
    QTest::addColumn<int>("filtered");
    QTest::addColumn<QString>("meanwhile");

    QTest::newRow("all activities") << -1 << QString();
    QTest::newRow("filter changes while lines arrive") << 0 << QStringLiteral("refilter");
    QTest::newRow("cleared while lines arrive") << -1 << QStringLiteral("clear");
}

void TestTranscriptPane::modelFollowsConcurrentOutput()
{
    QFETCH(int, filtered);
    QFETCH(QString, meanwhile);

    Parts parts;
    TranscriptModel model(parts.transcript);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QList<ActivityPtr> activities;
    for (int t = 0; t < 3; ++t) {
        activities.append(Activity::make(QStringLiteral("pkg%1").arg(t), QStringLiteral("Upgrade")));
    }
    model.setActivityFilter(filtered < 0 ? nullptr : activities.at(filtered));

    // Between deliveries the GUI thread keeps changing the model, and checks it after every chunk.
    QObject observer;
    int delivered = 0;
    int mismatches = 0;
    connect(&parts.transcript, &Transcript::messagesAppended, &observer, [&] {
        mismatches += !matchesTranscript(model, parts.transcript);
        if (++delivered % 7 != 0) {
            return;
        }
        if (meanwhile == u"refilter") {
            model.setActivityFilter(activities.at(delivered % 3));
        } else if (meanwhile == u"clear") {
            parts.transcript.clear();
        }
        mismatches += !matchesTranscript(model, parts.transcript);
    });

    QThreadPool workers;
    for (const ActivityPtr& activity : std::as_const(activities)) {
        workers.start([&parts, activity] {
            for (int c = 0; c < 40; ++c) {
                parts.transcript.append(
                    numbered(QStringLiteral("%1 c%2 l").arg(activity->target()).arg(c), 25).join(u'\n'), activity);
            }
        });
    }
    QVERIFY(workers.waitForDone(60'000));
    QTRY_COMPARE(delivered, 3 * 40);
    QCOMPARE(mismatches, 0);
    if (meanwhile.isEmpty()) {
        QCOMPARE(model.rowCount(), filtered < 0 ? 3 * 40 * 25 : 40 * 25);
    }
}

// Lines are dated when read, on the reading thread; two children's chunks overlapping in time reach the GUI
// thread one after the other, so older lines arrive after newer ones. Repeat until that really happened.
void TestTranscriptPane::lateOlderLinesAreSortedIn()
{
    bool arrivedOutOfOrder = false;
    for (int round = 0; round < 50 && !arrivedOutOfOrder; ++round) {
        Parts parts;
        TranscriptModel model(parts.transcript);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QThreadPool workers;
        for (int t = 0; t < 4; ++t) {
            workers.start([&parts, t] {
                const ActivityPtr activity = Activity::make(QStringLiteral("child%1").arg(t), "Install");
                for (int c = 0; c < 20; ++c) {
                    parts.transcript.append(numbered(QStringLiteral("%1.%2.").arg(t).arg(c), 200).join(u'\n'),
                                            activity);
                }
            });
        }
        QVERIFY(workers.waitForDone(60'000));
        QTRY_COMPARE(parts.transcript.messages().size(), 4 * 20 * 200);
        QVERIFY(matchesTranscript(model, parts.transcript));
        const QList<TranscriptMessage>& arrived = parts.transcript.messages();
        arrivedOutOfOrder = !std::is_sorted(arrived.cbegin(), arrived.cend(),
                                            [](const auto& a, const auto& b) { return a.date() < b.date(); });
    }
    QVERIFY2(arrivedOutOfOrder, "no older line ever arrived late; the sorting was not exercised");
}

void TestTranscriptPane::roles()
{
    Parts parts;
    const ActivityPtr wget = Activity::make(QStringLiteral("wget"), QStringLiteral("Install"));
    parts.write(wget, {u"🍺  wget was installed"_qs});
    TranscriptModel model(parts.transcript);
    const QModelIndex index = model.index(0);
    const TranscriptMessage& message = parts.transcript.messages().first();
    QCOMPARE(index.data(Qt::DisplayRole).toString(), u"🍺  wget was installed"_qs);
    QCOMPARE(index.data(Qt::ToolTipRole).toString(), message.exportLine());
    const auto carried = TranscriptModel::messageFromVariant(index.data(TranscriptModel::MessageRole));
    QVERIFY(carried);
    QCOMPARE(carried->date(), message.date());
    QCOMPARE(carried->activity(), wget);
    QVERIFY(!TranscriptModel::messageFromVariant(index.data(Qt::DisplayRole)));
}

void TestTranscriptPane::sources_data()
{
    QTest::addColumn<int>("existing");
    QTest::addColumn<int>("postedLater");

    QTest::newRow("none") << 0 << 0;
    QTest::newRow("existing and posted") << 2 << 2;
}

void TestTranscriptPane::sources()
{
    QFETCH(int, existing);
    QFETCH(int, postedLater);

    Parts parts;
    QList<ActivityPtr> posted;
    for (int i = 0; i < existing; ++i) {
        posted.append(parts.post(QStringLiteral("old%1").arg(i)));
    }
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    QComboBox* box = pane.sourcesBox();
    if (existing > 0) {
        box->setCurrentIndex(2);
    }
    const ActivityPtr chosen = existing > 0 ? posted.last() : nullptr;
    for (int i = 0; i < postedLater; ++i) {
        posted.append(parts.post(QStringLiteral("new%1").arg(i), QStringLiteral("Upgrade")));
    }

    QCOMPARE(box->count(), 2 + existing + postedLater);
    QCOMPARE(box->itemText(0), QStringLiteral("All Activities"));
    QVERIFY(!box->itemData(0).value<ActivityPtr>() && !box->itemData(1).value<ActivityPtr>());
    QVERIFY(!(box->model()->flags(box->model()->index(1, 0)) & Qt::ItemIsSelectable));
    for (int i = 0; i < posted.size(); ++i) {
        const ActivityPtr& activity = posted.at(posted.size() - 1 - i);
        QCOMPARE(box->itemData(2 + i).value<ActivityPtr>(), activity);
        QCOMPARE(box->itemText(2 + i), activity->title());
    }
    // New sources above the chosen one do not change what is shown.
    QCOMPARE(box->currentData().value<ActivityPtr>(), chosen);
    QCOMPARE(pane.model()->activityFilter(), chosen);
}

void TestTranscriptPane::filtering_data()
{
    QTest::addColumn<int>("sourceIndex");
    QTest::addColumn<QStringList>("expected");

    const QStringList a = numbered("a", 30), b = numbered("b", 30);
    QTest::newRow("all activities") << 0 << a + b + QStringList{"a-late"};
    QTest::newRow("oldest activity") << 4 << a + QStringList{"a-late"};
    QTest::newRow("activity without output") << 2 << QStringList{};
}

void TestTranscriptPane::filtering()
{
    QFETCH(int, sourceIndex);
    QFETCH(QStringList, expected);

    Parts parts;
    const ActivityPtr a = parts.post("a"), b = parts.post("b");
    parts.write(a, numbered("a", 30));
    parts.write(b, numbered("b", 30));
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    parts.post("silent");
    pane.sourcesBox()->setCurrentIndex(3);
    pane.resize(400, 160);
    pane.show();
    const QScrollBar* bar = pane.listView()->verticalScrollBar();
    QTRY_VERIFY(bar->maximum() > 0 && bar->value() == bar->maximum());
    pane.listView()->scrollToTop();

    // Choosing a source jumps to its end at once.
    pane.sourcesBox()->setCurrentIndex(sourceIndex);
    QCOMPARE(bar->value(), bar->maximum());
    QCOMPARE(bar->maximum() > 0, expected.size() > 10);

    parts.write(a, {"a-late"});
    QStringList shown;
    for (int row = 0; row < pane.model()->rowCount(); ++row) {
        shown.append(pane.model()->index(row).data().toString());
    }
    QCOMPARE(shown, expected);
    QCOMPARE(pane.findChild<QLabel*>("transcriptPlaceholder")->isVisible(), expected.isEmpty());
}

void TestTranscriptPane::copy_data()
{
    QTest::addColumn<QList<int>>("selected");
    // The row the context menu was opened on; -1 below the rows, -2 for Ctrl+C instead of the menu.
    QTest::addColumn<int>("clicked");
    QTest::addColumn<QString>("clipboard");

    const int keyboard = -2;
    QTest::newRow("Ctrl+C, several lines") << QList<int>{3, 0, 1} << keyboard << "line0\nline1\nline3";
    QTest::newRow("menu on an unselected row") << QList<int>{1, 2} << 4 << "line4";
    QTest::newRow("menu on a selected row") << QList<int>{4, 1} << 4 << "line1\nline4";
    QTest::newRow("menu below the rows") << QList<int>{0, 4} << -1 << "line0\nline4";
    QTest::newRow("menu below the rows, nothing selected") << QList<int>{} << -1 << "untouched";
}

void TestTranscriptPane::copy()
{
    QFETCH(QList<int>, selected);
    QFETCH(int, clicked);
    QFETCH(QString, clipboard);

    Parts parts;
    parts.write(parts.post("wget"), numbered("line", 5));
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    pane.resize(400, 300);
    pane.show();
    QVERIFY(QTest::qWaitForWindowActive(&pane));
    QListView* view = pane.listView();
    for (const int row : selected) {
        view->selectionModel()->select(pane.model()->index(row), QItemSelectionModel::Select);
    }
    QGuiApplication::clipboard()->setText("untouched");

    if (clicked == -2) {
        view->setFocus();
        QTest::keyClick(view, Qt::Key_C, Qt::ControlModifier);
    } else {
        const QPoint at = clicked >= 0 ? view->visualRect(pane.model()->index(clicked)).center()
                                       : QPoint(10, view->viewport()->height() - 5);
        QContextMenuEvent event(QContextMenuEvent::Mouse, at, view->viewport()->mapToGlobal(at));
        QApplication::sendEvent(view->viewport(), &event);
        auto* menu = pane.findChild<QMenu*>();
        QVERIFY(menu);
        QAction* copy = menu->actions().first();
        QCOMPARE(copy->text(), QStringLiteral("Copy"));
        QCOMPARE(copy->isEnabled(), clipboard != u"untouched");
        copy->trigger();
        menu->close();
    }
    QCOMPARE(QGuiApplication::clipboard()->text(), clipboard);
}

void TestTranscriptPane::save_data()
{
    QTest::addColumn<int>("sourceIndex");
    // Relative to a temporary folder that already holds an old "t.log"; empty to cancel.
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("written");
    QTest::addColumn<QStringList>("savedLines");
    QTest::addColumn<QString>("alert");

    const QStringList none;
    QTest::newRow("all lines, oldest first") << 0 << "t.log" << true << QStringList{"i0", "u0", "u1", "i1"} << "";
    QTest::newRow("nothing shown writes an empty file") << 2 << "t.log" << true << none << "";
    QTest::newRow("cancelled") << 0 << "" << false << none << "";
    QTest::newRow("missing folder") << 0 << "missing/t.log" << false << none
                                    << QString::fromLocal8Bit(std::strerror(ENOENT));
}

void TestTranscriptPane::save()
{
    QFETCH(int, sourceIndex);
    QFETCH(QString, answer);
    QFETCH(bool, written);
    QFETCH(QStringList, savedLines);
    QFETCH(QString, alert);

    Parts parts;
    const ActivityPtr install = parts.post("wget"), upgrade = parts.post("Firefox", "Upgrade");
    parts.write(install, {"i0"});
    parts.write(upgrade, {"u0", "u1"});
    parts.write(install, {"i1"});
    parts.post("silent");
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    pane.sourcesBox()->setCurrentIndex(sourceIndex);
    QFile old(parts.folder.filePath("t.log"));
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    old.close();
    const QString path = parts.folder.filePath(answer.isEmpty() ? "t.log" : answer);
    const QByteArray before = contents(path);

    QString proposed;
    bool answered = false;
    pane.setSavePathChooser([&](const QString& name, std::function<void(std::optional<QString>)> done) {
        proposed = name;
        // A dialog answers from the event loop.
        QMetaObject::invokeMethod(
            &pane,
            [&, done] {
                done(answer.isEmpty() ? std::nullopt : std::optional(path));
                answered = true;
            },
            Qt::QueuedConnection);
    });
    if (!alert.isEmpty()) {
        parts.alerter.answerNext("OK");
    }
    pane.saveAction()->trigger();
    QTRY_VERIFY(answered);
    QCOMPARE(proposed, QStringLiteral("transcript.log"));

    if (written) {
        QStringList exportLines;
        for (const TranscriptMessage& message : parts.transcript.messages()) {
            if (savedLines.contains(message.string())) {
                exportLines.append(message.exportLine());
            }
        }
        QCOMPARE(exportLines.size(), savedLines.size());
        QCOMPARE(contents(path), exportLines.join(u'\n').toUtf8());
    } else {
        QCOMPARE(contents(path), before);
    }
    QCOMPARE(parts.alerter.shown().size(), alert.isEmpty() ? 0 : 1);
    if (!alert.isEmpty()) {
        QCOMPARE(parts.alerter.shown().first().message, QStringLiteral("Unable to save the transcript"));
        QCOMPARE(parts.alerter.shown().first().informativeText, alert);
    }
}

// Without a chooser the real dialog opens, window-modal, and its answer is written.
void TestTranscriptPane::saveDialog()
{
    Parts parts;
    parts.write(parts.post("wget"), {"one", "two"});
    QWidget window;
    auto* pane = new TranscriptPane(parts.transcript, parts.center, parts.defaults, parts.alerter, &window);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    pane->saveAction()->trigger();

    auto* dialog = window.findChild<QFileDialog*>();
    QVERIFY(dialog);
    QTRY_VERIFY(dialog->isVisible());
    QCOMPARE(dialog->windowModality(), Qt::WindowModal);
    QCOMPARE(dialog->acceptMode(), QFileDialog::AcceptSave);
    QCOMPARE(QFileInfo(dialog->selectedFiles().value(0)).fileName(), QStringLiteral("transcript.log"));
    QCOMPARE(dialog->nameFilters().size(), 2);

    const QString path = parts.folder.filePath("saved.log");
    dialog->selectFile(path);
    static_cast<QDialog*>(dialog)->accept();
    QTRY_VERIFY(QFile::exists(path));
    const auto& messages = parts.transcript.messages();
    QCOMPARE(contents(path), (messages.at(0).exportLine() + u'\n' + messages.at(1).exportLine()).toUtf8());
}

void TestTranscriptPane::font_data()
{
    QTest::addColumn<QVariant>("style");
    QTest::addColumn<bool>("fixedPitch");

    QTest::newRow("regular") << QVariant(1) << false;
    QTest::newRow("monospaced") << QVariant(0) << true;
    QTest::newRow("unknown style is monospaced") << QVariant(7) << true;
}

void TestTranscriptPane::font()
{
    QFETCH(QVariant, style);
    QFETCH(bool, fixedPitch);

    const QFont general = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    QVERIFY2(general.family() != fixed.family(), "the platform offers a single font; nothing to tell apart");

    Parts parts;
    // The opposite style first, so that the change must switch the font.
    parts.defaults.setValue(PreferenceKeys::TranscriptFontStyle, fixedPitch ? 1 : 0);
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    QCOMPARE(pane.listView()->font().family(), (fixedPitch ? general : fixed).family());

    parts.defaults.setValue(PreferenceKeys::TranscriptFontStyle, style);
    const QFont font = pane.listView()->font();
    QCOMPARE(font.family(), (fixedPitch ? fixed : general).family());
    QCOMPARE(font.pointSize(), 11);
    QCOMPARE(font.weight(), QFont::Normal);
}

void TestTranscriptPane::clearKeepsSources()
{
    Parts parts;
    const ActivityPtr wget = parts.post("wget"), curl = parts.post("curl");
    parts.write(wget, {"w"});
    parts.write(curl, {"c"});
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    pane.sourcesBox()->setCurrentIndex(3);
    QCOMPARE(pane.model()->rowCount(), 1);

    pane.clearAction()->trigger();
    QVERIFY(parts.transcript.isEmpty());
    QCOMPARE(pane.model()->rowCount(), 0);
    QVERIFY(!pane.clearAction()->isEnabled());
    QCOMPARE(pane.sourcesBox()->count(), 4);
    QCOMPARE(pane.sourcesBox()->currentData().value<ActivityPtr>(), wget);

    parts.write(curl, {"c2"});
    parts.write(wget, {"w2"});
    QCOMPARE(pane.model()->rowCount(), 1);
    QCOMPARE(pane.model()->index(0).data().toString(), QStringLiteral("w2"));
    QVERIFY(pane.clearAction()->isEnabled());
}

void TestTranscriptPane::followsTheEnd()
{
    Parts parts;
    const ActivityPtr wget = parts.post("wget");
    parts.write(wget, numbered("early", 200));
    TranscriptPane pane(parts.transcript, parts.center, parts.defaults, parts.alerter);
    pane.resize(400, 200);
    pane.show();
    const QScrollBar* bar = pane.listView()->verticalScrollBar();
    QTRY_VERIFY(bar->maximum() > 0 && bar->value() == bar->maximum());

    // At the end, new output keeps the view there.
    const int before = bar->maximum();
    parts.write(wget, numbered("more", 100));
    QTRY_VERIFY(bar->maximum() > before && bar->value() == bar->maximum());

    // Scrolled back to read, the view stays where the reader left it.
    pane.listView()->scrollToTop();
    parts.write(wget, numbered("later", 100));
    QCoreApplication::processEvents();
    QCOMPARE(bar->value(), 0);
    QVERIFY(!pane.listView()->indexAt(QPoint(5, 5)).data().toString().startsWith("later"));
}

QTEST_MAIN(TestTranscriptPane)
#include "TestTranscriptPane.moc"
