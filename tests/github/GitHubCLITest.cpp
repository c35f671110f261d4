#include "github/GitHubCLI.h"

#include <sys/stat.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "helpers/TempHome.h"
#include "platform/linux/ChildProcessRunner.h"

namespace tessivane {
namespace {

TEST(GitHubCLI, IsTheFirstOnThePathThatCanBeRun) {
  struct Case {
    std::string path;
    std::vector<std::string> executables;
    std::optional<std::string> found;
  };
  const Case cases[] = {
      {"/a:/b", {"/b/gh"}, "/b/gh"},
      {"/a:/b", {"/b/gh", "/a/gh", "/usr/local/bin/gh"}, "/a/gh"},
      {"::/a/::/b:", {"/a/gh"}, "/a/gh"},
      {"::/a:", {"/gh", "gh"}, std::nullopt},
      {"/a", {"/snap/bin/gh", "/usr/local/bin/gh"}, "/usr/local/bin/gh"},
      {"", {"/usr/local/bin/gh", "/opt/homebrew/bin/gh"}, "/opt/homebrew/bin/gh"},
      {"", {}, std::nullopt},
  };
  for (const Case& test : cases) {
    const auto found = GitHubCLI::executable(test.path, [&](const std::string& file) {
      return std::ranges::find(test.executables, file) != test.executables.end();
    });
    EXPECT_EQ(found, test.found) << test.path;
  }
}

class GitHubCLIProgramTest : public testing::Test {
 protected:
  // The token that a `gh` gives which runs this, once it was asked for the right thing.
  std::optional<std::string> token(const std::string& script, Seconds limit = Seconds(60)) const {
    install("#!/bin/sh\n[ \"$*\" = 'auth token --hostname github.com' ] || exit 9\n" + script);
    return GitHubCLI::token(home_.path("bin"), runChildProcess, {}, limit);
  }

  void install(const std::string& text) const {
    EXPECT_EQ(::chmod(home_.write("bin/gh", text).c_str(), 0755), 0);
  }

  const TempHome home_;
};

TEST_F(GitHubCLIProgramTest, GivesOneWordOrNothing) {
  struct Case {
    std::string script;
    std::optional<std::string> token;
  };
  const Case cases[] = {
      {"echo gho_0123", "gho_0123"},
      {"printf ' \\n gho_0123\\r\\n\\n'", "gho_0123"},
      {"echo gho_0123; echo 'A new release of gh is available' >&2", "gho_0123"},
      {"echo gho_0123; exit 1", std::nullopt},
      {"echo gho_0123; kill -KILL $$", std::nullopt},
      {"echo 'two words'", std::nullopt},
      {"printf 'gho_\\001'", std::nullopt},
      {"printf 'gho_\\303\\251'", std::nullopt},
      {"", std::nullopt},
  };
  for (const Case& test : cases)
    EXPECT_EQ(token(test.script), test.token) << test.script;
}

TEST_F(GitHubCLIProgramTest, IsEndedWhenItHangs) {
  EXPECT_EQ(token("echo gho_0123; sleep 600", Seconds(0.2)), std::nullopt);
  EXPECT_EQ(token("yes & yes >&2", Seconds(0.2)), std::nullopt);
}

TEST_F(GitHubCLIProgramTest, IsNothingThatCannotBeRun) {
  const std::string directory = home_.path("bin");
  const std::string file = home_.write("bin/gh", "#!/bin/sh\necho gho_0123");
  EXPECT_NE(GitHubCLI::executable(directory), file);
  EXPECT_EQ(GitHubCLI::executable(home_.path()), GitHubCLI::executable(directory));
  home_.makeDirectory("directory/gh");
  EXPECT_NE(GitHubCLI::executable(home_.path("directory")), home_.path("directory/gh"));
  install("neither a script nor a program");
  EXPECT_EQ(GitHubCLI::executable(directory), file);
  EXPECT_EQ(GitHubCLI::token(directory, runChildProcess, {}), std::nullopt);
}

}  // namespace
}  // namespace tessivane
