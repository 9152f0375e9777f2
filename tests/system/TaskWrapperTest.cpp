#include "system/TaskWrapper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "tests/support/FileContents.h"
#include "tests/support/TempDir.h"
#include "util/Utf8.h"

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
      // Both streams far beyond what a pipe holds, interleaved.
      {"i=0; while [ $i -lt 16 ]; do head -c 65536 /dev/zero | tr '\\0' a; head -c 65536 /dev/zero | tr '\\0' b >&2;"
       " i=$((i+1)); done",
       "", std::string(1 << 20, 'a'), std::string(1 << 20, 'b'), 0},
  };
  for (const RunCase& expected : cases) {
    SCOPED_TRACE(expected.script);
    const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", expected.script}, expected.input);
    EXPECT_EQ(run.response(), expected.response);
    EXPECT_EQ(run.errorMessage(), expected.errorMessage);
    EXPECT_EQ(run.terminationStatus(), expected.status);
  }
}

TEST(TaskWrapperTest, ProgramThatCannotBeStartedSaysWhy) {
  TempDir folder;
  ASSERT_EQ(RunShell("echo '#!/bin/sh' > '" + folder("tool") + "'"), 0);
  for (const std::string& program : {std::string("/nonexistent/zq-tool"), folder("tool")}) {
    const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(program, {"x"});
    EXPECT_EQ(run.terminationStatus(), TaskWrapper::kNotStarted);
    EXPECT_NE(run.errorMessage().value_or("").find("cannot start " + program), std::string::npos);
    EXPECT_FALSE(TaskWrapper::launchTaskInBackground(program, {}));
  }
}

TEST(TaskWrapperTest, ChildInheritsOnlyItsThreeStreams) {
  TempDir folder;
  const int inheritable = open(folder("log").c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(inheritable, 0);
  // ls's own descriptor for the folder it reads is 3.
  EXPECT_EQ(TaskWrapper::runTaskAtLaunchPath("/bin/ls", {"/proc/self/fd"}).response(), "0\n1\n2\n3\n");
  close(inheritable);
}

TEST(TaskWrapperTest, BackgroundChildGetsItsInputAndIsNotWaitedFor) {
  TempDir folder;
  const std::string out = folder("out");
  auto kept = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = kept;
  ASSERT_TRUE(TaskWrapper::launchTaskInBackground(
      "/bin/sh", {"-c", "sleep 1; read line; printf '%s' \"$line\" > \"$0.tmp\" && mv \"$0.tmp\" \"$0\"", out},
      "secret\n", std::move(kept)));
  EXPECT_NE(access(out.c_str(), F_OK), 0) << "the launch returned only after the child ended";
  EXPECT_FALSE(watch.expired()) << "let go of while the child runs";
  for (int i = 0; i < 100 && access(out.c_str(), F_OK) != 0; ++i) usleep(100 * 1000);
  EXPECT_EQ(ReadFile(out), "secret");
  for (int i = 0; i < 100 && !watch.expired(); ++i) usleep(100 * 1000);
  EXPECT_TRUE(watch.expired()) << "kept after the child ended";
}

// Malformed: a continuation without a lead, a sequence cut at the end, a
// lead before a non-continuation, overlong two-, three- and four-byte forms,
// the surrogate U+D800, a code point above U+10FFFF, a byte never used.
TEST(Utf8Test, TellsWellFormedTextFromEveryMalformedForm) {
  for (const std::string text :
       {"", "plain\n", "\xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEF\xBF\xBF", "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"})
    EXPECT_TRUE(IsValidUtf8(text)) << testing::PrintToString(text);
  EXPECT_TRUE(IsValidUtf8(std::string("nul\0inside", 10)));
  for (const std::string text : {"\x80", "\xE2\x82", "\xC3(", "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF",
                                 "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"})
    EXPECT_FALSE(IsValidUtf8(text)) << testing::PrintToString(text);
}

}  // namespace
