#include "diagnostics/CrashReportUpload.h"

#include "foundation/HttpClient.h"

#include <QNetworkReply>
#include <QSslSocket>
#include <QTimer>

namespace {

Error transportError(QNetworkReply::NetworkError code, const QString& description)
{
    return Error(HttpClient::errorDomain, code, description);
}

Result<QByteArray> dechunked(const QByteArray& data)
{
    QByteArray body;
    qsizetype position = 0;
    for (;;) {
        const qsizetype lineEnd = data.indexOf("\r\n", position);
        if (lineEnd < 0) {
            return transportError(QNetworkReply::ProtocolFailure, QStringLiteral("Truncated chunked answer"));
        }
        bool ok = false;
        const qsizetype size = data.mid(position, lineEnd - position).split(';').first().trimmed().toLongLong(&ok, 16);
        if (!ok || size < 0 || lineEnd + 2 + size > data.size()) {
            return transportError(QNetworkReply::ProtocolFailure, QStringLiteral("Malformed chunked answer"));
        }
        if (size == 0) {
            return body;
        }
        body += data.mid(lineEnd + 2, size);
        position = lineEnd + 2 + size + 2;
    }
}

} // namespace

CrashReportUpload::CrashReportUpload(const QUrl& server, QByteArray target, QByteArray body,
                                     std::chrono::milliseconds timeout, QObject* parent)
    : QObject(parent)
    , m_server(server)
    , m_target(std::move(target))
    , m_body(std::move(body))
    , m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(timeout);
    connect(m_timer, &QTimer::timeout, this, [this] {
        finish(transportError(QNetworkReply::TimeoutError, QStringLiteral("The crash report upload timed out")));
    });
}

void CrashReportUpload::start(std::function<void(const Result<Answer>&)> completion)
{
    m_completion = std::move(completion);
    const bool secure = m_server.scheme() == QLatin1String("https");
    if (!secure && m_server.scheme() != QLatin1String("http")) {
        QMetaObject::invokeMethod(
            this,
            [this] {
                finish(transportError(QNetworkReply::ProtocolUnknownError,
                                      QStringLiteral("Unsupported scheme \"%1\"").arg(m_server.scheme())));
            },
            Qt::QueuedConnection);
        return;
    }
    const quint16 port = static_cast<quint16>(m_server.port(secure ? 443 : 80));
    m_socket = secure ? new QSslSocket(this) : new QTcpSocket(this);
    connect(m_socket, &QTcpSocket::readyRead, this, [this] {
        m_received += m_socket->readAll();
        m_timer->start();
        // Servers may keep the connection open despite "Connection: close"; a complete answer is enough.
        if (answerComplete()) {
            finish(parseAnswer());
        }
    });
    connect(m_socket, &QTcpSocket::disconnected, this, [this] {
        m_received += m_socket->readAll();
        finish(parseAnswer());
    });
    connect(m_socket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        // The server closing after its answer is the normal end of a "Connection: close" exchange.
        if (error == QAbstractSocket::RemoteHostClosedError && !m_received.isEmpty()) {
            m_received += m_socket->readAll();
            finish(parseAnswer());
            return;
        }
        const auto code = error == QAbstractSocket::ConnectionRefusedError ? QNetworkReply::ConnectionRefusedError
                          : error == QAbstractSocket::HostNotFoundError    ? QNetworkReply::HostNotFoundError
                                                                           : QNetworkReply::UnknownNetworkError;
        finish(transportError(code, m_socket->errorString()));
    });

    const QByteArray host = m_server.host(QUrl::FullyEncoded).toUtf8();
    const QByteArray hostHeader = m_server.port() == -1 ? host : host + ':' + QByteArray::number(port);
    const QByteArray request =
        "POST " + m_target + " HTTP/1.1\r\nHost: " + hostHeader +
        "\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(m_body.size()) +
        "\r\nAccept: */*\r\nConnection: close\r\n\r\n" + m_body;
    m_timer->start();
    if (secure) {
        auto* socket = static_cast<QSslSocket*>(m_socket);
        connect(socket, &QSslSocket::encrypted, this, [socket, request] { socket->write(request); });
        socket->connectToHostEncrypted(m_server.host(), port);
    } else {
        connect(m_socket, &QTcpSocket::connected, this, [this, request] { m_socket->write(request); });
        m_socket->connectToHost(m_server.host(), port);
    }
}

bool CrashReportUpload::answerComplete() const
{
    const qsizetype headerEnd = m_received.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        return false;
    }
    const QByteArray head = m_received.left(headerEnd).toLower();
    const QList<QByteArray> statusLine = head.left(head.indexOf("\r\n")).split(' ');
    const int status = statusLine.value(1).toInt();
    if (status == 204 || status == 304 || (status >= 100 && status < 200)) {
        return status >= 200;
    }
    const qsizetype bodyLength = m_received.size() - headerEnd - 4;
    for (const QByteArray& line : head.split('\n')) {
        if (line.startsWith("content-length:")) {
            return bodyLength >= line.mid(15).trimmed().toLongLong();
        }
        if (line.startsWith("transfer-encoding:") && line.contains("chunked")) {
            return m_received.endsWith("\r\n0\r\n\r\n") || (bodyLength == 5 && m_received.endsWith("0\r\n\r\n"));
        }
    }
    return false;
}

Result<CrashReportUpload::Answer> CrashReportUpload::parseAnswer() const
{
    const qsizetype headerEnd = m_received.indexOf("\r\n\r\n");
    const QList<QByteArray> head = m_received.left(headerEnd).split('\n');
    const QList<QByteArray> statusLine = head.value(0).trimmed().split(' ');
    bool ok = false;
    const int status = statusLine.value(1).toInt(&ok);
    if (headerEnd < 0 || !statusLine.value(0).startsWith("HTTP/") || !ok) {
        return transportError(QNetworkReply::ProtocolFailure, QStringLiteral("The server's answer is not HTTP"));
    }
    bool chunked = false;
    qsizetype length = -1;
    for (const QByteArray& line : head.mid(1)) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "transfer-encoding" && value.toLower().contains("chunked")) {
            chunked = true;
        } else if (name == "content-length") {
            length = value.toLongLong();
        }
    }
    QByteArray body = m_received.mid(headerEnd + 4);
    if (chunked) {
        Result<QByteArray> decoded = dechunked(body);
        if (!decoded) {
            return decoded.error();
        }
        body = decoded.value();
    } else if (length >= 0) {
        body.truncate(length);
    }
    return Answer{status, body};
}

void CrashReportUpload::finish(const Result<Answer>& answer)
{
    if (m_done) {
        return;
    }
    m_done = true;
    m_timer->stop();
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
    }
    if (m_completion) {
        m_completion(answer);
    }
    deleteLater();
}
