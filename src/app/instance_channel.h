// How a second copy of Tarnwell hands over to the running one. Only the holder of the instance
// lock listens, on a local socket in $XDG_RUNTIME_DIR; a later copy connects, sends its
// activation token (XDG_ACTIVATION_TOKEN, so Wayland lets the running window come forward) and
// quits.
//
// Wire format, one line each way: "activate <token>\n" (the token may be empty), answered by
// "ok\n".
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QLocalServer;
class QLocalSocket;

namespace tw {

// The socket of the copy that owns the library folder `libraryFolder`: one per library, so
// copies using different data folders never meet.
QString instanceSocketPath(const std::string& libraryFolder);

// The longest token forwarded; tokens are short printable ASCII strings.
inline constexpr int kMaximumActivationTokenBytes = 512;
// Keeps only a token made of printable ASCII without spaces, at most the length above.
QByteArray sanitizedActivationToken(const QByteArray& token);

// The running copy's side.
class InstanceServer : public QObject {
  Q_OBJECT
 public:
  explicit InstanceServer(QObject* parent = nullptr);
  ~InstanceServer() override;

  // Removes a socket left by a copy that died, then listens. Call only while holding the lock.
  bool listen(const QString& socketPath);
  QString errorString() const;

 signals:
  void activationRequested(const QByteArray& token);

 private:
  void acceptConnections();
  void readRequest(QLocalSocket* socket);

  QLocalServer* server_;
};

// The second copy's side: tells the running copy to come forward, with `token`. Retries while the
// running copy has the lock but does not listen yet, up to `timeoutMs`. Returns whether the
// running copy confirmed.
bool forwardActivation(const QString& socketPath, const QByteArray& token, int timeoutMs = 3000);

}  // namespace tw
