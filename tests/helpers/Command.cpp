#include "helpers/Command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <fmt/ranges.h>

#include "support/Text.h"

namespace tessivane {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0)
    text.append(buffer.data(), static_cast<std::size_t>(count));
  return text;
}

}  // namespace

pid_t spawn(std::vector<std::string> command,
            std::vector<std::string> environment,
            const std::array<int, 3>& descriptors) {
  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  int standard = 0;
  for (const int descriptor : descriptors) {
    if (descriptor < 0)
      ::posix_spawn_file_actions_addopen(&actions, standard, "/dev/null", O_RDWR, 0);
    else
      ::posix_spawn_file_actions_adddup2(&actions, descriptor, standard);
    ++standard;
  }
  pid_t process = 0;
  const int failure = ::posix_spawnp(&process,
                                     command.front().c_str(),
                                     &actions,
                                     nullptr,
                                     pointers(command).data(),
                                     pointers(environment).data());
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0)
    throw std::system_error(failure, std::generic_category(), command.front());
  return process;
}

std::string commandOutput(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe");
  const pid_t child = spawn(arguments, environment, {-1, ends[1], ends[1]});
  ::close(ends[1]);
  std::string text = readAll(ends[0]);
  ::close(ends[0]);
  int status = -1;
  ::waitpid(child, &status, 0);
  if (status != 0)
    throw std::runtime_error(fmt::format("{} failed: {}", fmt::join(arguments, " "), text));
  return text;
}

std::string gitOutput(const std::string& directory,
                      const std::vector<std::string>& arguments,
                      std::vector<std::string> dates) {
  std::vector<std::string> command = {"git", "-C", directory};
  for (const char* const setting :
       {"protocol.file.allow=always", "gc.auto=0", "maintenance.auto=false"})
    command.insert(command.end(), {"-c", setting});
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment = std::move(dates);
  environment.insert(environment.end(),
                     {"PATH=/usr/bin:/bin",
                      "GIT_CONFIG_NOSYSTEM=1",
                      "GIT_CONFIG_GLOBAL=/dev/null",
                      "GIT_EDITOR=true",
                      "GIT_AUTHOR_NAME=Ann  B. Author",
                      "GIT_AUTHOR_EMAIL=ann@example.org",
                      "GIT_COMMITTER_NAME=Ann  B. Author",
                      "GIT_COMMITTER_EMAIL=ann@example.org"});
  return std::string(trimmed(commandOutput(command, environment)));
}

}  // namespace tessivane
