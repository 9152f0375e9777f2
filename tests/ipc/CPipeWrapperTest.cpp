#include "ipc/CPipeWrapper.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ipc/PipeFlags.h"
#include "tests/support/TempDir.h"

namespace {

TEST(CPipeWrapper, OnlyAReaderOpensWithoutAPeerAndAGoneReaderRaisesNoSigpipe) {
  TempDir dir;
  CPipeWrapper reader, writer;
  writer.InitPipe(dir("f").c_str(), kPipeWriteFlags | kPipeCreateFlag);
  EXPECT_EQ(writer.OpenPipe(), -1) << "no reader yet";
  EXPECT_EQ(errno, ENXIO);
  reader.InitPipe(dir("f").c_str(), kPipeReadFlags | kPipeCreateFlag);
  ASSERT_NE(reader.OpenPipe(), -1);
  ASSERT_NE(writer.OpenPipe(), -1);

  char data[32] = "abc", buffer[32];
  ASSERT_EQ(writer.WriteToPipe(data, 3), 3);
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(reader.ReadFromPipe(buffer, sizeof buffer), 3);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(data, sizeof data)) << "the rest of the buffer is zeroed";

  // The reader gone: the write fails without a SIGPIPE for the process.
  EXPECT_EQ(reader.DeletePipe(), 0);
  reader.ClosePipe();
  EXPECT_NE(access(dir("f").c_str(), F_OK), 0);
  EXPECT_EQ(writer.WriteToPipe(data, sizeof data), -1);
  EXPECT_EQ(errno, EPIPE);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGPIPE)) << "no SIGPIPE left behind";
}

TEST(CPipeWrapper, OpensNothingButAFifoAndNoSymbolicLink) {
  TempDir dir;
  ASSERT_EQ(RunShell("mkfifo '" + dir("real") + "' && ln -s '" + dir("real") + "' '" + dir("link") + "' && touch '" +
                     dir("file") + "'"),
            0);
  for (const char* name : {"link", "file"}) {
    CPipeWrapper end;
    end.InitPipe(dir(name).c_str(), kPipeReadFlags | kPipeCreateFlag);
    EXPECT_EQ(end.OpenPipe(), -1) << name;
  }
}

}  // namespace
