#include "platform/linux/ChildProcessRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <thread>

#include <gtest/gtest.h>

#include "helpers/TempHome.h"

namespace tessivane {
namespace {

using End = ChildProcessResult::End;
using Result = std::optional<ChildProcessResult>;
using std::chrono::steady_clock;

constexpr Seconds shortLimit{0.2};
constexpr Seconds longLimit{60};

class ChildProcessRunnerTest : public testing::Test {
 protected:
  std::string script(const std::string& text) const {
    const std::string path = home_.write("program", "#!/bin/sh\n" + text + "\n");
    EXPECT_EQ(::chmod(path.c_str(), 0755), 0);
    return path;
  }

  Result run(const std::string& text, Seconds limit = longLimit) const {
    return runChildProcess({.path = script(text), .limit = limit, .maxOutput = 1000}, {});
  }

  // Readable, with its end, when every process that the script let inherit descriptor 9 is dead.
  struct Witness {
    explicit Witness(const TempHome& home) : path(home.path("witness")) {
      EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
      descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() { ::close(descriptor); }

    bool everybodyDied() const {
      // The end of a FIFO shows only after somebody has been there, which a program that was ended
      // early may not have been.
      ::close(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
      pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
      return ::poll(&waiting, 1, 10'000) == 1 && (waiting.revents & POLLHUP) != 0;
    }

    std::string path;
    int descriptor = -1;
  };

  const TempHome home_;
};

TEST_F(ChildProcessRunnerTest, TellsHowAProgramEndedAndWhatItWrote) {
  struct Case {
    std::string text;
    Result result;
  };
  const Case cases[] = {
      {"echo one; echo two >&2; echo three", {{End::exited, 0, "one\nthree\n"}}},
      {"printf half; exit 7", {{End::exited, 7, "half"}}},
      {"printf half; kill -SEGV $$", {{End::signalled, SIGSEGV, "half"}}},
      {"exec >&- 2>&-; exit 3", {{End::exited, 3, ""}}},
      {"cat; echo end of input", {{End::exited, 0, "end of input\n"}}},
  };
  for (const Case& test : cases)
    EXPECT_EQ(run(test.text), test.result) << test.text;
}

TEST_F(ChildProcessRunnerTest, PassesArgumentsAsTheyAre) {
  const ChildProcessCommand command{.path = script("printf '<%s>' \"$@\""),
                                    .arguments = {"", "two words", "$HOME;*", "--x"}};
  EXPECT_EQ(runChildProcess(command, {}),
            (Result{{End::exited, 0, "<><two words><$HOME;*><--x>"}}));
}

TEST_F(ChildProcessRunnerTest, StartsNothingThatCannotBeStarted) {
  EXPECT_EQ(runChildProcess({.path = home_.path("absent")}, {}), std::nullopt);
  EXPECT_EQ(runChildProcess({.path = home_.path()}, {}), std::nullopt);
  EXPECT_EQ(runChildProcess({.path = home_.write("plain", "text")}, {}), std::nullopt);
}

TEST_F(ChildProcessRunnerTest, DrainsBothPipesAndKeepsTheBeginning) {
  // Far more than a pipe holds, on one and on the other, so that who reads only one is stuck.
  const Result result =
      run("i=0; while [ $i -lt 3000 ]; do\n"
          "printf '%0100d' $i; printf '%0100d' $i >&2; i=$((i + 1)); done");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->end, End::exited);
  EXPECT_EQ(result->output.size(), 1000U);
  EXPECT_EQ(result->output.substr(0, 101), std::string(100, '0') + "0");
}

TEST_F(ChildProcessRunnerTest, ReadsWhatIsStillInThePipeAtTheEnd) {
  // More than is read at once; how much is left at the end is a matter of luck, hence many times.
  const ChildProcessCommand command{.path = "/usr/bin/head", .arguments = {"-c60000", "/dev/zero"}};
  for (int i = 0; i < 50; ++i) {
    const Result result = runChildProcess(command, {});
    ASSERT_TRUE(result);
    ASSERT_EQ(result->output.size(), 60'000U);
  }
}

TEST_F(ChildProcessRunnerTest, EndsAtItsLimitWithAllThatItStarted) {
  const std::string cases[] = {
      "sleep 60",
      "yes & yes >&2",
      "exec >&- 2>&-; sleep 60",
      "trap '' TERM; while :; do sleep 60; done",
      // The leader goes at the first signal, the other one does not.
      "(trap '' TERM; echo ready; while :; do sleep 60; done) & sleep 60",
      "kill -STOP $$",
  };
  for (const std::string& text : cases) {
    const Witness witness(home_);
    const auto start = steady_clock::now();
    const Result result = run("exec 9>'" + witness.path + "'\n" + text, shortLimit);
    ASSERT_TRUE(result) << text;
    EXPECT_EQ(result->end, End::timedOut) << text;
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(20)) << text;
    EXPECT_TRUE(witness.everybodyDied()) << text;
    ASSERT_EQ(::unlink(witness.path.c_str()), 0);
  }
}

TEST_F(ChildProcessRunnerTest, DoesNotWaitForWhatAProgramLeftBehind) {
  const Witness witness(home_);
  const auto start = steady_clock::now();
  // It keeps the pipes open and goes on writing, until there is nobody left to read.
  const Result loud = run("exec 9>'" + witness.path + "'; yes & yes >&2 & exit 5");
  ASSERT_TRUE(loud);
  EXPECT_EQ(loud->end, End::exited);
  EXPECT_EQ(loud->code, 5);
  EXPECT_TRUE(witness.everybodyDied());

  const Result silent = run("sleep 600 & echo $!");
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(30));
  ASSERT_TRUE(silent);
  EXPECT_EQ(silent->end, End::exited);
  EXPECT_EQ(::kill(std::stoi(silent->output), SIGKILL), 0);
}

TEST_F(ChildProcessRunnerTest, EndsOnRequest) {
  const Witness witness(home_);
  const std::string path = script("exec 9>'" + witness.path + "'; echo begun >&9; sleep 60");
  std::stop_source stop;
  std::thread requester([&] {
    pollfd waiting{.fd = witness.descriptor, .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&waiting, 1, 30'000), 1);
    stop.request_stop();
  });
  const auto start = steady_clock::now();
  const Result result = runChildProcess({.path = path, .limit = longLimit}, stop.get_token());
  requester.join();
  EXPECT_EQ(result, (Result{{End::stopped, 0, ""}}));
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(30));
  // One that was stopped before starts nothing, or the pipe would have a line more.
  EXPECT_EQ(runChildProcess({.path = path}, stop.get_token()), (Result{{End::stopped, 0, ""}}));
  std::array<char, 100> buffer{};
  EXPECT_EQ(::read(witness.descriptor, buffer.data(), buffer.size()), 6);
  EXPECT_TRUE(witness.everybodyDied());
}

TEST_F(ChildProcessRunnerTest, HandsDownNeitherDescriptorsNorSignals) {
  const int open = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(open, 0);
  // A mask and a disposition of ours that a program would inherit.
  sigset_t blocked{};
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  sigset_t before{};
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
  const auto handler = ::signal(SIGPIPE, SIG_IGN);
  const Result descriptors =
      runChildProcess({.path = "/bin/ls", .arguments = {"/proc/self/fd"}}, {});
  // Not by way of a shell, which sets its signals right by itself. Beyond the last 28 of them are
  // two that glibc keeps to itself.
  const Result signals = runChildProcess(
      {.path = "/bin/sed",
       .arguments = {"-nE", "s/^Sig(Blk|Ign):.*(.......)$/\\1 \\2/p", "/proc/self/status"}},
      {});
  ::signal(SIGPIPE, handler);
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
  ::close(open);
  // The fourth is the one by which ls reads the directory.
  EXPECT_EQ(descriptors, (Result{{End::exited, 0, "0\n1\n2\n3\n"}}));
  EXPECT_EQ(signals, (Result{{End::exited, 0, "Blk 0000000\nIgn 0000000\n"}}));
}

}  // namespace
}  // namespace tessivane
