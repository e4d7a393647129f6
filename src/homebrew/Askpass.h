// The administrator password relay: sudo's Askpass helper connects to this server's socket, the person answers a
// password prompt, and the helper receives the password or the cancel reply. One instance lives for the process.
#pragma once

#include "foundation/Result.h"

#include <QObject>
#include <QPointer>
#include <QQueue>
#include <optional>

class PasswordPrompt;
class QLocalServer;
class QLocalSocket;

class Askpass : public QObject {
    Q_OBJECT

public:
    enum ErrorCode {
        runtimeFolderUnusable = 1,
        portInUse,
        unableToListen,
    };
    static QString errorDomain();

    // An empty socketPath means the one the helper looks for (AskpassChannel's, for the current user); tests pass
    // their own. prompt must outlive this object.
    explicit Askpass(PasswordPrompt& prompt, QString socketPath = {}, QObject* parent = nullptr);
    // Requests still waiting are answered with the cancel reply, so that their helpers fail instead of handing
    // sudo an empty password.
    ~Askpass() override;

    // Starts listening, except in a process that runs for interface previews. A live relay of another running
    // instance is left alone and reported; a socket file left behind by a crashed run is replaced.
    Result<void> registerPort();
    bool isRegistered() const;
    // The socket listened on; empty before a successful registerPort() when the path was left to the channel.
    QString socketPath() const { return m_socketPath; }

Q_SIGNALS:
    // A helper asked for the password; its prompt opens now or once the requests before it are answered.
    void requestReceived();

private:
    void acceptConnections();
    void serveNext();
    void reply(QLocalSocket* socket, std::optional<QString> password);

    PasswordPrompt& m_prompt;
    QString m_socketPath;
    QLocalServer* m_server = nullptr;
    QQueue<QPointer<QLocalSocket>> m_waiting;
    // The request whose prompt is open, and a number telling its answer from a stale one.
    QPointer<QLocalSocket> m_answering;
    bool m_prompting = false;
    quint64 m_request = 0;
};
