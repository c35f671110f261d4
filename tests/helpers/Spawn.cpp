#include "helpers/Spawn.h"

#include <fcntl.h>
#include <spawn.h>

#include <stdexcept>
#include <system_error>

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
    throw std::runtime_error("cannot start " + command.front() + ": " +
                             std::generic_category().message(failure));
  return process;
}

}  // namespace tessivane
