#pragma once

// The server's side of TLS, with a certificate that is made when the value is and that nobody but
// itself has signed. Safe on every thread; a session belongs to one.

#include <chrono>
#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace tessivane {

/// For which address a certificate is good, and when, from now.
struct TLSValidity {
  std::string address = "127.0.0.1";
  std::chrono::seconds begin{-3'600};
  std::chrono::seconds end{3'600};
};

class TLSServer final {
 public:
  using Session = std::unique_ptr<ssl_st, void (*)(ssl_st*)>;

  /// Throws when OpenSSL refuses something.
  explicit TLSServer(const TLSValidity& validity = {});

  /// As a file of trusted authorities holds it.
  const std::string& certificate() const { return certificate_; }

  /// A session over a connected socket, which it does not own.
  Session session(int socket) const;

  /// Waits for the client. False when there is nothing to talk about.
  static bool accept(ssl_st& session);

 private:
  std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)> context_;
  std::string certificate_;
};

}  // namespace tessivane
