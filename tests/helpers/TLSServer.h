#pragma once

// The server's side of TLS, with a certificate for 127.0.0.1 that is made when the value is and
// that nobody but itself has signed. Safe on every thread; a session belongs to one.

#include <memory>

struct ssl_st;
struct ssl_ctx_st;

namespace tessivane {

class TLSServer final {
 public:
  using Session = std::unique_ptr<ssl_st, void (*)(ssl_st*)>;
  enum class Handshake { done, distrusted, failed };

  /// Throws when OpenSSL refuses something.
  TLSServer();

  /// A session over a connected socket, which it does not own.
  Session session(int socket) const;

  /// Waits for the client. `distrusted` when it has said that it does not know who signed.
  static Handshake accept(ssl_st& session);

 private:
  std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)> context_;
};

}  // namespace tessivane
