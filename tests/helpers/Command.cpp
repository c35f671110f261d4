#include "helpers/Command.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "helpers/Spawn.h"

namespace tessivane {

namespace {

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("Command: " + what);
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

std::string commandOutput(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment) {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  const pid_t child = spawn(arguments, environment, {-1, ends[1], ends[1]});
  ::close(ends[1]);
  std::string text = readAll(ends[0]);
  ::close(ends[0]);
  int status = -1;
  ::waitpid(child, &status, 0);
  std::string command;
  for (const std::string& argument : arguments)
    command += argument + " ";
  require(status == 0, command + "failed: " + text);
  return text;
}

}  // namespace tessivane
