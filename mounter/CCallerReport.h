// Splits the mounter in two: the caller's process, which waits for one
// report and exits with its status, and a background process that does the
// work and goes on serving the volume after the report.
#ifndef ZQ_MOUNTER_CCALLERREPORT_H_
#define ZQ_MOUNTER_CCALLERREPORT_H_

#include <string>

class CCallerReport {
 public:
  // Forks.  The caller's process never returns from here: it prints the
  // report's message on standard error and exits with its status (or with
  // kMounterMountFailed when the background process ends without one).
  // The background process returns, in a session of its own, with its
  // standard streams on /dev/null.  Call while the process has one thread.
  static CCallerReport Detach();

  CCallerReport(CCallerReport&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  CCallerReport(const CCallerReport&) = delete;
  CCallerReport& operator=(const CCallerReport&) = delete;
  ~CCallerReport();

  // Hands the caller its exit status and a message; only the first call
  // counts.
  void Send(int status, const std::string& message);

 private:
  explicit CCallerReport(int fd) : fd_(fd) {}
  int fd_;
};

#endif  // ZQ_MOUNTER_CCALLERREPORT_H_
