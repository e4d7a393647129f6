#include "activities/Transcript.h"
#include "activities/TranscriptError.h"

#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
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
    void lines_data();
    void lines();
    void appendsFromThreadsInOrderAndClears();
    void exportLine();
    void save();
    void saveFailures_data();
    void saveFailures();
};

// The walk through a chunk stops at the first empty line.
void TestTranscript::lines_data()
{
    QTest::addColumn<QString>("chunk");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("two lines ending in LF") << "==> Pouring\nDone\n" << QStringList{"==> Pouring", "Done"};
    QTest::newRow("blank line drops the rest") << "one\n\nthree\n" << QStringList{"one"};
    QTest::newRow("leading LF drops everything") << "\nfirst\n" << QStringList{};
    QTest::newRow("CR LF keeps only the first line") << "a\r\nb" << QStringList{"a"};
    QTest::newRow("lone CR separates") << "50%\r100%" << QStringList{"50%", "100%"};
    QTest::newRow("chunk without a break") << "Downloading 50%" << QStringList{"Downloading 50%"};
    QTest::newRow("continuation keeps its space") << " done\n" << QStringList{" done"};
    QTest::newRow("U+2028, U+2029 and U+0085")
        << u"left\u2028middle\u2029right\u0085end"_qs << QStringList{"left", "middle", "right", "end"};
    QTest::newRow("empty") << "" << QStringList{};
}

void TestTranscript::lines()
{
    QFETCH(QString, chunk);
    QFETCH(QStringList, expected);
    QCOMPARE(Transcript::lines(chunk), expected);
}

void TestTranscript::appendsFromThreadsInOrderAndClears()
{
    constexpr int threadCount = 4;
    constexpr int chunksPerThread = 250;
    Transcript transcript;
    QSignalSpy emptiness(&transcript, &Transcript::isEmptyChanged);
    int faults = 0;
    connect(&transcript, &Transcript::messagesAppended, this, [&](int first, int last) {
        faults += QThread::currentThread() != thread() || first > last || last != transcript.messages().size() - 1;
    });

    QList<ActivityPtr> activities;
    QThreadPool workers;
    for (int t = 0; t < threadCount; ++t) {
        activities.append(Activity::make(QString("worker %1").arg(t), "Upgrade"));
        workers.start([&transcript, activity = activities.last()] {
            for (int i = 0; i < chunksPerThread; ++i) {
                // No break at the end: the next chunk still starts a message of its own.
                transcript.append(QString("%1a\n%1b").arg(i), activity);
            }
        });
    }
    QVERIFY(workers.waitForDone(60'000));
    QTRY_COMPARE(transcript.messages().size(), threadCount * chunksPerThread * 2);
    QCOMPARE(faults, 0);
    QStringList expected;
    for (int i = 0; i < chunksPerThread; ++i) {
        expected << QString("%1a").arg(i) << QString("%1b").arg(i);
    }
    for (const ActivityPtr& activity : activities) {
        QCOMPARE(strings(Transcript::shownMessages(transcript.messages(), activity.get())), expected);
    }

    // From another thread the clear hops to the transcript's thread.
    workers.start([&transcript] { transcript.clear(); });
    QTRY_VERIFY(transcript.isEmpty());
    QCOMPARE(emptiness.count(), 2);
    QCOMPARE(emptiness.at(1).at(0).toBool(), true);
}

void TestTranscript::exportLine()
{
    const TranscriptMessage message(u"🍺  /opt/homebrew/Cellar/wget: 92 files"_qs, Activity::make("wget", "Install"));
    const QString line = message.exportLine();
    static const QRegularExpression pattern(u"^([01]\\d|2[0-3]):[0-5]\\d:[0-5]\\d\\.\\d{4} (.*)$"_qs);
    const QRegularExpressionMatch match = pattern.match(line);
    QVERIFY2(match.hasMatch(), qPrintable(line));
    QCOMPARE(match.captured(2), u"[wget - Install]: 🍺  /opt/homebrew/Cellar/wget: 92 files"_qs);
    // The fraction is truncated: its first three digits are the date's milliseconds.
    QCOMPARE(line.left(12), message.dateTime().toString("HH:mm:ss.zzz"));
}

// What the pane shows is saved: its activity's messages only, oldest first, as UTF-8, replacing the file.
void TestTranscript::save()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("transcript.log");
    const ActivityPtr wget = Activity::make("wget", "Install");
    const TranscriptMessage first(u"🍺 wget was installed"_qs, wget);
    const TranscriptMessage other("Upgrading firefox", Activity::make("Firefox", "Upgrade"));
    const TranscriptMessage second(u"naïve café"_qs, wget);
    const Result<void> saved = Transcript::save(Transcript::shownMessages({second, other, first}, wget.get()), path);
    QVERIFY2(saved.ok(), qPrintable(saved.error().description()));
    const QByteArray content = readAll(path);
    QCOMPARE(content, (first.exportLine() + "\n" + second.exportLine()).toUtf8());
    QVERIFY(content.contains("]: \xF0\x9F\x8D\xBA wget was installed\n") &&
            content.endsWith("na\xC3\xAFve caf\xC3\xA9"));

    // Nothing shown: the file is replaced by an empty one.
    QVERIFY(Transcript::save(Transcript::shownMessages({other}, wget.get()), path).ok());
    QCOMPARE(readAll(path), QByteArray());
}

void TestTranscript::saveFailures_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("relativePath");
    QTest::addColumn<QString>("description");
    const auto row = [](const char* tag, const QString& text, const char* path, const QString& description) {
        QTest::newRow(tag) << text << QString(path) << description;
    };
    const QString unencodable = "Unable to write data";

    row("lone high surrogate at the end", QString("ab") + QChar(0xD83C), "t.log", unencodable);
    row("lone low surrogate", QString("a") + QChar(0xDF7A) + "b", "t.log", unencodable);
    row("missing folder", "line", "missing/t.log", QString::fromLocal8Bit(std::strerror(ENOENT)));
    row("parent is a file", "line", "file/t.log", QString::fromLocal8Bit(std::strerror(ENOTDIR)));
}

void TestTranscript::saveFailures()
{
    QFETCH(QString, text);
    QFETCH(QString, relativePath);
    QFETCH(QString, description);

    QTemporaryDir dir;
    QVERIFY(QFile(dir.filePath("file")).open(QIODevice::WriteOnly));
    const QString path = dir.filePath(relativePath);
    const Result<void> saved = Transcript::save({TranscriptMessage(text, Activity::make("wget", "Install"))}, path);
    QVERIFY(!saved.ok());
    QCOMPARE(saved.error().description(), description);
    QVERIFY(!QFile::exists(path));
    QCOMPARE(saved.error().is(u"TranscriptError", TranscriptError::unableToWriteData),
             description == "Unable to write data");
}

QTEST_GUILESS_MAIN(TestTranscript)
#include "TestTranscript.moc"
