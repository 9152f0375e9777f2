#include "system/OwnPath.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/FileContents.h"
#include "tests/support/TempDir.h"

namespace {

// Makes a file holding "ours", as the log is made.
int MakeOurs(int folder, const char* name) {
  const int fd = openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  const bool wrote = write(fd, "ours", 4) == 4;
  close(fd);
  return wrote ? 0 : EIO;
}

// What the folder holds, one "name kind" line each, names sorted, with
// every random suffix cut to "*".
std::string Listing(const TempDir& folder) {
  FILE* list = popen(("cd '" + folder.path() + "' && find . -mindepth 1 -printf '%p %y\\n' | "
                      "sed -E 's/\\.[0-9a-f]{16}/.*/g' | sort").c_str(), "r");
  std::string text;
  char buffer[4096];
  for (size_t got; (got = fread(buffer, 1, sizeof buffer, list)) > 0;) text.append(buffer, got);
  pclose(list);
  return text;
}

// Whatever stands at the path gives way to our file, and what was planted
// stays whole beside it, a folder under a new name; a link is never
// followed.  Names a planter took in advance change nothing.
TEST(OwnPathTest, PutsOurFileInPlaceOfAnyPlantAndLeavesThePlantWhole) {
  const struct {
    const char* plant;
    const char* left;  // the folder's listing afterwards
  } cases[] = {
      {"true", "./log f\n"},
      {"echo theirs > log", "./log f\n"},
      {"mkfifo log", "./log f\n"},
      {"mkdir log", "./log f\n"},
      {"mkdir -p log/deep && echo theirs > log/deep/x", "./log f\n./log.refused.* d\n./log.refused.*/deep d\n"
                                                        "./log.refused.*/deep/x f\n"},
      {"mkdir target && echo theirs > target/x && ln -s target log", "./log f\n./target d\n./target/x f\n"},
      {"ln -s nowhere log", "./log f\n"},
      {"mkdir -p log/x log.refused log.refused.0 .log.new && ln -s log log.refused.1",
       "./.log.new d\n./log f\n./log.refused d\n./log.refused.* d\n./log.refused.*/x d\n./log.refused.0 d\n"
       "./log.refused.1 l\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.plant);
    TempDir folder;
    ASSERT_EQ(RunShell("cd '" + folder.path() + "' && " + c.plant), 0);
    EXPECT_EQ(PutOwnFileAt(folder("log"), MakeOurs), 0);
    EXPECT_EQ(ReadFile(folder("log")), "ours");
    EXPECT_EQ(Listing(folder), c.left);
    if (std::string(c.plant).find("theirs > log/") != std::string::npos) {
      EXPECT_EQ(RunShell("cd '" + folder.path() + "' && grep -rqx theirs ."), 0) << "a folder's contents are kept";
    }
  }
}

TEST(OwnPathTest, AFileThatCannotBeMadeLeavesThePathAsItWas) {
  TempDir folder;
  ASSERT_EQ(RunShell("cd '" + folder.path() + "' && mkdir -p log/x"), 0);
  const auto fails = [](int folder, const char* name) {
    const int fd = openat(folder, name, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd >= 0) close(fd);
    return EACCES;
  };
  EXPECT_EQ(PutOwnFileAt(folder("log"), fails), EACCES);
  EXPECT_EQ(Listing(folder), "./log d\n./log/x d\n") << "no temporary file is left";
  EXPECT_EQ(PutOwnFileAt(folder("missing/log"), MakeOurs), ENOENT);
}

}  // namespace
