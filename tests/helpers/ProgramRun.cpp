#include "helpers/ProgramRun.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "helpers/Command.h"

namespace tessivane {

namespace {

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("ProgramRun: " + what);
}

// `own`, and what programs need of this process's environment.
std::vector<std::string> environmentFor(std::vector<std::string> own) {
  constexpr std::array<std::string_view, 6> kept = {
      "PATH=", "TMPDIR=", "ASAN_OPTIONS=", "UBSAN_OPTIONS=", "TSAN_OPTIONS=", "LANG="};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (std::ranges::any_of(kept, [text](auto name) { return text.starts_with(name); }))
      own.emplace_back(text);
  }
  return own;
}

}  // namespace

ProgramRun::ProgramRun(const Options& options) {
  const int log = ::open(options.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  require(log >= 0, "cannot write " + options.log);
  process_ = spawn(options.command, environmentFor(options.environment), {-1, log, log});
  ::close(log);
  descriptor_ = static_cast<int>(::syscall(SYS_pidfd_open, process_, 0));
  require(descriptor_ >= 0, "no descriptor of the process");
}

ProgramRun::~ProgramRun() {
  if (isRunning()) {
    signal(SIGKILL);
    wait(std::chrono::minutes(1));
  }
  ::close(descriptor_);
}

bool ProgramRun::catches(int number) const {
  constexpr std::string_view label = "SigCgt:";
  std::ifstream status("/proc/" + std::to_string(process_) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(label))
      return (std::stoull(line.substr(label.size()), nullptr, 16) >> (number - 1) & 1) != 0;
  }
  return false;
}

void ProgramRun::signal(int number) const {
  if (!status_)
    ::kill(process_, number);
}

std::optional<int> ProgramRun::wait(Seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!status_) {
    const auto left = end - std::chrono::steady_clock::now();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    pollfd ended{.fd = descriptor_, .events = POLLIN, .revents = 0};
    const int count = ::poll(&ended, 1, static_cast<int>(std::max<long>(milliseconds, 0)));
    if (count < 0 && errno == EINTR)
      continue;
    if (count == 0)
      return std::nullopt;
    int status = 0;
    require(::waitpid(process_, &status, 0) == process_, "the process is not ours");
    status_ = status;
  }
  return status_;
}

ProgramRun::Options ProgramHome::headless(const std::string& program) const {
  std::filesystem::create_directories(home());
  return {.command = {program, "--headless"},
          .environment = {"HOME=" + home(),
                          "XDG_CONFIG_HOME=" + directory + "/config",
                          "XDG_DATA_HOME=" + directory + "/data"},
          .log = log()};
}

}  // namespace tessivane
