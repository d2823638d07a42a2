#include "app/instance_channel.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>

namespace tw {

namespace {
constexpr QByteArrayView kRequest = "activate ";
constexpr QByteArrayView kReply = "ok\n";
constexpr int kMaximumRequestBytes = kMaximumActivationTokenBytes + 64;
}  // namespace

QString instanceSocketPath(const std::string& libraryFolder) {
  const QByteArray digest =
      QCryptographicHash::hash(QByteArray::fromStdString(libraryFolder), QCryptographicHash::Sha256)
          .toHex()
          .left(16);
  const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  return QDir(runtime).filePath(
      QStringLiteral("org.tarnwell.Tarnwell-%1.socket").arg(QString::fromLatin1(digest)));
}

QByteArray sanitizedActivationToken(const QByteArray& token) {
  if (token.size() > kMaximumActivationTokenBytes) return {};
  for (char c : token) {
    if (c <= 0x20 || c >= 0x7f) return {};
  }
  return token;
}

InstanceServer::InstanceServer(QObject* parent) : QObject(parent), server_(new QLocalServer(this)) {
  server_->setSocketOptions(QLocalServer::UserAccessOption);
  connect(server_, &QLocalServer::newConnection, this, &InstanceServer::acceptConnections);
}

InstanceServer::~InstanceServer() = default;

bool InstanceServer::listen(const QString& socketPath) {
  QLocalServer::removeServer(socketPath);
  return server_->listen(socketPath);
}

QString InstanceServer::errorString() const {
  return server_->errorString();
}

void InstanceServer::acceptConnections() {
  while (QLocalSocket* socket = server_->nextPendingConnection()) {
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
    if (socket->bytesAvailable() > 0) readRequest(socket);
  }
}

void InstanceServer::readRequest(QLocalSocket* socket) {
  if (!socket->canReadLine()) {
    // A peer that never ends its line is cut off once it has sent more than a request can hold.
    if (socket->bytesAvailable() > kMaximumRequestBytes) socket->abort();
    return;
  }
  const QByteArray line = socket->readLine(kMaximumRequestBytes);
  if (!line.startsWith(kRequest) || !line.endsWith('\n')) {
    socket->abort();
    return;
  }
  const QByteArray token = sanitizedActivationToken(line.mid(kRequest.size()).chopped(1));
  socket->write(kReply.data(), kReply.size());
  socket->flush();
  socket->disconnectFromServer();
  emit activationRequested(token);
}

bool forwardActivation(const QString& socketPath, const QByteArray& token, int timeoutMs) {
  const QDeadlineTimer deadline(timeoutMs);
  while (true) {
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (socket.waitForConnected(static_cast<int>(std::max<qint64>(1, deadline.remainingTime())))) {
      QByteArray request = kRequest.toByteArray() + sanitizedActivationToken(token) + '\n';
      socket.write(request);
      socket.waitForBytesWritten(static_cast<int>(std::max<qint64>(1, deadline.remainingTime())));
      while (!socket.canReadLine() && socket.state() == QLocalSocket::ConnectedState &&
             socket.waitForReadyRead(
                 static_cast<int>(std::max<qint64>(1, deadline.remainingTime())))) {
      }
      return socket.canReadLine() && socket.readLine() == kReply.toByteArray();
    }
    // The running copy may hold the lock but not listen yet.
    if (deadline.hasExpired()) return false;
    QThread::msleep(50);
  }
}

}  // namespace tw
