#include "CDevLogs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

const std::string kPrefix = "[Zq Norvane]";
const size_t kMessageStart = kPrefix.size() + 19 + 4;

std::string LocalTimeNow() {
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

// The messages of a log file's lines: "[Zq Norvane]", a 19-character time,
// four blanks, the message, CR LF.  Fails the test on any byte outside
// such a line.
std::vector<std::string> Messages(const std::string& contents) {
  std::vector<std::string> messages;
  for (size_t start = 0, end; start < contents.size(); start = end + 2) {
    end = contents.find("\r\n", start);
    const std::string line = contents.substr(start, end - start);
    if (end == std::string::npos || line.size() < kMessageStart || line.compare(0, kPrefix.size(), kPrefix) != 0 ||
        line.compare(kPrefix.size() + 19, 4, "    ") != 0 || line.find_first_of("\r\n") != std::string::npos) {
      ADD_FAILURE() << "malformed log from byte " << start;
      break;
    }
    messages.push_back(line.substr(kMessageStart));
  }
  return messages;
}

class CDevLogsTest : public testing::Test {
 protected:
  std::string LogPath() const { return folder_.path() + "/zqlog.log"; }
  TempDir folder_;
};

TEST_F(CDevLogsTest, LineIsPrefixLocalTimeFourBlanksMessageAndCrLf) {
  const std::string before = LocalTimeNow();
  CDevLogs(LogPath()).WriteLog("serverEvent - %s", "eCOMMAND_EXIT");
  const std::string after = LocalTimeNow();

  const std::string contents = ReadFile(LogPath());
  EXPECT_EQ(Messages(contents), std::vector<std::string>{"serverEvent - eCOMMAND_EXIT"});
  const std::string stamp = contents.substr(kPrefix.size(), 19);
  EXPECT_TRUE(before <= stamp && stamp <= after) << stamp << " not between " << before << " and " << after;
}

TEST_F(CDevLogsTest, MessagesAroundTheInnerBufferAndBeyondTheLineBufferStayWhole) {
  const size_t lengths[] = {0, 1, 1022, 1023, 1024, 1025, 8150, 8192, 20000};
  {
    CDevLogs log(LogPath());
    for (size_t length : lengths) log.WriteLog("%s", std::string(length, static_cast<char>('a' + length % 26)).c_str());
    // Formatting, not the argument, makes this one 1024 characters long.
    log.WriteLog("%s%d", std::string(1023, 'z').c_str(), 7);
  }
  const std::vector<std::string> messages = Messages(ReadFile(LogPath()));
  ASSERT_EQ(messages.size(), std::size(lengths) + 1);
  for (size_t i = 0; i < std::size(lengths); ++i)
    EXPECT_EQ(messages[i], std::string(lengths[i], static_cast<char>('a' + lengths[i] % 26))) << lengths[i];
  EXPECT_EQ(messages.back(), std::string(1023, 'z') + "7");
}

TEST_F(CDevLogsTest, LinesAreFlushedAtOnceAndLaterRunsAppend) {
  const char* noFormat = nullptr;
  {
    CDevLogs first(LogPath());
    first.WriteLog("first run");
    first.WriteLog(noFormat, 1);
    EXPECT_EQ(Messages(ReadFile(LogPath())), std::vector<std::string>{"first run"});
  }
  CDevLogs(LogPath()).WriteLog("second run");
  EXPECT_EQ(Messages(ReadFile(LogPath())), (std::vector<std::string>{"first run", "second run"}));
}

TEST_F(CDevLogsTest, WhatIsNotAPlainFileAtThePathIsLeftAlone) {
  CDevLogs(folder_.path() + "/missing-folder/zqlog.log").WriteLog("lost %d", 1);
  EXPECT_NE(access((folder_.path() + "/missing-folder").c_str(), F_OK), 0);

  // A symbolic link: its target is never written.
  const std::string target = folder_.path() + "/target";
  WriteFile(target, "");
  ASSERT_EQ(symlink(target.c_str(), LogPath().c_str()), 0);
  CDevLogs(LogPath()).WriteLog("lost %d", 2);
  EXPECT_EQ(ReadFile(target), "");

  // A FIFO with nobody reading: the open neither waits nor writes.
  ASSERT_EQ(unlink(LogPath().c_str()), 0);
  ASSERT_EQ(mkfifo(LogPath().c_str(), 0666), 0);
  CDevLogs(LogPath()).WriteLog("lost %d", 3);

  // A new file is made readable by all, writable by root alone.
  ASSERT_EQ(unlink(LogPath().c_str()), 0);
  const mode_t saved = umask(0);
  CDevLogs(LogPath()).WriteLog("kept");
  umask(saved);
  struct stat info;
  ASSERT_EQ(stat(LogPath().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
  EXPECT_EQ(Messages(ReadFile(LogPath())), std::vector<std::string>{"kept"});
}

TEST_F(CDevLogsTest, ConcurrentWritersNeverMixTheirLines) {
  constexpr int kThreads = 8;
  constexpr int kLinesEach = 200;
  // Short and long messages alike, so that both buffers are shared.
  const auto body = [](int thread, int index) {
    return std::string(index % 3 == 0 ? 1500 : 40 + index, static_cast<char>('A' + thread));
  };
  {
    CDevLogs log(LogPath());
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
      writers.emplace_back([&, t] {
        for (int i = 0; i < kLinesEach; ++i) log.WriteLog("%d %d %s", t, i, body(t, i).c_str());
      });
    for (std::thread& writer : writers) writer.join();
  }

  std::map<int, int> nextIndex;
  const std::vector<std::string> messages = Messages(ReadFile(LogPath()));
  ASSERT_EQ(messages.size(), static_cast<size_t>(kThreads * kLinesEach));
  for (const std::string& message : messages) {
    int t = -1, i = -1, offset = 0;
    ASSERT_EQ(std::sscanf(message.c_str(), "%d %d %n", &t, &i, &offset), 2) << message.substr(0, 40);
    ASSERT_TRUE(t >= 0 && t < kThreads);
    EXPECT_EQ(i, nextIndex[t]++) << "lines of one writer out of order";
    EXPECT_EQ(message.substr(static_cast<size_t>(offset)), body(t, i));
  }
}

}  // namespace
