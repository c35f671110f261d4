#include "helpers/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "support/Text.h"

namespace tessivane {

// The socket is closed with the value only, so that no other thread ever ends a stranger's.
class LoopbackServer::Connection final {
 public:
  Connection(int socket, const TLSServer* tls) : socket_(socket) {
    if (tls != nullptr)
      session_ = tls->session(socket);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (thread_.joinable())
      thread_.join();
    ::close(socket_);
  }

  void serveOn(std::thread thread) { thread_ = std::move(thread); }

  bool handshake() { return !session_ || TLSServer::accept(*session_); }

  // Appends what comes next. False at the end.
  bool readInto(std::string& text) {
    std::array<char, 16'384> bytes{};
    const auto size = session_
                          ? ::SSL_read(session_.get(), bytes.data(), static_cast<int>(bytes.size()))
                          : ::recv(socket_, bytes.data(), bytes.size(), 0);
    if (size <= 0)
      return false;
    text.append(bytes.data(), static_cast<std::size_t>(size));
    return true;
  }

  // False when the client is gone.
  bool write(std::string_view text) {
    while (!text.empty()) {
      const auto size =
          session_ ? ::SSL_write(session_.get(), text.data(), static_cast<int>(text.size()))
                   : ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
      if (size <= 0)
        return false;
      text.remove_prefix(static_cast<std::size_t>(size));
    }
    return true;
  }

  bool write(std::string_view text, std::optional<std::chrono::milliseconds> drip) {
    if (!drip)
      return write(text);
    for (; !text.empty(); text.remove_prefix(1)) {
      if (!write(text.substr(0, 1)))
        return false;
      std::this_thread::sleep_for(*drip);
    }
    return true;
  }

  void waitUntilEnded() {
    std::string ignored;
    while (readInto(ignored))
      ignored.clear();
  }

  void end() const { ::shutdown(socket_, SHUT_RDWR); }

 private:
  const int socket_;
  TLSServer::Session session_{nullptr, [](ssl_st*) {}};
  std::thread thread_;
};

namespace {

// Whatever proxy the person who runs the tests has set up, this interface is not behind it. Before
// `main`, where no other thread can be reading the environment.
[[maybe_unused]] const int withoutProxy =
    ::setenv("no_proxy", "127.0.0.1", 1);  // NOLINT(concurrency-mt-unsafe)

// The request with this head, still without a body.
HTTPRequest requestOf(const std::string& head) {
  HTTPRequest request;
  std::istringstream text(head);
  text >> request.method >> request.url;
  std::string line;
  std::getline(text, line);
  while (std::getline(text, line)) {
    const auto colon = std::min(line.find(':'), line.size() - 1);
    request.headers.push_back(
        {.name = line.substr(0, colon), .value = std::string(trimmed(line.substr(colon + 1)))});
  }
  return request;
}

std::size_t bodySize(const HTTPRequest& request) {
  for (const HTTPHeader& header : request.headers) {
    if (header.name == "Content-Length")
      return std::stoull(header.value);
  }
  return 0;
}

template <typename Connection>
std::optional<HTTPRequest> readRequest(Connection& connection) {
  std::string text;
  std::size_t end = std::string::npos;
  while ((end = text.find("\r\n\r\n")) == std::string::npos) {
    if (!connection.readInto(text))
      return std::nullopt;
  }
  HTTPRequest request = requestOf(text.substr(0, end));
  text.erase(0, end + 4);
  const std::size_t size = bodySize(request);
  while (text.size() < size) {
    if (!connection.readInto(text))
      return std::nullopt;
  }
  if (size > 0)
    request.body = std::move(text);
  return request;
}

std::string headOf(const LoopbackServer::Answer& answer) {
  std::string head = fmt::format("HTTP/1.1 {} Scripted\r\n", answer.status);
  for (const HTTPHeader& header : answer.headers)
    head += fmt::format("{}: {}\r\n", header.name, header.value);
  return head + fmt::format("Content-Length: {}\r\nConnection: close\r\n\r\n", answer.body.size());
}

template <typename Connection>
void send(Connection& connection, const LoopbackServer::Answer& answer) {
  if (answer.silent) {
    connection.waitUntilEnded();
    return;
  }
  const std::string head = answer.raw ? "" : headOf(answer);
  const std::string_view body = answer.raw ? *answer.raw : answer.body;
  const std::size_t limit = answer.cutAfter.value_or(head.size() + body.size());
  if (connection.write(std::string_view(head).substr(0, limit)) && limit > head.size())
    connection.write(body.substr(0, limit - head.size()), answer.drip);
}

}  // namespace

LoopbackServer::LoopbackServer(Handler handler, Kind kind, const TLSValidity& validity)
    : handler_(std::move(handler)) {
  if (kind == Kind::https)
    tls_ = std::make_unique<TLSServer>(validity);
  listen(kind);
  if (kind != Kind::closed)
    acceptor_ = std::thread([this] { acceptAll(); });
}

LoopbackServer::~LoopbackServer() {
  ::shutdown(listener_, SHUT_RDWR);
  if (acceptor_.joinable())
    acceptor_.join();
  ::close(listener_);
  std::vector<std::unique_ptr<Connection>> connections;
  {
    const MutexLock lock(mutex_);
    connections.swap(connections_);
  }
  for (const auto& connection : connections)
    connection->end();
}

std::vector<HTTPRequest> LoopbackServer::requests() const {
  const MutexLock lock(mutex_);
  return requests_;
}

std::size_t LoopbackServer::connections() const {
  const MutexLock lock(mutex_);
  return connections_.size();
}

void LoopbackServer::listen(Kind kind) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const plain = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (::bind(listener_, plain, size) != 0 || ::getsockname(listener_, plain, &size) != 0 ||
      (kind != Kind::closed && ::listen(listener_, 64) != 0))
    throw std::system_error(errno, std::generic_category(), "LoopbackServer");
  origin_ = (kind == Kind::https ? "https://127.0.0.1:" : "http://127.0.0.1:") +
            std::to_string(ntohs(address.sin_port));
}

void LoopbackServer::acceptAll() {
  while (true) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0 && (errno == EINTR || errno == ECONNABORTED))
      continue;
    if (socket < 0)
      return;
    const MutexLock lock(mutex_);
    Connection& connection =
        *connections_.emplace_back(std::make_unique<Connection>(socket, tls_.get()));
    connection.serveOn(std::thread([this, &connection] { serve(connection); }));
  }
}

void LoopbackServer::serve(Connection& connection) {
  // OpenSSL writes without asking the system to keep quiet about a client that is gone.
  sigset_t pipe;
  ::sigemptyset(&pipe);
  ::sigaddset(&pipe, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

  if (connection.handshake()) {
    if (const auto request = readRequest(connection)) {
      {
        const MutexLock lock(mutex_);
        requests_.push_back(*request);
      }
      send(connection, handler_ ? handler_(*request) : Answer{});
    }
  }
  connection.end();
}

}  // namespace tessivane
