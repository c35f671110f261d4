#include "platform/linux/GIOWorkspace.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/TempHome.h"

namespace tessivane {
namespace {

// GIO finds its directories once in a process. So all tests share one home with the applications
// below, and this is the only file here that looks for any.
class GIOWorkspaceTest : public testing::Test {
 protected:
  // What the applications write when they are started: they are scripts that report to a FIFO.
  static constexpr const char* fifo = "started";

  static void SetUpTestSuite() {
    home = new TempHome;
    const std::string script =
        home->write("bin/report", "#!/bin/sh\nprintf '%s\\n' \"$*\" >'" + home->path(fifo) + "'\n");
    ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo(home->path(fifo).c_str(), 0600), 0);

    install("data/applications/links", "Name=Links\nExec=" + script + " link %u\n");
    install("data/applications/com.example.exact", "Name=Exact\nExec=" + script + " exact\n");
    install("data/applications/uninstalled", "Name=Gone\nExec=/nonexistent/gone %u\n");
    install("data/applications/t3-code-handler",
            "Name=Helper\nNoDisplay=true\nExec=" + script + " helper\n");
    install("system/applications/t3-code-nightly",
            "Name=T3 Code Nightly\nExec=" + script + " t3\n");
    home->write("data/applications/mimeapps.list",
                "[Default Applications]\n"
                "x-scheme-handler/t3code=links.desktop\n"
                "x-scheme-handler/gone=uninstalled.desktop\n"
                "x-scheme-handler/missing=missing.desktop\n");
    // No other thread runs yet. NOLINTBEGIN(concurrency-mt-unsafe)
    ::setenv("XDG_DATA_HOME", home->path("data").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", home->path("system").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", home->path("config").c_str(), 1);
    ::setenv("XDG_CONFIG_DIRS", home->path("config").c_str(), 1);
    // NOLINTEND(concurrency-mt-unsafe)
  }
  static void TearDownTestSuite() {
    delete home;
    home = nullptr;
  }

  static void install(const std::string& path, const std::string& fields) {
    home->write(path + ".desktop", "[Desktop Entry]\nType=Application\n" + fields);
  }

  // The line that a started application reports, once `start` has started one.
  template <typename Start>
  static std::string reportAfter(Start start) {
    // Open for writing too: the end of a writer is then not the end of the FIFO.
    const int descriptor = ::open(home->path(fifo).c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(descriptor, 0);
    EXPECT_TRUE(start());
    std::string line;
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    if (::poll(&waiting, 1, 60'000) == 1) {
      std::array<char, 4096> buffer{};
      const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
      line.assign(buffer.data(), static_cast<std::size_t>(size > 0 ? size : 0));
    }
    ::close(descriptor);
    return line;
  }

  static inline TempHome* home = nullptr;
  Workspace workspace_ = gioWorkspace();
};

TEST_F(GIOWorkspaceTest, DoesNotWaitForASessionBusThatIsMute) {
  const std::string path = home->path("bus");
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  ASSERT_LT(path.size(), sizeof(address.sun_path));
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(::listen(listener, 4), 0);
  // In a process of its own, since GIO keeps what it has found out about the bus. Forked before the
  // other tests have started any thread.
  const auto openWithThatBus = [&path] {
    ::setenv("DBUS_SESSION_BUS_ADDRESS",  // NOLINT(concurrency-mt-unsafe): the child has one thread
             ("unix:path=" + path).c_str(),
             1);
    ::alarm(30);
    ::_exit(gioWorkspace().openURL("t3code://x") ? 0 : 1);
  };
  EXPECT_EXIT(openWithThatBus(), testing::ExitedWithCode(0), "");
  ::close(listener);
}

TEST_F(GIOWorkspaceTest, KnowsWhichURLsAreHandled) {
  for (const std::string url : {"t3code://threads/a/b%2525", "T3CODE:x"})
    EXPECT_TRUE(workspace_.handlesURL(url)) << url;
  for (const std::string url :
       {"codex://threads/1", "gone://x", "missing://x", "t3code", "", "://", "/t3code:", "1:x"})
    EXPECT_FALSE(workspace_.handlesURL(url) || workspace_.openURL(url)) << url;
}

TEST_F(GIOWorkspaceTest, OpensURLsAsTheyAre) {
  // What a shell would make something of arrives untouched, as one argument.
  const std::string url = "t3code://threads/it's%2525/$(exit)?a=1&b=\"2\"";
  EXPECT_EQ(reportAfter([&] { return workspace_.openURL(url); }), "link " + url + "\n");
}

TEST_F(GIOWorkspaceTest, FindsAndLaunchesApplications) {
  const std::array<std::string, 4> rows[] = {
      {"com.example.exact", "com.example.exact.desktop", "Exact", "exact\n"},
      {"com.t3tools.t3code", "t3-code-nightly.desktop", "T3 Code Nightly", "t3\n"}};
  for (const auto& [identifier, entry, name, report] : rows) {
    EXPECT_EQ(workspace_.findApplication(identifier),
              (WorkspaceApplication{.id = entry, .name = name}));
    EXPECT_EQ(reportAfter([&, id = identifier] { return workspace_.launchApplication(id); }),
              report);
  }
  for (const std::string identifier : {"com.example.absent", "uninstalled", "", "../exact"}) {
    EXPECT_EQ(workspace_.findApplication(identifier), std::nullopt) << identifier;
    EXPECT_FALSE(workspace_.launchApplication(identifier)) << identifier;
  }
}

TEST(KnownDesktopEntryTest, RecognisesTheNamesOfPackagers) {
  for (const std::string entry :
       {"t3code", "t3-code", "T3 Code (Alpha)", "t3_code-nightly", "appimagekit_0123abcd-T3_Code"})
    EXPECT_TRUE(isKnownDesktopEntry(entry + ".desktop", "com.t3tools.t3code")) << entry;
  for (const std::string entry : {"appimagekit_0123abcd.desktop",
                                  "appimagekit_t3code.desktop",
                                  "code.desktop",
                                  "not-t3code.desktop",
                                  "t3code",
                                  ".desktop",
                                  ""})
    EXPECT_FALSE(isKnownDesktopEntry(entry, "com.t3tools.t3code")) << entry;
  EXPECT_FALSE(isKnownDesktopEntry("t3code.desktop", "com.example.t3code"));
}

}  // namespace
}  // namespace tessivane
