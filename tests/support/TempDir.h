// A fresh folder under /tmp for one test, removed with everything in it.
#ifndef ZQ_TESTS_SUPPORT_TEMPDIR_H_
#define ZQ_TESTS_SUPPORT_TEMPDIR_H_

#include <string>

#include "tests/support/StubBundle.h"

class TempDir {
 public:
  TempDir() : path_(MakeTempDir("zq-test-")) {}
  ~TempDir() { RunShell("rm -rf '" + path_ + "'"); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // The path of `name` in the folder.
  std::string operator()(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

#endif  // ZQ_TESTS_SUPPORT_TEMPDIR_H_
