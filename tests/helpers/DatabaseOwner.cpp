#include "helpers/DatabaseOwner.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <vector>

#include <sqlite3.h>

namespace tessivane {

namespace {

// One packet is one text of statements, the answer is SQLite's result. An empty packet ends it.
[[noreturn]] void serve(int socket, const std::string& path) {
  sqlite3* db = nullptr;
  std::vector<char> packet(1 << 16);
  ssize_t size = 0;
  while ((size = ::recv(socket, packet.data(), packet.size() - 1, 0)) > 0) {
    packet[static_cast<std::size_t>(size)] = '\0';
    int result = SQLITE_OK;
    if (db == nullptr)
      result = sqlite3_open(path.c_str(), &db);
    if (result == SQLITE_OK)
      result = sqlite3_exec(db, packet.data(), nullptr, nullptr, nullptr);
    ::send(socket, &result, sizeof result, MSG_NOSIGNAL);
  }
  sqlite3_close(db);
  ::_exit(0);
}

}  // namespace

DatabaseOwner::DatabaseOwner(const std::string& path) {
  std::array<int, 2> sockets{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets.data()) != 0)
    throw std::runtime_error("DatabaseOwner: no socket");
  process_ = ::fork();
  if (process_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(sockets[0]);
    serve(sockets[1], path);
  }
  ::close(sockets[1]);
  socket_ = sockets[0];
  if (process_ < 0)
    throw std::runtime_error("DatabaseOwner: no process");
}

DatabaseOwner::~DatabaseOwner() {
  close();
}

void DatabaseOwner::run(std::string_view sql) const {
  int result = SQLITE_ERROR;
  ::send(socket_, sql.data(), sql.size(), MSG_NOSIGNAL);
  if (::recv(socket_, &result, sizeof result, 0) != sizeof result || result != SQLITE_OK) {
    throw std::runtime_error(std::string(sqlite3_errstr(result)) + ": " + std::string(sql));
  }
}

void DatabaseOwner::close() {
  if (process_ < 0)
    return;
  ::send(socket_, "", 0, MSG_NOSIGNAL);
  ::waitpid(process_, nullptr, 0);
  ::close(socket_);
  process_ = -1;
}

void DatabaseOwner::kill() {
  ::kill(process_, SIGKILL);
  close();
}

}  // namespace tessivane
