// Small tools shared by the system tests: temporary folders, whole-file
// reads and writes, children with chosen process names, and the helper
// program.
#ifndef ZQ_TESTS_SYSTEM_TESTSUPPORT_H_
#define ZQ_TESTS_SYSTEM_TESTSUPPORT_H_

#include <sys/types.h>

#include <string>

#include "FileContents.h"
#include "StubBundle.h"
#include "TempDir.h"

void WriteFile(const std::string& path, const std::string& contents, mode_t mode = 0644);

// The helper program built beside the tests (see SystemTestHelper.cpp).
inline std::string HelperProgram() { return ZQ_SYSTEM_TEST_HELPER; }

// A copy of /bin/sleep started under the file name `name` in `folder`, so
// that its short name is `name` cut by the kernel.  The destructor kills it
// if it still runs, and reaps it.
class NamedChild {
 public:
  NamedChild(const std::string& folder, const std::string& name);
  ~NamedChild();
  NamedChild(const NamedChild&) = delete;
  NamedChild& operator=(const NamedChild&) = delete;

  pid_t pid() const { return pid_; }
  // True once the kernel shows the child under its new name.
  bool started() const { return started_; }
  // Waits for the child to end; true when SIGKILL ended it.
  bool WaitKilled();
  // True while the child has not ended.
  bool Running();

 private:
  pid_t pid_ = -1;
  bool started_ = false;
  bool reaped_ = false;
};

#endif  // ZQ_TESTS_SYSTEM_TESTSUPPORT_H_
