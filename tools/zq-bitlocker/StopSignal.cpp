#include "tools/zq-bitlocker/StopSignal.h"

#include <atomic>

namespace {

std::atomic<bool> stopAsked{false};

void AskToStop(int) { stopAsked = true; }

}  // namespace

StopSignal::StopSignal() {
  stopAsked = false;
  struct sigaction stop = {};
  stop.sa_handler = AskToStop;
  ::sigaction(SIGINT, &stop, &savedInt_);
  ::sigaction(SIGTERM, &stop, &savedTerm_);
}

StopSignal::~StopSignal() {
  ::sigaction(SIGINT, &savedInt_, nullptr);
  ::sigaction(SIGTERM, &savedTerm_, nullptr);
}

bool StopSignal::asked() const { return stopAsked; }
