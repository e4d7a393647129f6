#include "homebrew/Askpass.h"

#include "foundation/Logging.h"
#include "homebrew/AskpassChannel.h"
#include "homebrew/PasswordPrompt.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <unistd.h>

namespace {

QByteArray cancelReply()
{
    return QByteArray(AskpassChannel::cancelReply.data(), qsizetype(AskpassChannel::cancelReply.size()));
}

// Best effort: overwrites the text in place when nothing else shares it, then lets it go.
void forget(QByteArray& bytes)
{
    bytes.fill('\0');
    bytes.clear();
}

void forget(std::optional<QString>& text)
{
    if (text) {
        text->fill(QChar(u'\0'));
        text->clear();
        text.reset();
    }
}

} // namespace

QString Askpass::errorDomain()
{
    return QStringLiteral("AskpassError");
}

Askpass::Askpass(PasswordPrompt& prompt, QString socketPath, QObject* parent)
    : QObject(parent)
    , m_prompt(prompt)
    , m_socketPath(std::move(socketPath))
    , m_server(new QLocalServer(this))
{
    connect(m_server, &QLocalServer::newConnection, this, &Askpass::acceptConnections);
}

Askpass::~Askpass()
{
    QList<QPointer<QLocalSocket>> unanswered(m_waiting.cbegin(), m_waiting.cend());
    unanswered.prepend(m_answering);
    for (const QPointer<QLocalSocket>& socket : std::as_const(unanswered)) {
        if (socket && socket->state() == QLocalSocket::ConnectedState) {
            socket->write(cancelReply());
            socket->flush();
        }
    }
}

Result<void> Askpass::registerPort()
{
    if (qEnvironmentVariable("XCODE_RUNNING_FOR_PREVIEWS") == u"1") {
        return {};
    }
    qCInfo(lcCorvel) << "Registering askpass message port";
    if (m_server->isListening()) {
        return {};
    }

    QString path = m_socketPath;
    if (path.isEmpty()) {
        const AskpassChannel::Location location = AskpassChannel::socketPath(::getuid());
        if (!location.ok()) {
            return Error(errorDomain(), runtimeFolderUnusable, QString::fromStdString(location.error));
        }
        path = QString::fromStdString(location.path);
    }

    // Only a socket nobody answers on may be removed: a second instance must not cut off the first one's helpers.
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(1000)) {
        probe.abort();
        return Error(
            errorDomain(), portInUse,
            tr("Another instance of Corvel X already answers administrator password requests at %1").arg(path));
    }
    QLocalServer::removeServer(path);

    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(path)) {
        return Error(
            errorDomain(), unableToListen,
            tr("Unable to listen for administrator password requests at %1: %2").arg(path, m_server->errorString()));
    }
    m_socketPath = path;
    return {};
}

bool Askpass::isRegistered() const
{
    return m_server->isListening();
}

void Askpass::acceptConnections()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket, requested = false]() mutable {
            // Only the arrival of a request means anything; its bytes, and any that follow, are dropped.
            socket->readAll();
            if (!std::exchange(requested, true)) {
                m_waiting.enqueue(socket);
                Q_EMIT requestReceived();
                serveNext();
            }
        });
    }
}

void Askpass::serveNext()
{
    if (m_prompting) {
        return;
    }
    QPointer<QLocalSocket> socket;
    while (!socket && !m_waiting.isEmpty()) {
        socket = m_waiting.dequeue();
        // A helper that already gave up needs no one to type a password for it.
        if (socket && socket->state() != QLocalSocket::ConnectedState) {
            socket = nullptr;
        }
    }
    if (!socket) {
        return;
    }

    m_prompting = true;
    m_answering = socket;
    const quint64 request = ++m_request;
    QPointer<Askpass> self(this);
    m_prompt.askPassword([self, request](std::optional<QString> password) {
        if (!self || !self->m_prompting || self->m_request != request) {
            forget(password);
            return;
        }
        self->m_prompting = false;
        QPointer<QLocalSocket> socket = std::exchange(self->m_answering, nullptr);
        self->reply(socket, std::move(password));
        self->serveNext();
    });
}

void Askpass::reply(QLocalSocket* socket, std::optional<QString> password)
{
    QByteArray bytes = password ? password->toUtf8() : cancelReply();
    forget(password);
    if (socket && socket->state() == QLocalSocket::ConnectedState) {
        socket->write(bytes);
        // Closing marks the end of the reply; pending bytes are written first.
        socket->disconnectFromServer();
    }
    forget(bytes);
}
