#include "system/CDevLogs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FileContents.h"
#include "tests/support/TempDir.h"

namespace {

const std::string kPrefix = "[Zq Norvane]";
const size_t kMessageStart = kPrefix.size() + 19 + 4;

std::string LocalTimeNow() {
  const time_t now = time(nullptr);
  struct tm local;
  char text[32];
  return std::string(text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", localtime_r(&now, &local)));
}

// The messages of a log's lines: "[Zq Norvane]", a 19-character time, four
// blanks, the message, CR LF.  Fails the test on any byte outside such a line.
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

// Around the inner buffer and beyond the line buffer, messages stay whole.
TEST(CDevLogsTest, LinesAreStampedWholeAndAppendedToAFileOnlyRootWrites) {
  TempDir folder;
  const std::string path = folder("zqlog.log"), before = LocalTimeNow();
  const mode_t savedMask = umask(0);
  CDevLogs(path).WriteLog("serverEvent - %s", "eCOMMAND_EXIT");
  umask(savedMask);
  const std::string after = LocalTimeNow(), stamp = ReadFile(path).substr(kPrefix.size(), 19);
  EXPECT_TRUE(before <= stamp && stamp <= after) << stamp << " not between " << before << " and " << after;
  struct stat info;
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);

  std::vector<std::string> expected = {"serverEvent - eCOMMAND_EXIT"};
  {
    CDevLogs log(path);
    for (size_t length : {0, 1, 1022, 1023, 1024, 1025, 8150, 8192, 20000}) {
      expected.push_back(std::string(length, static_cast<char>('a' + length % 26)));
      log.WriteLog("%s", expected.back().c_str());
      EXPECT_EQ(Messages(ReadFile(path)), expected) << "flushed at once";
    }
    // Formatting, not the argument, makes this one 1024 characters long.
    log.WriteLog("%s%d", std::string(1023, 'z').c_str(), 7);
  }
  expected.push_back(std::string(1023, 'z') + "7");
  EXPECT_EQ(Messages(ReadFile(path)), expected);
}

TEST(CDevLogsTest, ConcurrentWritersNeverMixTheirLines) {
  // Short and long messages alike, so that both buffers are shared.
  const auto message = [](int writer, int i) {
    return std::string(i % 3 == 0 ? 1500 : 40 + i, static_cast<char>('A' + writer)) + std::to_string(i);
  };
  TempDir folder;
  {
    CDevLogs log(folder("zqlog.log"));
    std::vector<std::thread> writers;
    for (int t = 0; t < 8; ++t)
      writers.emplace_back([&, t] {
        for (int i = 0; i < 200; ++i) log.WriteLog("%s", message(t, i).c_str());
      });
    for (std::thread& writer : writers) writer.join();
  }
  std::vector<std::vector<std::string>> written(8), expected(8);
  for (const std::string& line : Messages(ReadFile(folder("zqlog.log")))) written.at(line.at(0) - 'A').push_back(line);
  for (int t = 0; t < 8; ++t)
    for (int i = 0; i < 200; ++i) expected[t].push_back(message(t, i));
  EXPECT_TRUE(written == expected) << "lines mixed, lost or out of order";
}

}  // namespace
