// The administrator password relay over real local sockets: a QLocalSocket client that speaks the helper's side
// of the protocol, the real Askpass helper program run the way sudo runs it, and the folder rule of the socket.
#include "LogCapture.h"
#include "ScriptedPasswordPrompt.h"
#include "foundation/Bundle.h"
#include "homebrew/Askpass.h"
#include "homebrew/AskpassChannel.h"

#include <QDir>
#include <QFile>
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

// The helper's side of the protocol: connect, send a request, collect everything until the relay closes.
class Client {
public:
    explicit Client(const QString& path)
    {
        QObject::connect(&m_socket, &QLocalSocket::readyRead, [this] { m_received += m_socket.readAll(); });
        QObject::connect(&m_socket, &QLocalSocket::disconnected, [this] {
            m_received += m_socket.readAll();
            m_closed = true;
        });
        m_socket.connectToServer(path);
        m_socket.waitForConnected(5000);
    }
    ~Client() { leave(); }

    bool isConnected() const { return m_socket.state() == QLocalSocket::ConnectedState; }
    void send(const QByteArray& request)
    {
        m_socket.write(request);
        m_socket.flush();
    }
    // Goes away as a helper killed mid-request does, without reading anything more.
    void leave()
    {
        m_socket.disconnect();
        m_socket.abort();
    }

    bool closed() const { return m_closed; }
    QByteArray received() const { return m_received; }

private:
    QLocalSocket m_socket;
    QByteArray m_received;
    bool m_closed = false;
};

// What a killed relay leaves behind: a socket file that nobody listens on.
bool leaveStaleSocket(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (size_t(name.size()) >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, name.constData(), size_t(name.size()));
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

QString usersSocketPath()
{
    return QString::fromStdString(AskpassChannel::socketPath(::getuid()).path);
}

// The user's socket is shared with every other test program and a running Corvel X; wait for our turn with it.
bool registerAtUsersSocket(Askpass& askpass)
{
    return QTest::qWaitFor([&] { return askpass.registerPort().ok(); }, 60000);
}

} // namespace

class TestAskpass : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void replies_data();
    void replies();
    void connectionsWithoutDataGetNoReply();
    void requestsTakeTurns();
    void helpersLeavingEarlyAreHarmless();
    void endingTheRelayCancelsOpenRequests();

    void registration_data();
    void registration();
    void socketLeftByKilledRelayIsReplaced();
    void liveRelayIsNotTakenOver();
    void runtimeFolder_data();
    void runtimeFolder();

    void helperProgram_data();
    void helperProgram();
    void helperProgramWithoutApplication_data();
    void helperProgramWithoutApplication();
    void usersSocketAndFolderArePrivate();

private:
    QProcess* startHelper();

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
    m_prompt.reset();
    m_dir.reset();
}

void TestAskpass::replies_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("reply");

    QTest::newRow("password") << QByteArray("askpass\n") << false << QStringLiteral("hunter2") << QByteArray("hunter2");
    QTest::newRow("cancel sends the sentinel")
        << QByteArray("askpass\n") << true << QString() << QByteArray("___CANCEL___");
    QTest::newRow("empty Continue sends zero bytes") << QByteArray("askpass\n") << false << QString() << QByteArray();
    QTest::newRow("non-ASCII password as UTF-8")
        << QByteArray("askpass\n") << false << QStringLiteral("pässwörd 🔑 密码")
        << QByteArray("p\xc3\xa4ssw\xc3\xb6rd \xf0\x9f\x94\x91 \xe5\xaf\x86\xe7\xa0\x81");
    QTest::newRow("any non-empty request counts")
        << QByteArray(1, '\0') << false << QStringLiteral("x") << QByteArray("x");
}

void TestAskpass::replies()
{
    QFETCH(QByteArray, request);
    QFETCH(bool, cancel);
    QFETCH(QString, password);
    QFETCH(QByteArray, reply);

    m_prompt->answerNext(cancel ? std::nullopt : std::optional<QString>(password));
    Askpass askpass(*m_prompt, m_socketPath);
    QVERIFY(askpass.registerPort().ok());

    Client client(m_socketPath);
    QVERIFY(client.isConnected());
    client.send(request);
    QTRY_VERIFY(client.closed());
    QCOMPARE(client.received(), reply);
    QCOMPARE(m_prompt->asked(), 1);
}

void TestAskpass::connectionsWithoutDataGetNoReply()
{
    m_prompt->answerNext(QStringLiteral("secret"));
    Askpass askpass(*m_prompt, m_socketPath);
    QVERIFY(askpass.registerPort().ok());

    Client silent(m_socketPath);
    Client leaving(m_socketPath);
    leaving.leave();
    Client asking(m_socketPath);
    asking.send("askpass\n");
    QTRY_VERIFY(asking.closed());

    QCOMPARE(asking.received(), QByteArray("secret"));
    // Only the request with data reached the person, and the silent connection is still waiting for nothing.
    QCOMPARE(m_prompt->asked(), 1);
    QVERIFY(silent.isConnected());
    QVERIFY(silent.received().isEmpty());
}

void TestAskpass::requestsTakeTurns()
{
    Askpass askpass(*m_prompt, m_socketPath);
    QVERIFY(askpass.registerPort().ok());
    QSignalSpy received(&askpass, &Askpass::requestReceived);

    Client first(m_socketPath);
    first.send("askpass\n");
    QTRY_VERIFY(m_prompt->isOpen());
    Client second(m_socketPath);
    second.send("askpass\n");
    QTRY_COMPARE(received.count(), 2);

    // The second request waits until the person has answered the first.
    QCOMPARE(m_prompt->asked(), 1);
    m_prompt->answerOpen(QStringLiteral("one"));
    QTRY_VERIFY(first.closed());
    QCOMPARE(first.received(), QByteArray("one"));
    QTRY_COMPARE(m_prompt->asked(), 2);
    QVERIFY(!second.closed());

    m_prompt->answerOpen(std::nullopt);
    QTRY_VERIFY(second.closed());
    QCOMPARE(second.received(), QByteArray("___CANCEL___"));
}

void TestAskpass::helpersLeavingEarlyAreHarmless()
{
    Askpass askpass(*m_prompt, m_socketPath);
    QVERIFY(askpass.registerPort().ok());
    QSignalSpy received(&askpass, &Askpass::requestReceived);

    auto prompted = std::make_unique<Client>(m_socketPath);
    prompted->send("askpass\n");
    auto queued = std::make_unique<Client>(m_socketPath);
    queued->send("askpass\n");
    QTRY_COMPARE(received.count(), 2);
    QVERIFY(m_prompt->isOpen());

    // Both helpers give up (sudo was interrupted) while the first prompt is still on screen.
    prompted.reset();
    queued.reset();
    QTRY_VERIFY(askpass.findChildren<QLocalSocket*>().isEmpty());
    m_prompt->answerOpen(QStringLiteral("too late"));
    // Nobody waits for the queued request any more, so the person is not asked for it.
    QCOMPARE(m_prompt->asked(), 1);

    m_prompt->answerNext(QStringLiteral("next"));
    Client next(m_socketPath);
    next.send("askpass\n");
    QTRY_VERIFY(next.closed());
    QCOMPARE(next.received(), QByteArray("next"));
    QCOMPARE(m_prompt->asked(), 2);
}

void TestAskpass::endingTheRelayCancelsOpenRequests()
{
    auto askpass = std::make_unique<Askpass>(*m_prompt, m_socketPath);
    QVERIFY(askpass->registerPort().ok());
    QSignalSpy received(askpass.get(), &Askpass::requestReceived);

    Client prompted(m_socketPath);
    prompted.send("askpass\n");
    Client queued(m_socketPath);
    queued.send("askpass\n");
    QTRY_COMPARE(received.count(), 2);

    askpass.reset();
    QTRY_VERIFY(prompted.closed() && queued.closed());
    // Without this the helpers would read an empty password.
    QCOMPARE(prompted.received(), QByteArray("___CANCEL___"));
    QCOMPARE(queued.received(), QByteArray("___CANCEL___"));
    // The person answers the dialog after the relay is gone: nothing to do, nothing breaks.
    m_prompt->answerOpen(QStringLiteral("ignored"));
}

void TestAskpass::registration_data()
{
    QTest::addColumn<bool>("set");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<bool>("registers");

    QTest::newRow("not set") << false << QByteArray() << true;
    QTest::newRow("interface previews") << true << QByteArray("1") << false;
    QTest::newRow("0") << true << QByteArray("0") << true;
    QTest::newRow("empty") << true << QByteArray("") << true;
    QTest::newRow("1 with a space") << true << QByteArray("1 ") << true;
}

void TestAskpass::registration()
{
    QFETCH(bool, set);
    QFETCH(QByteArray, value);
    QFETCH(bool, registers);

    if (set) {
        qputenv("XCODE_RUNNING_FOR_PREVIEWS", value);
    }
    LogCapture log;
    Askpass askpass(*m_prompt, m_socketPath);
    QVERIFY(askpass.registerPort().ok());

    QCOMPARE(askpass.isRegistered(), registers);
    QCOMPARE(QFileInfo::exists(m_socketPath), registers);
    QCOMPARE(log.texts(), registers ? QStringList{QStringLiteral("Registering askpass message port")} : QStringList());
    if (registers) {
        QCOMPARE(log.lines().constFirst().type, QtInfoMsg);
    }
}

void TestAskpass::socketLeftByKilledRelayIsReplaced()
{
    QVERIFY(leaveStaleSocket(m_socketPath));
    QVERIFY(S_ISSOCK(modeOf(m_socketPath)));

    m_prompt->answerNext(QStringLiteral("secret"));
    Askpass askpass(*m_prompt, m_socketPath);
    const Result<void> registered = askpass.registerPort();
    QVERIFY2(registered.ok(), qPrintable(registered.error().description()));

    Client client(m_socketPath);
    client.send("askpass\n");
    QTRY_VERIFY(client.closed());
    QCOMPARE(client.received(), QByteArray("secret"));
}

void TestAskpass::liveRelayIsNotTakenOver()
{
    m_prompt->answerNext(QStringLiteral("first"));
    Askpass running(*m_prompt, m_socketPath);
    QVERIFY(running.registerPort().ok());

    ScriptedPasswordPrompt otherPrompt;
    Askpass second(otherPrompt, m_socketPath);
    const Result<void> registered = second.registerPort();
    QVERIFY(!registered.ok());
    QVERIFY(registered.error().is(Askpass::errorDomain(), Askpass::portInUse));
    QVERIFY2(registered.error().description().contains(m_socketPath), qPrintable(registered.error().description()));
    QVERIFY(!second.isRegistered());

    // The running relay still answers, and its probe by the second instance did not reach the person.
    Client client(m_socketPath);
    client.send("askpass\n");
    QTRY_VERIFY(client.closed());
    QCOMPARE(client.received(), QByteArray("first"));
    QCOMPARE(m_prompt->asked(), 1);
    QCOMPARE(otherPrompt.asked(), 0);
}

void TestAskpass::runtimeFolder_data()
{
    // runEntry / temporaryEntry: what exists before the call at <run>/<uid> and <tmp>/works.tessel.corvel-<uid>.
    QTest::addColumn<QString>("runEntry");
    QTest::addColumn<QString>("temporaryEntry");
    QTest::addColumn<bool>("otherUser");
    QTest::addColumn<bool>("create");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("error");

    const QString none;
    const QString run = QStringLiteral("run");
    const QString temporary = QStringLiteral("temporary");
    QTest::newRow("the user's run folder") << "dir"
                                           << "dir0700" << false << true << run << none;
    QTest::newRow("created in the temporary folder") << none << none << false << true << temporary << none;
    QTest::newRow("run entry that is a file") << "file" << none << false << true << temporary << none;
    QTest::newRow("private folder reused") << none << "dir0700" << false << true << temporary << none;
    QTest::newRow("group and others may read")
        << none << "dir0755" << false << true << none << "other users have access to it (mode 0755)";
    QTest::newRow("symbolic link planted") << none << "symlink" << false << true << none << "it is not a folder";
    QTest::newRow("file planted") << none << "file" << false << true << none << "it is not a folder";
    QTest::newRow("folder of another user") << "dir"
                                            << "dir0700" << true << true << none << "it belongs to another user";
    QTest::newRow("not created when not asked")
        << none << none << false << false << none << "No such file or directory";
}

void TestAskpass::runtimeFolder()
{
    QFETCH(QString, runEntry);
    QFETCH(QString, temporaryEntry);
    QFETCH(bool, otherUser);
    QFETCH(bool, create);
    QFETCH(QString, expected);
    QFETCH(QString, error);

    // Another user is played by asking for a uid that does not own the folders this test makes.
    const uid_t uid = otherUser ? ::getuid() + 1 : ::getuid();
    const QDir base(m_dir->path());
    QVERIFY(base.mkpath(QStringLiteral("run")) && base.mkpath(QStringLiteral("tmp")));
    const QString runFolder = base.filePath(QStringLiteral("run/%1").arg(uid));
    const QString temporaryFolder = base.filePath(QStringLiteral("tmp/works.tessel.corvel-%1").arg(uid));

    auto make = [&](const QString& path, const QString& kind) {
        if (kind == u"file") {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
        } else if (kind == u"symlink") {
            QVERIFY(base.mkpath(QStringLiteral("elsewhere")));
            QVERIFY(::chmod(QFile::encodeName(base.filePath(QStringLiteral("elsewhere"))).constData(), 0700) == 0);
            QVERIFY(QFile::link(base.filePath(QStringLiteral("elsewhere")), path));
        } else if (kind.startsWith(u"dir")) {
            QVERIFY(QDir().mkpath(path));
            const mode_t mode = kind == u"dir" ? 0700 : mode_t(kind.mid(3).toUInt(nullptr, 8));
            QVERIFY(::chmod(QFile::encodeName(path).constData(), mode) == 0);
        }
    };
    // In the other user's row the run folder belongs to us, not to them, so it must be passed over too.
    make(runFolder, runEntry);
    make(temporaryFolder, temporaryEntry);

    const AskpassChannel::Location location = AskpassChannel::runtimeFolder(
        uid, create ? AskpassChannel::Creation::IfMissing : AskpassChannel::Creation::Never,
        QFile::encodeName(base.filePath(QStringLiteral("run"))).toStdString(),
        QFile::encodeName(base.filePath(QStringLiteral("tmp"))).toStdString());

    if (expected.isEmpty()) {
        QVERIFY(!location.ok());
        QVERIFY(location.path.empty());
        const QString message = QString::fromStdString(location.error);
        QVERIFY2(message.contains(temporaryFolder) && message.contains(error), qPrintable(message));
        if (temporaryEntry.isEmpty()) {
            QVERIFY(!QFileInfo::exists(temporaryFolder));
        }
        return;
    }
    QVERIFY2(location.ok(), location.error.c_str());
    QCOMPARE(QString::fromStdString(location.path), expected == u"run" ? runFolder : temporaryFolder);
    if (expected == u"temporary") {
        const mode_t mode = modeOf(temporaryFolder);
        QVERIFY(S_ISDIR(mode));
        QCOMPARE(mode & 0777, mode_t(0700));
    }
}

QProcess* TestAskpass::startHelper()
{
    const std::optional<QString> helper = Bundle::main().pathForResource(QStringLiteral("Askpass"));
    if (!helper) {
        return nullptr;
    }
    auto* process = new QProcess(this);
    // What sudo leaves the helper: no arguments, and only these two variables.
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("SUDO_ASKPASS"), *helper);
    environment.insert(QStringLiteral("HOME"), m_dir->path());
    process->setProcessEnvironment(environment);
    process->start(*helper, {});
    return process;
}

void TestAskpass::helperProgram_data()
{
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("password") << false << QStringLiteral("hunter2") << QByteArray("hunter2\n") << 0;
    QTest::newRow("empty password") << false << QString() << QByteArray("\n") << 0;
    QTest::newRow("non-ASCII password") << false << QStringLiteral("pässwörd") << QByteArray("p\xc3\xa4ssw\xc3\xb6rd\n")
                                        << 0;
    QTest::newRow("cancel") << true << QString() << QByteArray() << 1;
}

void TestAskpass::helperProgram()
{
    QFETCH(bool, cancel);
    QFETCH(QString, password);
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);

    m_prompt->answerNext(cancel ? std::nullopt : std::optional<QString>(password));
    Askpass askpass(*m_prompt);
    QVERIFY(registerAtUsersSocket(askpass));
    QCOMPARE(askpass.socketPath(), usersSocketPath());

    QProcess* helper = startHelper();
    QVERIFY(helper);
    QVERIFY2(helper->waitForStarted(), qPrintable(helper->errorString()));
    QTRY_COMPARE_WITH_TIMEOUT(helper->state(), QProcess::NotRunning, 20000);

    QCOMPARE(helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(helper->exitCode(), exitCode);
    QCOMPARE(helper->readAllStandardOutput(), output);
    QCOMPARE(helper->readAllStandardError(), QByteArray());
    QCOMPARE(m_prompt->asked(), 1);
}

void TestAskpass::helperProgramWithoutApplication_data()
{
    QTest::addColumn<bool>("staleSocket");

    QTest::newRow("no socket") << false;
    QTest::newRow("socket left by a killed relay") << true;
}

void TestAskpass::helperProgramWithoutApplication()
{
    QFETCH(bool, staleSocket);

    // Take the user's socket first so that no other relay can be listening, then let it go.
    {
        Askpass askpass(*m_prompt);
        QVERIFY(registerAtUsersSocket(askpass));
    }
    const QString path = usersSocketPath();
    QVERIFY(!QFileInfo::exists(path));
    if (staleSocket) {
        QVERIFY(leaveStaleSocket(path));
    }

    QProcess* helper = startHelper();
    QVERIFY(helper);
    // Well within the helper's connect time-out: nobody listening is known at once.
    QVERIFY(helper->waitForFinished(4000));
    QFile::remove(path);

    QCOMPARE(helper->exitStatus(), QProcess::NormalExit);
    QVERIFY(helper->exitCode() != 0);
    QCOMPARE(helper->readAllStandardOutput(), QByteArray());
    const QByteArray error = helper->readAllStandardError();
    QVERIFY2(error.startsWith("Askpass: Corvel X is not running"), error.constData());
    QCOMPARE(m_prompt->asked(), 0);
}

void TestAskpass::usersSocketAndFolderArePrivate()
{
    Askpass askpass(*m_prompt);
    QVERIFY(registerAtUsersSocket(askpass));

    const QString path = askpass.socketPath();
    QCOMPARE(QFileInfo(path).fileName(), QStringLiteral("works.tessel.corvel.askpass"));
    const mode_t socketMode = modeOf(path);
    const mode_t folderMode = modeOf(QFileInfo(path).path());
    QVERIFY(S_ISSOCK(socketMode));
    QVERIFY(S_ISDIR(folderMode));
    QCOMPARE(socketMode & (S_IRWXG | S_IRWXO), mode_t(0));
    QCOMPARE(folderMode & (S_IRWXG | S_IRWXO), mode_t(0));
}

QTEST_GUILESS_MAIN(TestAskpass)
#include "TestAskpass.moc"
