// The administrator password relay over real local sockets: a QLocalSocket client that speaks the helper's side
// of the protocol, the real Askpass helper program run the way sudo runs it, and the folder rule of the socket.
#include "LogCapture.h"
#include "ScriptedPasswordPrompt.h"
#include "foundation/Bundle.h"
#include "homebrew/Askpass.h"
#include "homebrew/AskpassChannel.h"

#include <QDir>
#include <QLocalSocket>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Answer = std::optional<QString>; // the password typed, or nullopt for Cancel

// The helper's side of the protocol: connect, then send the request unless it is empty.
std::unique_ptr<QLocalSocket> connectHelper(const QString& path, const QByteArray& request = "askpass\n")
{
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(path);
    if (socket->waitForConnected(5000) && !request.isEmpty()) {
        socket->write(request);
        socket->flush();
    }
    return socket;
}

// Everything the relay sent before it closed the connection.
QByteArray replyOf(QLocalSocket& socket)
{
    const bool closed = QTest::qWaitFor([&] { return socket.state() == QLocalSocket::UnconnectedState; }, 5000);
    return closed ? socket.readAll() : QByteArray("(still connected)");
}

// What a killed relay leaves behind: a socket file that nobody listens on.
bool leaveStaleSocket(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), std::min(size_t(name.size()), sizeof address.sun_path - 1));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool bound = fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode : 0;
}

} // namespace

class TestAskpass : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void requestsTakeTurns();
    void relay_data();
    void relay();
    void runtimeFolder_data();
    void runtimeFolder();
    void helperProgram_data();
    void helperProgram();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_socketPath;
    std::unique_ptr<ScriptedPasswordPrompt> m_prompt;
};

void TestAskpass::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_socketPath = m_dir->filePath(QStringLiteral("relay"));
    m_prompt = std::make_unique<ScriptedPasswordPrompt>();
}

void TestAskpass::cleanup()
{
    qunsetenv("XCODE_RUNNING_FOR_PREVIEWS");
    QCOMPARE(m_prompt->overlaps(), 0);
}

void TestAskpass::requestsTakeTurns()
{
    auto askpass = std::make_unique<Askpass>(*m_prompt, m_socketPath);
    QVERIFY(askpass->registerPort().ok());
    QSignalSpy received(askpass.get(), &Askpass::requestReceived);
    const auto first = connectHelper(m_socketPath);
    QTRY_VERIFY(m_prompt->isOpen());
    const auto second = connectHelper(m_socketPath);
    const auto third = connectHelper(m_socketPath);
    QTRY_COMPARE(received.count(), 3);

    // Each request waits until the person has answered the one before.
    QCOMPARE(m_prompt->asked(), 1);
    m_prompt->answerOpen(QStringLiteral("one"));
    QCOMPARE(replyOf(*first), QByteArray("one"));
    QTRY_COMPARE(m_prompt->asked(), 2);
    QCOMPARE(second->state(), QLocalSocket::ConnectedState);

    // A relay that ends cancels what is open or waiting: otherwise the helpers would read an empty password.
    askpass.reset();
    QCOMPARE(replyOf(*second), QByteArray("___CANCEL___"));
    QCOMPARE(replyOf(*third), QByteArray("___CANCEL___"));
    m_prompt->answerOpen(QStringLiteral("too late")); // nothing to do, nothing breaks
    QCOMPARE(m_prompt->asked(), 2);
}

void TestAskpass::relay_data()
{
    QTest::addColumn<QByteArray>("previews"); // XCODE_RUNNING_FOR_PREVIEWS, unset when null
    QTest::addColumn<QString>("existing");    // at the socket path before: nothing, a killed relay's or a live one
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<QByteArray>("reply");

    const QByteArray unset;
    QTest::newRow("password") << unset << "" << Answer("hunter2") << QByteArray("hunter2");
    QTest::newRow("cancel") << unset << "" << Answer() << QByteArray("___CANCEL___");
    QTest::newRow("empty Continue sends zero bytes") << unset << "" << Answer(QString()) << QByteArray();
    QTest::newRow("non-ASCII password as UTF-8")
        << unset << "" << Answer(u"pässwörd 🔑 密码"_qs)
        << QByteArray("p\xc3\xa4ssw\xc3\xb6rd \xf0\x9f\x94\x91 \xe5\xaf\x86\xe7\xa0\x81");
    QTest::newRow("interface previews") << QByteArray("1") << "" << Answer("x") << QByteArray();
    QTest::newRow("previews off") << QByteArray("0") << "" << Answer("x") << QByteArray("x");
    QTest::newRow("socket left by a killed relay is replaced") << unset << "stale" << Answer("x") << QByteArray("x");
    QTest::newRow("live relay is not taken over") << unset << "live" << Answer("x") << QByteArray("theirs");
}

void TestAskpass::relay()
{
    QFETCH(QByteArray, previews);
    QFETCH(QString, existing);
    QFETCH(Answer, answer);
    QFETCH(QByteArray, reply);

    ScriptedPasswordPrompt otherPrompt;
    otherPrompt.answerNext(QStringLiteral("theirs"));
    Askpass other(otherPrompt, m_socketPath);
    const bool live = existing == u"live";
    QVERIFY(!live || other.registerPort().ok());
    QVERIFY(existing != u"stale" || leaveStaleSocket(m_socketPath));
    if (!previews.isNull()) {
        qputenv("XCODE_RUNNING_FOR_PREVIEWS", previews);
    }
    const bool previewing = previews == "1";

    LogCapture log;
    m_prompt->answerNext(answer);
    Askpass askpass(*m_prompt, m_socketPath);
    const Result<void> registered = askpass.registerPort();
    QCOMPARE(registered ? 0 : registered.error().code(), live ? int(Askpass::portInUse) : 0);
    QVERIFY(registered || (registered.error().domain() == Askpass::errorDomain() &&
                           registered.error().description().contains(m_socketPath)));
    QCOMPARE(askpass.isRegistered(), !previewing && !live);
    QCOMPARE(log.texts(), previewing ? QStringList() : QStringList{"Registering askpass message port"});
    QVERIFY(previewing || log.lines().constFirst().type == QtInfoMsg);
    if (previewing) {
        return;
    }

    // A connection that sends nothing is no request: it reaches nobody and gets no reply.
    const auto silent = connectHelper(m_socketPath, {});
    QCOMPARE(replyOf(*connectHelper(m_socketPath)), reply);
    // Whoever listens answers, once; the second instance's probe reached nobody.
    QCOMPARE(m_prompt->asked() + otherPrompt.asked(), 1);
    QCOMPARE(silent->state(), QLocalSocket::ConnectedState);
    QCOMPARE(silent->bytesAvailable(), 0);
}

void TestAskpass::runtimeFolder_data()
{
    // What exists before the call at <run>/<uid> and <tmp>/works.tessel.corvel-<uid>; the folder chosen ("run" or
    // "temporary") or the reason for refusing.
    QTest::addColumn<QString>("runEntry");
    QTest::addColumn<QString>("temporaryEntry");
    QTest::addColumn<bool>("otherUser");
    QTest::addColumn<bool>("create");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const char* run, const char* temporary, bool otherUser, bool create,
                        const char* expected) {
        QTest::newRow(name) << QString(run) << QString(temporary) << otherUser << create << QString(expected);
    };
    row("the user's run folder", "dir0700", "dir0700", false, true, "run");
    row("created in the temporary folder", "", "", false, true, "temporary");
    row("run entry that is a file", "file", "", false, true, "temporary");
    row("private folder reused", "", "dir0700", false, true, "temporary");
    row("group has access", "", "dir0750", false, true, "other users have access to it (mode 0750)");
    row("others have access", "", "dir0705", false, true, "other users have access to it (mode 0705)");
    row("symbolic link planted", "", "symlink", false, true, "it is not a folder");
    row("folder of another user", "dir0700", "dir0700", true, true, "it belongs to another user");
    row("not created when not asked", "", "", false, false, "No such file or directory");
}

void TestAskpass::runtimeFolder()
{
    QFETCH(QString, runEntry);
    QFETCH(QString, temporaryEntry);
    QFETCH(bool, otherUser);
    QFETCH(bool, create);
    QFETCH(QString, expected);

    // Another user is played by asking for a uid that does not own the folders this test makes; the run folder
    // then belongs to us, not to them, and must be passed over too.
    const uid_t uid = ::getuid() + (otherUser ? 1 : 0);
    const QDir base(m_dir->path());
    const QString runFolder = base.filePath(QStringLiteral("run/%1").arg(uid));
    const QString temporaryFolder = base.filePath(QStringLiteral("tmp/works.tessel.corvel-%1").arg(uid));
    QVERIFY(base.mkpath("run") && base.mkpath("tmp"));
    const auto make = [&](const QString& path, const QString& kind) {
        if (kind == u"file") {
            return QFile(path).open(QIODevice::WriteOnly);
        }
        if (kind == u"symlink") {
            return QFile::link(base.filePath("elsewhere"), path);
        }
        const auto mode = mode_t(kind.mid(3).toUInt(nullptr, 8)); // "dirMODE", in octal
        return kind.isEmpty() || (QDir().mkpath(path) && ::chmod(QFile::encodeName(path).constData(), mode) == 0);
    };
    QVERIFY(make(base.filePath("elsewhere"), "dir0700") && make(runFolder, runEntry) &&
            make(temporaryFolder, temporaryEntry));

    const AskpassChannel::Location location = AskpassChannel::runtimeFolder(
        uid, create ? AskpassChannel::Creation::IfMissing : AskpassChannel::Creation::Never,
        QFile::encodeName(base.filePath("run")).toStdString(), QFile::encodeName(base.filePath("tmp")).toStdString());

    if (expected == u"run" || expected == u"temporary") {
        QVERIFY2(location.ok(), location.error.c_str());
        QCOMPARE(QString::fromStdString(location.path), expected == u"run" ? runFolder : temporaryFolder);
        QCOMPARE(modeOf(QString::fromStdString(location.path)) & (S_IFMT | 0777), mode_t(S_IFDIR | 0700));
        return;
    }
    const QString message = QString::fromStdString(location.error);
    QVERIFY2(location.path.empty() && message.contains(temporaryFolder) && message.contains(expected),
             qPrintable(message));
    QVERIFY(!temporaryEntry.isEmpty() || !QFileInfo::exists(temporaryFolder));
}

void TestAskpass::helperProgram_data()
{
    QTest::addColumn<bool>("running"); // whether a relay listens at the user's socket
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("password") << true << Answer("hunter2") << QByteArray("hunter2\n") << 0;
    QTest::newRow("cancel") << true << Answer() << QByteArray() << 1;
    QTest::newRow("no application") << false << Answer() << QByteArray() << 1;
}

void TestAskpass::helperProgram()
{
    QFETCH(bool, running);
    QFETCH(Answer, answer);
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);

    const std::optional<QString> helper = Bundle::main().pathForResource(QStringLiteral("Askpass"));
    QVERIFY(helper);
    m_prompt->answerNext(answer);
    auto askpass = std::make_unique<Askpass>(*m_prompt);
    // The user's one socket is shared with other test programs and a running Corvel X: wait for our turn.
    QVERIFY(QTest::qWaitFor([&] { return askpass->registerPort().ok(); }, 60000));
    const QString path = askpass->socketPath();
    if (running) {
        // Only the user may reach the relay.
        QCOMPARE(modeOf(path) & (S_IFMT | 0077), mode_t(S_IFSOCK));
        QCOMPARE(modeOf(QFileInfo(path).path()) & (S_IFMT | 0077), mode_t(S_IFDIR));
    } else {
        askpass.reset(); // having held the socket, we know no other relay listens now
    }

    QProcess process;
    // What sudo leaves the helper: no arguments, and only these two variables.
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("SUDO_ASKPASS"), *helper);
    environment.insert(QStringLiteral("HOME"), m_dir->path());
    process.setProcessEnvironment(environment);
    process.start(*helper, {});
    // Without a relay, well within the helper's connect time-out: nobody listening is known at once.
    QVERIFY(QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, running ? 20000 : 4000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), exitCode);
    QCOMPARE(process.readAllStandardOutput(), output);
    const QByteArray error = process.readAllStandardError();
    QVERIFY2(running ? error.isEmpty() : error.startsWith("Askpass: Corvel X is not running"), error.constData());
    QCOMPARE(m_prompt->asked(), running ? 1 : 0);
}

QTEST_GUILESS_MAIN(TestAskpass)
#include "TestAskpass.moc"
