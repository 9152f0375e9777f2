#include "CPipeWrapper.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "IpcTestSupport.h"
#include "PipeFlags.h"

namespace {

TEST(CPipeWrapper, CreateBitMakesTheFifoAndOnlyAReaderOpensWithoutAPeer) {
  TempDir dir;
  CPipeWrapper missing, made, again, writer;
  missing.InitPipe(dir("missing").c_str(), kPipeReadFlags);
  EXPECT_EQ(missing.OpenPipe(), -1);
  EXPECT_NE(access(dir("missing").c_str(), F_OK), 0);

  made.InitPipe(dir("made").c_str(), kPipeReadFlags | kPipeCreateFlag);
  EXPECT_NE(made.OpenPipe(), -1);
  struct stat info;
  ASSERT_EQ(stat(dir("made").c_str(), &info), 0);
  EXPECT_TRUE(S_ISFIFO(info.st_mode));
  // Again on the existing FIFO: still opens, read-only and non-blocking.
  again.InitPipe(dir("made").c_str(), kPipeReadFlags | kPipeCreateFlag);
  ASSERT_NE(again.OpenPipe(), -1);
  char buffer[16];
  EXPECT_EQ(again.ReadFromPipe(buffer, sizeof buffer), 0) << "no writer: end of file at once";

  writer.InitPipe(dir("unread").c_str(), kPipeWriteFlags | kPipeCreateFlag);
  EXPECT_EQ(writer.OpenPipe(), -1);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_EQ(writer.WriteToPipe(buffer, sizeof buffer), -1);
  EXPECT_EQ(writer.ReadFromPipe(buffer, sizeof buffer), -1);
}

TEST(CPipeWrapper, ReadZeroesTheBufferAndNeverLosesABlockAfterAnEmptyPoll) {
  TempDir dir;
  CPipeWrapper reader, writer;
  reader.InitPipe(dir("f").c_str(), kPipeReadFlags | kPipeCreateFlag);
  writer.InitPipe(dir("f").c_str(), kPipeWriteFlags);
  ASSERT_NE(reader.OpenPipe(), -1);
  ASSERT_NE(writer.OpenPipe(), -1);

  char buffer[32];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(reader.ReadFromPipe(buffer, sizeof buffer), -1) << "writer present, nothing waiting";
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(buffer[0], 0) << "zeroed before the read";

  char data[] = "abc";
  ASSERT_EQ(writer.WriteToPipe(data, 3), 3);
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(reader.ReadFromPipe(buffer, sizeof buffer), 3);
  EXPECT_EQ(std::string(buffer, 4), std::string("abc\0", 4));
  EXPECT_EQ(buffer[31], 0);

  EXPECT_EQ(reader.DeletePipe(), 0);
  EXPECT_NE(access(dir("f").c_str(), F_OK), 0);
}

TEST(CPipeWrapper, OpensNothingButAFifoAndNoSymbolicLink) {
  TempDir dir;
  ASSERT_EQ(RunShell("mkfifo '" + dir("real") + "' && ln -s '" + dir("real") + "' '" + dir("link") +
                     "' && touch '" + dir("file") + "'"),
            0);
  for (const char* name : {"link", "file"}) {
    CPipeWrapper end;
    end.InitPipe(dir(name).c_str(), kPipeReadFlags | kPipeCreateFlag);
    EXPECT_EQ(end.OpenPipe(), -1) << name;
    EXPECT_EQ(end.GetPipeDescr(), -1) << name;
  }
}

TEST(CPipeWrapper, WritingToAGoneReaderFailsWithoutKillingTheProcess) {
  TempDir dir;
  CPipeWrapper writer;
  {
    CPipeWrapper reader;
    reader.InitPipe(dir("f").c_str(), kPipeReadFlags | kPipeCreateFlag);
    ASSERT_NE(reader.OpenPipe(), -1);
    writer.InitPipe(dir("f").c_str(), kPipeWriteFlags);
    ASSERT_NE(writer.OpenPipe(), -1);
  }
  char data[512] = {};
  EXPECT_EQ(writer.WriteToPipe(data, sizeof data), -1);
  EXPECT_EQ(errno, EPIPE);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGPIPE)) << "no SIGPIPE left behind";
}

}  // namespace
