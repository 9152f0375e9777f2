// Another user trying to hold the service's paths under /tmp for good, or
// to take one while the service changes it, each tried against the real
// service.
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>


#include "tests/service/ServiceClients.h"
#include "tests/support/FileContents.h"

namespace {

constexpr uid_t kPlanter = 4343;

using HeldPathTest = ServiceClientTest;

std::string AsPlanter(const std::string& script) {
  return "setpriv --reuid " + std::to_string(kPlanter) + " --regid " + std::to_string(kPlanter) +
         " --clear-groups sh -c '" + script + "'";
}

// Whether, within `seconds`, `path` holds a FIFO of `owner` alone.
bool FifoOf(const std::string& path, uid_t owner, int seconds = 5) {
  return RunShell("for i in $(seq " + std::to_string(seconds * 10) + "); do [ \"$(stat -c '%F %u %a' " + path +
                  ")\" = 'fifo " + std::to_string(owner) + " 600' ] && exit 0; sleep 0.1; done; exit 1") == 0;
}

// Whether the user at the machine is served on MainUI's channel.
bool Served(uid_t user) {
  return RunAsUser(user, [] {
           RawClient client(kMainUIChannel);
           return Result(client, MakeRecord(eCOMMAND_CHECK_CONNECTION), 10) == kResultServiceThere ? 0 : 1;
         }) == 0;
}

int Count(const std::vector<std::string>& lines, const std::string& part) {
  int count = 0;
  for (const std::string& line : lines) count += line.find(part) != std::string::npos;
  return count;
}

// A folder with contents at a channel path, with every name it could be
// moved aside to under a rule of path, pid and inode taken in advance by
// folders, files and links, gives way to the service's FIFO at once; the
// folder is kept whole beside it and the line is logged once.
TEST_F(HeldPathTest, AFolderPlantedAtAChannelWithItsAsideNamesTakenGivesWay) {
  constexpr uid_t kAtTheMachine = 4242;
  ConsoleUserIs console(kAtTheMachine);
  // The service is the next process but one, after the planter's own.
  ASSERT_EQ(RunAsUser(kPlanter, [] {
              struct stat folder;
              const int x = mkdir("/tmp/zq_btl_1", 0755) == 0 ? open("/tmp/zq_btl_1/x", O_CREAT | O_WRONLY, 0644) : -1;
              if (x < 0 || write(x, "theirs\n", 7) != 7 || close(x) != 0 || stat("/tmp/zq_btl_1", &folder) != 0)
                return 1;
              for (int pid = getpid() + 1; pid <= getpid() + 300; ++pid) {
                const std::string aside =
                    "/tmp/zq_btl_1.refused." + std::to_string(pid) + "." + std::to_string(folder.st_ino);
                const bool taken = pid % 3 == 0   ? mkdir(aside.c_str(), 0755) == 0 && mkdir((aside + "/y").c_str(), 0755) == 0
                                   : pid % 3 == 1 ? close(open(aside.c_str(), O_CREAT | O_WRONLY, 0644)) == 0
                                                  : symlink("/tmp/zq_btl_1", aside.c_str()) == 0;
                if (!taken) return 1;
              }
              return 0;
            }),
            0);
  service->Start();
  EXPECT_TRUE(FifoOf("/tmp/zq_btl_1", kAtTheMachine));
  EXPECT_TRUE(Served(kAtTheMachine));
  EXPECT_EQ(RunShell("grep -qx theirs /tmp/zq_btl_1.refused.*/x"), 0) << "the folder is kept whole";
  EXPECT_EQ(RunShell("[ $(ls -d /tmp/zq_btl_1.refused.* | wc -l) = 301 ]"), 0) << "the names taken are left alone";
  sleep(2);
  const std::vector<std::string> log = LogMessages();
  EXPECT_EQ(Count(log, "/tmp/zq_btl_1 "), 1) << "one line for the plant, none every second";
  EXPECT_EQ(Count(log, "/tmp/zq_btl_1 held a folder of uid 4343"), 1);
}

// The log is written to its file, not to standard error, whatever folder
// stands at its path.
TEST_F(HeldPathTest, AFolderPlantedAtTheLogGivesWayToTheLog) {
  ASSERT_EQ(RunShell(AsPlanter("mkdir -p /tmp/zqlog.log/deep && echo theirs > /tmp/zqlog.log/deep/x && "
                               "mkdir /tmp/zqlog.log.refused")),
            0);
  StartWithClients();
  EXPECT_EQ(RunShell("[ \"$(stat -c '%F %u %h' /tmp/zqlog.log)\" = 'regular file 0 1' ]"), 0);
  EXPECT_EQ(Count(LogMessages(), "serverEvent - eCOMMAND_CHECK_CONNECTION"), 1);
  EXPECT_EQ(RunShell("grep -qx theirs /tmp/zqlog.log.refused.*/deep/x"), 0) << "the folder is kept whole";
}

// A FIFO of root's or of the user at the machine that others could open,
// as a client could have made it before the service ran, may be held open
// by one of them: it is replaced, not narrowed, and a FIFO already right is
// kept.
TEST_F(HeldPathTest, AChannelOthersCouldOpenIsReplacedNotNarrowed) {
  constexpr uid_t kAtTheMachine = 4242;
  ConsoleUserIs console(kAtTheMachine);
  const struct {
    const char* path;
    uid_t owner;
    mode_t mode;
    bool kept;
  } cases[] = {{"/tmp/zq_btl_1", 0, 0666, false},
               {"/tmp/zq_btl_2", kAtTheMachine, 0644, false},
               {"/tmp/zq_btl_3", 0, 0600, true},
               {"/tmp/zq_btl_4", kAtTheMachine, 0600, true}};
  ino_t before[4];
  for (size_t i = 0; i < 4; ++i) {
    struct stat info;
    ASSERT_EQ(mkfifo(cases[i].path, 0600), 0);
    ASSERT_EQ(chown(cases[i].path, cases[i].owner, cases[i].owner), 0);
    ASSERT_EQ(chmod(cases[i].path, cases[i].mode), 0);
    ASSERT_EQ(lstat(cases[i].path, &info), 0);
    before[i] = info.st_ino;
  }
  service->Start();
  for (size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(cases[i].path);
    struct stat info;
    EXPECT_TRUE(FifoOf(cases[i].path, kAtTheMachine));
    ASSERT_EQ(lstat(cases[i].path, &info), 0);
    EXPECT_EQ(info.st_ino == before[i], cases[i].kept);
  }
  EXPECT_TRUE(Served(kAtTheMachine));
}

// Another user that tries all along to take the channel paths, with FIFOs
// it would hold open and with links, while the user at the machine changes
// back and forth, never finds a path free: every change leaves a new FIFO
// of the user at the machine.
TEST_F(HeldPathTest, NobodyTakesAChannelWhileTheUserAtTheMachineChanges) {
  constexpr uid_t kFirst = 4242, kSecond = 4244;
  const char* const channels[] = {"/tmp/zq_btl_1", "/tmp/zq_btl_2", "/tmp/zq_btl_3", "/tmp/zq_btl_4"};
  StartWithClients();
  int grabs[2];
  ASSERT_EQ(pipe(grabs), 0);
  std::fflush(nullptr);
  const pid_t grabber = fork();
  if (grabber == 0) {
    close(grabs[0]);
    if (setgroups(0, nullptr) != 0 || setgid(kPlanter) != 0 || setuid(kPlanter) != 0) _exit(126);
    for (unsigned round = 0;; ++round) {
      for (const char* path : channels) {
        if (mkfifo(path, 0666) == 0 && open(path, O_RDWR | O_NONBLOCK) >= 0) dprintf(grabs[1], "FIFO at %s\n", path);
        if (round % 8 == 0 && symlink("/tmp/elsewhere", path) == 0) dprintf(grabs[1], "link at %s\n", path);
      }
    }
  }
  close(grabs[1]);
  for (const uid_t user : {kFirst, kSecond, kFirst, kSecond, kFirst, kSecond, kFirst, kSecond}) {
    ConsoleUserIs console(user);
    for (const char* channel : channels) EXPECT_TRUE(FifoOf(channel, user)) << channel << " for uid " << user;
  }
  kill(grabber, SIGKILL);
  waitpid(grabber, nullptr, 0);
  std::string taken;
  char buffer[4096];
  for (ssize_t got; (got = read(grabs[0], buffer, sizeof buffer)) > 0;) taken.append(buffer, static_cast<size_t>(got));
  close(grabs[0]);
  EXPECT_EQ(taken, "") << "the grabber found a channel path free";
  for (const char* channel : channels) EXPECT_TRUE(FifoOf(channel, 0)) << channel << " back to root";
  EXPECT_TRUE(Served(0));
}

}  // namespace
