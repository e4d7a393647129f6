#include "activities/Transcript.h"
#include "activities/TranscriptError.h"

#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <cerrno>
#include <cstring>

namespace {

QStringList strings(const QList<TranscriptMessage>& messages)
{
    QStringList result;
    for (const TranscriptMessage& message : messages) {
        result.append(message.string());
    }
    return result;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

} // namespace

class TestTranscript : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void splitsChunksIntoLines_data();
    void splitsChunksIntoLines();
    void keepsEachThreadsOrderAndChangesOnlyOnTheGuiThread();
    void clearEmptiesAndAnnounces();
    void exportLineFormat();
    void savesShownMessagesAsUtf8();
    void savesAnEmptyListAsAnEmptyFile();
    void unencodableTextIsNotWritten_data();
    void unencodableTextIsNotWritten();
    void reportsTheSystemsWriteError_data();
    void reportsTheSystemsWriteError();
};

void TestTranscript::splitsChunksIntoLines_data()
{
    QTest::addColumn<QStringList>("chunks");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("two lines ending in LF") << QStringList{"==> Pouring\nDone\n"} << QStringList{"==> Pouring", "Done"};
    QTest::newRow("blank line drops the rest") << QStringList{"one\n\nthree\n"} << QStringList{"one"};
    QTest::newRow("leading LF drops everything") << QStringList{"\nfirst\n"} << QStringList{};
    QTest::newRow("CR LF keeps only the first line") << QStringList{"a\r\nb"} << QStringList{"a"};
    QTest::newRow("lone CR, VT and FF separate") << QStringList{"a\rb\vc\fd"} << QStringList{"a", "b", "c", "d"};
    QTest::newRow("continuation is its own message")
        << QStringList{"Downloading 50%", " done\n"} << QStringList{"Downloading 50%", " done"};
    QTest::newRow("U+2028, U+2029 and U+0085")
        << QStringList{u"left\u2028middle\u2029right\u0085end"_qs} << QStringList{"left", "middle", "right", "end"};
    QTest::newRow("empty chunk adds nothing") << QStringList{"x\n", "", "y\n"} << QStringList{"x", "y"};
    QTest::newRow("non-ASCII text") << QStringList{u"🍺 naïve\n"_qs} << QStringList{u"🍺 naïve"_qs};
}

void TestTranscript::splitsChunksIntoLines()
{
    QFETCH(QStringList, chunks);
    QFETCH(QStringList, expected);

    Transcript transcript;
    const ActivityPtr activity = Activity::make("wget", "Install");
    for (const QString& chunk : chunks) {
        transcript.append(chunk, activity);
    }
    // Arrival is ordered, so once a final marker is in, everything the chunks produced is in too.
    transcript.append("marker", activity);
    QTRY_VERIFY(!transcript.isEmpty() && transcript.messages().last().string() == "marker");

    QCOMPARE(strings(transcript.messages()).mid(0, transcript.messages().size() - 1), expected);
    for (const TranscriptMessage& message : transcript.messages()) {
        QCOMPARE(message.activity(), activity);
    }
}

void TestTranscript::keepsEachThreadsOrderAndChangesOnlyOnTheGuiThread()
{
    constexpr int threadCount = 4;
    constexpr int chunksPerThread = 250;
    Transcript transcript;
    int offGuiThread = 0;
    connect(&transcript, &Transcript::messagesAppended, this, [&](int first, int last) {
        offGuiThread += QThread::currentThread() != thread();
        QCOMPARE(last, transcript.messages().size() - 1);
        QVERIFY(first <= last);
    });

    QList<ActivityPtr> activities;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < threadCount; ++t) {
        const ActivityPtr activity = Activity::make(QString("worker %1").arg(t), "Upgrade");
        activities.append(activity);
        threads.emplace_back(QThread::create([&transcript, activity] {
            for (int i = 0; i < chunksPerThread; ++i) {
                transcript.append(QString("%1a\n%1b\n").arg(i), activity);
            }
        }));
        threads.back()->start();
    }
    for (auto& thread : threads) {
        QVERIFY(thread->wait(60'000));
    }

    QTRY_COMPARE(transcript.messages().size(), threadCount * chunksPerThread * 2);
    QCOMPARE(offGuiThread, 0);
    for (const ActivityPtr& activity : activities) {
        QStringList expected;
        for (int i = 0; i < chunksPerThread; ++i) {
            expected << QString("%1a").arg(i) << QString("%1b").arg(i);
        }
        QCOMPARE(strings(Transcript::shownMessages(transcript.messages(), activity.get())), expected);
    }
}

void TestTranscript::clearEmptiesAndAnnounces()
{
    Transcript transcript;
    QSignalSpy emptiness(&transcript, &Transcript::isEmptyChanged);
    QSignalSpy cleared(&transcript, &Transcript::cleared);
    QVERIFY(transcript.isEmpty());

    transcript.clear();
    QCOMPARE(cleared.count(), 0);

    const ActivityPtr activity = Activity::make("git", "Upgrade");
    transcript.append("one\ntwo\n", activity);
    transcript.append("three\n", activity);
    QTRY_COMPARE(transcript.messages().size(), 3);
    QCOMPARE(emptiness.count(), 1);
    QCOMPARE(emptiness.at(0).at(0).toBool(), false);

    // From another thread the clear hops to the transcript's thread.
    std::unique_ptr<QThread> worker(QThread::create([&transcript] { transcript.clear(); }));
    worker->start();
    QVERIFY(worker->wait(60'000));
    QTRY_VERIFY(transcript.isEmpty());
    QCOMPARE(cleared.count(), 1);
    QCOMPARE(emptiness.count(), 2);
    QCOMPARE(emptiness.at(1).at(0).toBool(), true);
}

void TestTranscript::exportLineFormat()
{
    const TranscriptMessage message(u"🍺  /opt/homebrew/Cellar/wget/1.24.5: 92 files"_qs,
                                    Activity::make("wget", "Install"));
    const QString line = message.exportLine();

    static const QRegularExpression pattern(u"^([01]\\d|2[0-3]):[0-5]\\d:[0-5]\\d\\.(\\d{4}) (.*)$"_qs);
    const QRegularExpressionMatch match = pattern.match(line);
    QVERIFY2(match.hasMatch(), qPrintable(line));
    QCOMPARE(match.captured(3), u"[wget - Install]: 🍺  /opt/homebrew/Cellar/wget/1.24.5: 92 files"_qs);
    // The fraction is truncated: its first three digits are the date's milliseconds.
    QCOMPARE(line.left(12), message.dateTime().toString("HH:mm:ss.zzz"));
}

void TestTranscript::savesShownMessagesAsUtf8()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("transcript.log");
    {
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(4096, 'x'));
    }

    const ActivityPtr wget = Activity::make("wget", "Install");
    const ActivityPtr firefox = Activity::make("Firefox", "Upgrade");
    const TranscriptMessage first(u"🍺 wget was installed"_qs, wget);
    const TranscriptMessage other("Upgrading firefox", firefox);
    const TranscriptMessage second(u"naïve café"_qs, wget);
    const QList<TranscriptMessage> shown = Transcript::shownMessages({second, other, first}, wget.get());

    const Result<void> saved = Transcript::save(shown, path);
    QVERIFY2(saved.ok(), qPrintable(saved.error().description()));

    const QByteArray content = readAll(path);
    const QList<QByteArray> lines = content.split('\n');
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines.at(0).endsWith(" [wget - Install]: \xF0\x9F\x8D\xBA wget was installed"));
    QVERIFY(lines.at(1).endsWith(" [wget - Install]: na\xC3\xAFve caf\xC3\xA9"));
    QCOMPARE(QString::fromUtf8(content), first.exportLine() + "\n" + second.exportLine());
}

void TestTranscript::savesAnEmptyListAsAnEmptyFile()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("transcript.log");
    const ActivityPtr activity = Activity::make("wget", "Install");
    const QList<TranscriptMessage> shown =
        Transcript::shownMessages({TranscriptMessage("line", activity)}, Activity::make("git", "Install").get());
    QVERIFY(shown.isEmpty());

    QVERIFY(Transcript::save(shown, path).ok());
    QVERIFY(QFile::exists(path));
    QCOMPARE(readAll(path), QByteArray());
}

void TestTranscript::unencodableTextIsNotWritten_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("lone high surrogate inside") << QString("a") + QChar(0xD83C) + "b";
    QTest::newRow("lone high surrogate at the end") << QString("ab") + QChar(0xD83C);
    QTest::newRow("lone low surrogate") << QString("a") + QChar(0xDF7A);
}

void TestTranscript::unencodableTextIsNotWritten()
{
    QFETCH(QString, text);
    QTemporaryDir dir;
    const QString path = dir.filePath("transcript.log");

    const Result<void> saved = Transcript::save({TranscriptMessage(text, Activity::make("wget", "Install"))}, path);
    QVERIFY(!saved.ok());
    QVERIFY(saved.error().is(u"TranscriptError", TranscriptError::unableToWriteData));
    QCOMPARE(saved.error().description(), "Unable to write data");
    QVERIFY(!QFile::exists(path));
}

void TestTranscript::reportsTheSystemsWriteError_data()
{
    QTest::addColumn<QString>("relativePath");
    QTest::addColumn<QString>("description");
    QTest::newRow("missing folder") << "missing/transcript.log" << QString::fromLocal8Bit(std::strerror(ENOENT));
    QTest::newRow("parent is a file") << "file/transcript.log" << QString::fromLocal8Bit(std::strerror(ENOTDIR));
}

void TestTranscript::reportsTheSystemsWriteError()
{
    QFETCH(QString, relativePath);
    QFETCH(QString, description);
    QTemporaryDir dir;
    QFile file(dir.filePath("file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    const Result<void> saved =
        Transcript::save({TranscriptMessage("line", Activity::make("wget", "Install"))}, dir.filePath(relativePath));
    QVERIFY(!saved.ok());
    QCOMPARE(saved.error().description(), description);
}

QTEST_GUILESS_MAIN(TestTranscript)
#include "TestTranscript.moc"
