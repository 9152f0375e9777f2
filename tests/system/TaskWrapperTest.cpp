#include "TaskWrapper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "TestSupport.h"
#include "Utf8.h"

namespace {

TEST(TaskWrapperTest, KeepsEachStreamAsWritten) {
  TaskWrapper word = TaskWrapper::runScript("echo mounted");
  EXPECT_EQ(word.response(), "mounted\n");
  EXPECT_EQ(word.errorMessage(), "");

  TaskWrapper errorOnly = TaskWrapper::runScript("echo 'already unmounted' >&2");
  EXPECT_EQ(errorOnly.response(), "");
  EXPECT_EQ(errorOnly.errorMessage(), "already unmounted\n");

  // The exit status is not kept: a silent failure reads like a silent success.
  TaskWrapper failure = TaskWrapper::runScript("exit 3");
  EXPECT_EQ(failure.response(), "");
  EXPECT_EQ(failure.errorMessage(), "");
}

TEST(TaskWrapperTest, PassesArgumentsUnchangedWithTheLaunchPathFirst) {
  TaskWrapper result = TaskWrapper::runTaskAtLaunchPath(
      "/bin/sh", {"-c", "printf '<%s>' \"$0\" \"$@\"", "a b", "", "$HOME 'x' \"y\"", "ü"});
  EXPECT_EQ(result.response(), "<a b><><$HOME 'x' \"y\"><ü>");

  TaskWrapper own = TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", "printf %s \"$0\""});
  EXPECT_EQ(own.response(), "/bin/sh");
}

TEST(TaskWrapperTest, OutputLargerThanAPipeOnBothStreamsAtOnce) {
  // Each stream gets 1 MiB, interleaved, far beyond what a pipe holds.
  TaskWrapper result = TaskWrapper::runScript(
      "i=0; while [ $i -lt 16 ]; do head -c 65536 /dev/zero | tr '\\0' a; head -c 65536 /dev/zero | tr '\\0' b >&2;"
      " i=$((i+1)); done");
  ASSERT_TRUE(result.response().has_value());
  ASSERT_TRUE(result.errorMessage().has_value());
  EXPECT_EQ(*result.response(), std::string(1 << 20, 'a'));
  EXPECT_EQ(*result.errorMessage(), std::string(1 << 20, 'b'));
}

TEST(TaskWrapperTest, StreamThatIsNotUtf8GivesNoString) {
  TaskWrapper badOutput = TaskWrapper::runScript("printf 'ok\\377'; printf 'fine' >&2");
  EXPECT_FALSE(badOutput.response().has_value());
  EXPECT_EQ(badOutput.errorMessage(), "fine");

  TaskWrapper badError = TaskWrapper::runScript("printf 'caf\\303\\251'; printf '\\300\\200' >&2");
  EXPECT_EQ(badError.response(), "café");
  EXPECT_FALSE(badError.errorMessage().has_value());
}

TEST(TaskWrapperTest, ProgramThatCannotBeStartedGivesEmptyResponseAndAMessage) {
  TaskWrapper missing = TaskWrapper::runTaskAtLaunchPath("/nonexistent/zq-tool", {"x"});
  EXPECT_EQ(missing.response(), "");
  ASSERT_TRUE(missing.errorMessage().has_value());
  EXPECT_NE(missing.errorMessage()->find("/nonexistent/zq-tool"), std::string::npos);

  TempDir folder;
  const std::string notExecutable = folder.path() + "/tool";
  WriteFile(notExecutable, "#!/bin/sh\necho never\n", 0644);
  TaskWrapper refused = TaskWrapper::runTaskAtLaunchPath(notExecutable, {});
  EXPECT_EQ(refused.response(), "");
  EXPECT_TRUE(refused.errorMessage().has_value() && !refused.errorMessage()->empty());
}

TEST(TaskWrapperTest, ChildReadsEndOfFileAndInheritsOnlyItsThreeStreams) {
  EXPECT_EQ(TaskWrapper::runScript("cat; echo done").response(), "done\n");

  // A descriptor of ours that is not close-on-exec must still stay with us.
  TempDir folder;
  const int leaky = open((folder.path() + "/log").c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(leaky, 0);
  TaskWrapper result = TaskWrapper::runTaskAtLaunchPath(HelperProgram(), {"fds"});
  close(leaky);
  EXPECT_EQ(result.response(), "0\n1\n2\n");
}

TEST(Utf8Test, AcceptsWellFormedText) {
  EXPECT_TRUE(IsValidUtf8(""));
  EXPECT_TRUE(IsValidUtf8("plain ascii\n"));
  EXPECT_TRUE(IsValidUtf8("\xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF"));
  EXPECT_TRUE(IsValidUtf8("\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"));
  EXPECT_TRUE(IsValidUtf8(std::string("nul\0inside", 10)));
}

TEST(Utf8Test, RejectsEveryMalformedForm) {
  const char* const malformed[] = {
      "\x80",              // continuation without a lead
      "\xC3",              // sequence cut at the end
      "\xE2\x82",          // sequence cut at the end
      "\xC3(",             // lead followed by a non-continuation
      "\xC0\xAF",          // overlong "/"
      "\xE0\x80\xAF",      // overlong three-byte form
      "\xF0\x80\x80\xAF",  // overlong four-byte form
      "\xED\xA0\x80",      // surrogate U+D800
      "\xED\xBF\xBF",      // surrogate U+DFFF
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xF8\x88\x80\x80\x80",
      "\xFF",
  };
  for (const char* bytes : malformed) EXPECT_FALSE(IsValidUtf8(bytes)) << testing::PrintToString(bytes);
}

}  // namespace
