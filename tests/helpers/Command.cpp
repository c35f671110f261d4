#include "helpers/Command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace tessivane {

namespace {

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("Command: " + what);
}

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

std::string commandOutput(std::vector<std::string> arguments,
                          std::vector<std::string> environment) {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
  pid_t child = 0;
  const int failure = ::posix_spawnp(&child,
                                     arguments.front().c_str(),
                                     &actions,
                                     nullptr,
                                     pointers(arguments).data(),
                                     pointers(environment).data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::string text = failure == 0 ? readAll(ends[0]) : "";
  ::close(ends[0]);
  int status = -1;
  if (failure == 0)
    ::waitpid(child, &status, 0);
  std::string command;
  for (const std::string& argument : arguments)
    command += argument + " ";
  require(status == 0, command + "failed: " + text);
  return text;
}

}  // namespace tessivane
