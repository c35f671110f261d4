#include "platform/linux/ChildProcessRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <utility>

namespace tessivane {

namespace {

using Instant = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

// From the request to end to the end without asking, and from there to giving up.
constexpr milliseconds patience{250};
// Longer limits count as this: a sum with the present instant must not overflow.
constexpr Seconds longestLimit = std::chrono::hours(24);

class Descriptor final {
 public:
  explicit Descriptor(int value = -1) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  /// Negative for none, which poll passes over.
  int get() const { return value_; }
  explicit operator bool() const { return value_ >= 0; }
  void close() {
    if (value_ >= 0)
      ::close(std::exchange(value_, -1));
  }

 private:
  int value_;
};

// A pipe from the program to us: what was read of it, up to a ceiling.
class Outlet final {
 public:
  explicit Outlet(std::size_t maxSize) : maxSize_(maxSize) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
      return;
    reading_ = Descriptor(ends[0]);
    const Descriptor any(ends[1]);
    ::fcntl(reading_.get(), F_SETFL, O_NONBLOCK);
    // Above the standard ones, which the program's own will replace one after the other.
    writing_ = Descriptor(::fcntl(any.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }

  bool isOpen() const { return static_cast<bool>(writing_); }
  const Descriptor& reading() const { return reading_; }
  Descriptor& writing() { return writing_; }
  std::string& text() { return text_; }

  /// Reads some of what is there. False when nothing is.
  bool take() {
    std::array<char, 16 * 1024> buffer{};
    const ssize_t size = ::read(reading_.get(), buffer.data(), buffer.size());
    if (size > 0) {
      text_.append(buffer.data(), std::min<std::size_t>(static_cast<std::size_t>(size), room()));
      return true;
    }
    if (size == 0 || (errno != EAGAIN && errno != EINTR))
      reading_.close();
    return false;
  }

  /// Reads all that is there and of use. Whoever goes on writing does not hold it up.
  void takeRest() {
    while (room() > 0 && take()) {
    }
  }

 private:
  std::size_t room() const { return maxSize_ - text_.size(); }

  std::size_t maxSize_;
  Descriptor reading_;
  Descriptor writing_;
  std::string text_;
};

// Readable as soon as a stop is requested.
class StopEvent final {
 public:
  explicit StopEvent(const std::stop_token& stop)
      : callback_(stop, [this] { ::eventfd_write(event_.get(), 1); }) {}
  const Descriptor& descriptor() const { return event_; }

 private:
  Descriptor event_{::eventfd(0, EFD_CLOEXEC)};
  std::stop_callback<std::function<void()>> callback_;
};

class SpawnSettings final {
 public:
  SpawnSettings(int output, int errors) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
    // Also what a library has opened without a thought for programs started later.
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t signals{};
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }

  std::optional<pid_t> spawn(const ChildProcessCommand& command) const {
    std::vector<std::string> texts = {command.path};
    texts.insert(texts.end(), command.arguments.begin(), command.arguments.end());
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string& text : texts)
      arguments.push_back(text.data());
    arguments.push_back(nullptr);
    pid_t process = 0;
    if (::posix_spawn(
            &process, command.path.c_str(), &actions_, &attributes_, arguments.data(), environ) !=
        0)
      return std::nullopt;
    return process;
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// glibc's own function is not there before 2.36, and its header is not meant for C++.
Descriptor descriptorOf(pid_t process) {
  return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
}

// The program that runs, the leader of its group. As long as nobody has waited for it, dead or not,
// its number belongs to it and its group.
class Child final {
 public:
  enum class Event { ended, deadline, stopped };

  Child(pid_t process, Outlet& output, Outlet& errors)
      : process_(process), descriptor_(descriptorOf(process)), output_(output), errors_(errors) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() = default;

  /// False on a kernel that cannot tell of the end of a process (Linux before 5.3).
  bool canBeFollowed() const { return static_cast<bool>(descriptor_); }

  /// Reads what it writes until it has ended, at most until `deadline`.
  Event follow(Instant deadline, int stop) {
    for (;;) {
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= left.zero())
        return Event::deadline;
      std::array<pollfd, 4> waiting = {pollfd{descriptor_.get(), POLLIN, 0},
                                       pollfd{stop, POLLIN, 0},
                                       pollfd{output_.reading().get(), POLLIN, 0},
                                       pollfd{errors_.reading().get(), POLLIN, 0}};
      const auto timeout = std::chrono::ceil<milliseconds>(left).count();
      if (::poll(waiting.data(), waiting.size(), static_cast<int>(timeout)) < 0)
        continue;
      if (waiting[2].revents != 0)
        output_.take();
      if (waiting[3].revents != 0)
        errors_.take();
      if (waiting[0].revents != 0)
        return Event::ended;
      if (waiting[1].revents != 0)
        return Event::stopped;
    }
  }

  /// Ends the whole group.
  void end() {
    ::kill(-process_, SIGTERM);
    follow(std::chrono::steady_clock::now() + patience, -1);
    kill();
  }
  void kill() {
    ::kill(-process_, SIGKILL);
    // It may have left the group that it was given.
    ::kill(process_, SIGKILL);
    follow(std::chrono::steady_clock::now() + patience, -1);
  }

  /// How it ended. One that hangs in the kernel has not, and is left behind.
  siginfo_t reap() const {
    siginfo_t info{};
    ::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG);
    return info;
  }

 private:
  const pid_t process_;
  const Descriptor descriptor_;
  Outlet& output_;
  Outlet& errors_;
};

ChildProcessResult::End endAfter(Child::Event event, const siginfo_t& info) {
  if (event == Child::Event::deadline)
    return ChildProcessResult::End::timedOut;
  if (event == Child::Event::stopped)
    return ChildProcessResult::End::stopped;
  return info.si_code == CLD_EXITED ? ChildProcessResult::End::exited
                                    : ChildProcessResult::End::signalled;
}

}  // namespace

std::optional<ChildProcessResult> runChildProcess(const ChildProcessCommand& command,
                                                  const std::stop_token& stop) {
  if (stop.stop_requested())
    return ChildProcessResult{.end = ChildProcessResult::End::stopped};
  const StopEvent stopEvent(stop);
  Outlet output(command.maxOutput);
  Outlet errors(0);
  if (!stopEvent.descriptor() || !output.isOpen() || !errors.isOpen())
    return std::nullopt;
  const auto limit = std::chrono::ceil<milliseconds>(std::min(command.limit, longestLimit));
  const Instant deadline = std::chrono::steady_clock::now() + limit;
  const auto process = SpawnSettings(output.writing().get(), errors.writing().get()).spawn(command);
  if (!process)
    return std::nullopt;
  // So that the pipes end with the last one who writes.
  output.writing().close();
  errors.writing().close();

  Child child(*process, output, errors);
  if (!child.canBeFollowed()) {
    child.kill();
    child.reap();
    return std::nullopt;
  }
  const Child::Event event = child.follow(deadline, stopEvent.descriptor().get());
  if (event != Child::Event::ended)
    child.end();
  output.takeRest();
  const siginfo_t info = child.reap();
  const ChildProcessResult::End end = endAfter(event, info);
  const bool byItself = event == Child::Event::ended;
  return ChildProcessResult{
      .end = end, .code = byItself ? info.si_status : 0, .output = std::move(output.text())};
}

}  // namespace tessivane
