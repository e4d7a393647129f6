#include "PiecewiseDownloadServer.h"

#include <QHostAddress>

PiecewiseDownloadServer::PiecewiseDownloadServer(qint64 length, qint64 firstPart)
    : m_length(length)
    , m_firstPart(firstPart)
{
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        m_client = m_server.nextPendingConnection();
        connect(m_client, &QTcpSocket::readyRead, this, [this] {
            m_request += m_client->readAll();
            if (!m_answered && m_request.contains("\r\n\r\n")) {
                m_answered = true;
                m_client->write("HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                                QByteArray::number(m_length) + "\r\nConnection: close\r\n\r\n" +
                                QByteArray(m_firstPart, 'a'));
            }
        });
    });
}

bool PiecewiseDownloadServer::listen()
{
    return m_server.listen(QHostAddress::LocalHost);
}

QUrl PiecewiseDownloadServer::baseUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()));
}

void PiecewiseDownloadServer::send(const QByteArray& part, bool last)
{
    if (!m_client) {
        return;
    }
    m_client->write(part);
    if (last) {
        m_client->disconnectFromHost();
    }
}
