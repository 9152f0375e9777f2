// A temporary application bundle, with a blank in its path, whose helpers
// are recording stand-ins: the mounter, the explorer and the BitLocker
// library, plus "diskutil" on PATH.  Every call lands in one record that a
// test reads back with Calls().
#ifndef ZQ_TESTS_SUPPORT_STUBBUNDLE_H_
#define ZQ_TESTS_SUPPORT_STUBBUNDLE_H_

#include <ostream>
#include <string>
#include <vector>

struct StubCall {
  std::string program;
  std::vector<std::string> arguments;
  bool operator==(const StubCall& other) const { return program == other.program && arguments == other.arguments; }
};

inline void PrintTo(const StubCall& call, std::ostream* out) {
  *out << call.program << "(";
  for (const std::string& argument : call.arguments) *out << "[" << argument << "]";
  *out << ")";
}

class StubBundle {
 public:
  // Makes the bundle under `parent` (a fresh temporary folder when empty),
  // points ZQ_STUB_DIR at its record and ZQ_ACTIVITY_LOG at the activity
  // log, and puts its bin folder first on PATH.
  explicit StubBundle(const std::string& parent = "");
  ~StubBundle();
  StubBundle(const StubBundle&) = delete;
  StubBundle& operator=(const StubBundle&) = delete;

  const std::string& bundlePath() const { return bundlePath_; }
  const std::string& stubDir() const { return stubDir_; }

  // Writes an answer file: Answer("diskutil-unmount.stdout", "... successful\n").
  void Answer(const std::string& file, const std::string& text) const;
  void RemoveAnswer(const std::string& file) const;

  // Every recorded call, oldest first.
  std::vector<StubCall> Calls() const;
  std::vector<StubCall> CallsOf(const std::string& program) const;
  void ClearCalls() const;

 private:
  std::string root_;
  std::string bundlePath_;
  std::string stubDir_;
  std::string oldPath_;
};

// Runs `command` through /bin/sh and returns its exit status.
int RunShell(const std::string& command);

// A fresh temporary folder under /tmp.
std::string MakeTempDir(const std::string& prefix);

#endif  // ZQ_TESTS_SUPPORT_STUBBUNDLE_H_
