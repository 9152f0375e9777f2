// Ctrl-C during a long write (dump's copy, create's wipe): the command is
// asked to stop, ends at its next step, says how far it came and what it
// left behind, and exits as a shell reports a command that SIGINT ended.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_STOPSIGNAL_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_STOPSIGNAL_H_

#include <signal.h>

// The exit status of a command stopped by Ctrl-C.
constexpr int kInterrupted = 128 + SIGINT;

// While one lives, SIGINT and SIGTERM only ask to stop; the handlers from
// before are put back when it ends.  Only one lives at a time.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  // Whether a signal has asked to stop since this was made.
  bool asked() const;

 private:
  struct sigaction savedInt_, savedTerm_;
};

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_STOPSIGNAL_H_
