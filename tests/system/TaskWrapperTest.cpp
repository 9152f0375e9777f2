#include "TaskWrapper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "TestSupport.h"
#include "Utf8.h"

namespace {

struct RunCase {
  const char* script;
  std::string input;
  std::optional<std::string> response;  // nullopt: not UTF-8
  std::optional<std::string> errorMessage;
  int status;
};

TEST(TaskWrapperTest, KeepsEachStreamAndTheExitStatus) {
  const RunCase cases[] = {
      {"echo mounted", "", "mounted\n", "", 0},
      {"echo 'already unmounted' >&2; exit 3", "", "", "already unmounted\n", 3},
      {"kill -TERM $$", "", "", "", 128 + 15},
      {"cat; echo done", "", "done\n", "", 0},
      {"read line; printf '<%s>' \"$line\"", "pass word\n", "<pass word>", "", 0},
      // A child that never reads its input does not hold up the run.
      {"exit 0", std::string(1 << 20, 'x'), "", "", 0},
      {"printf 'ok\\377'; printf 'caf\\303\\251' >&2", "", std::nullopt, "café", 0},
  };
  for (const RunCase& expected : cases) {
    SCOPED_TRACE(expected.script);
    const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", expected.script}, expected.input);
    EXPECT_EQ(run.response(), expected.response);
    EXPECT_EQ(run.errorMessage(), expected.errorMessage);
    EXPECT_EQ(run.terminationStatus(), expected.status);
  }
}

TEST(TaskWrapperTest, PassesArgumentsUnchangedWithTheLaunchPathFirst) {
  TaskWrapper result = TaskWrapper::runTaskAtLaunchPath(
      "/bin/sh", {"-c", "printf '<%s>' \"$0\" \"$@\"", "a b", "", "$HOME 'x' \"y\"", "ü"});
  EXPECT_EQ(result.response(), "<a b><><$HOME 'x' \"y\"><ü>");
  EXPECT_EQ(TaskWrapper::runScript("printf %s \"$0\"").response(), "/bin/sh");
}

TEST(TaskWrapperTest, OutputLargerThanAPipeOnBothStreamsAtOnce) {
  // Each stream gets 1 MiB, interleaved, far beyond what a pipe holds.
  TaskWrapper result = TaskWrapper::runScript(
      "i=0; while [ $i -lt 16 ]; do head -c 65536 /dev/zero | tr '\\0' a; head -c 65536 /dev/zero | tr '\\0' b >&2;"
      " i=$((i+1)); done");
  EXPECT_EQ(result.response().value_or(""), std::string(1 << 20, 'a'));
  EXPECT_EQ(result.errorMessage().value_or(""), std::string(1 << 20, 'b'));
}

TEST(TaskWrapperTest, ProgramThatCannotBeStartedSaysWhy) {
  TempDir folder;
  const std::string notExecutable = folder.path() + "/tool";
  WriteFile(notExecutable, "#!/bin/sh\necho never\n", 0644);
  for (const std::string& program : {std::string("/nonexistent/zq-tool"), notExecutable}) {
    const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(program, {"x"});
    EXPECT_EQ(run.response(), "");
    EXPECT_EQ(run.terminationStatus(), TaskWrapper::kNotStarted);
    EXPECT_NE(run.errorMessage().value_or("").find("cannot start " + program), std::string::npos);
    EXPECT_FALSE(TaskWrapper::launchTaskInBackground(program, {}));
  }
}

TEST(TaskWrapperTest, ChildInheritsOnlyItsThreeStreams) {
  // A descriptor of ours that is not close-on-exec must still stay with us.
  TempDir folder;
  const int leaky = open((folder.path() + "/log").c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(leaky, 0);
  TaskWrapper result = TaskWrapper::runTaskAtLaunchPath(HelperProgram(), {"fds"});
  close(leaky);
  EXPECT_EQ(result.response(), "0\n1\n2\n");
}

TEST(TaskWrapperTest, BackgroundChildGetsItsInputAndIsNotWaitedFor) {
  TempDir folder;
  const std::string out = folder.path() + "/out";
  ASSERT_TRUE(TaskWrapper::launchTaskInBackground(
      "/bin/sh", {"-c", "sleep 1; read line; printf '%s' \"$line\" > \"$0.tmp\" && mv \"$0.tmp\" \"$0\"", out},
      "secret\n"));
  EXPECT_NE(access(out.c_str(), F_OK), 0) << "the launch returned only after the child ended";
  for (int i = 0; i < 100 && access(out.c_str(), F_OK) != 0; ++i) usleep(100 * 1000);
  EXPECT_EQ(ReadFile(out), "secret");
}

TEST(Utf8Test, TellsWellFormedTextFromEveryMalformedForm) {
  for (const char* text : {"", "plain ascii\n", "\xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEF\xBF\xBF",
                           "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"})
    EXPECT_TRUE(IsValidUtf8(text)) << testing::PrintToString(text);
  EXPECT_TRUE(IsValidUtf8(std::string("nul\0inside", 10)));
  const char* const malformed[] = {
      "\x80",              // continuation without a lead
      "\xE2\x82",          // sequence cut at the end
      "\xC3(",             // lead followed by a non-continuation
      "\xC0\xAF",          // overlong "/"
      "\xE0\x80\xAF",      // overlong three-byte form
      "\xF0\x80\x80\xAF",  // overlong four-byte form
      "\xED\xA0\x80",      // surrogate U+D800
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xFF",
  };
  for (const char* bytes : malformed) EXPECT_FALSE(IsValidUtf8(bytes)) << testing::PrintToString(bytes);
}

}  // namespace
