// A loopback HTTP server that answers one download with an announced length, sends a first part at once and the
// rest only when the test says, so that a download can be watched part of the way. (No signals of its own, so no
// meta-object: the test-support library is built without moc.)
#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

class PiecewiseDownloadServer : public QObject {
public:
    // A response of length bytes whose first part is firstPart bytes long.
    PiecewiseDownloadServer(qint64 length, qint64 firstPart);

    bool listen();
    QUrl baseUrl() const;
    // What the client sent so far (the request line and headers).
    const QByteArray& request() const { return m_request; }

    // Sends more of the body; the last part closes the connection.
    void send(const QByteArray& part, bool last = false);

private:
    QTcpServer m_server;
    QPointer<QTcpSocket> m_client;
    QByteArray m_request;
    qint64 m_length;
    qint64 m_firstPart;
    bool m_answered = false;
};
