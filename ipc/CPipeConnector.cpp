#include "ipc/CPipeConnector.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "ipc/CSemaphoreHelper.h"

namespace {

// Short enough for macOS, whose names hold at most 31 characters.
constexpr unsigned kSemaphoreNameSize = 32;
// Names taken by someone else are passed over, a few at the most.
constexpr int kSemaphoreNameTries = 8;

// Unique to this process and request: "zq_sem_<pid>_<id>_".
void SemaphoreName(char (&name)[kSemaphoreNameSize], int id) {
  std::snprintf(name, sizeof name, "zq_sem_%d_%d_", static_cast<int>(getpid()), id);
}

}  // namespace

CPipeConnector::CPipeConnector(std::string name) : name_(std::move(name)) {}

CPipeConnector::~CPipeConnector() {
  running_ = false;
  {
    std::lock_guard<std::mutex> guard(pauseLock_);
    pauseEnded_.notify_all();
  }
  if (threadStarted_) {
    if (pthread_equal(thread_, pthread_self()))
      pthread_detach(thread_);
    else
      pthread_join(thread_, nullptr);
  }
  readEnd_.ClosePipe();
  writeEnd_.ClosePipe();
}

bool CPipeConnector::initPipeConnection(const char* readPath, int readFlags, const char* writePath, int writeFlags) {
  if (initialized_) return true;
  readEnd_.InitPipe(readPath, readFlags);
  writeEnd_.InitPipe(writePath, writeFlags);
  initialized_ = true;
  initReadMsgThread();
  initSendMsg();
  return true;
}

bool CPipeConnector::initReadMsgThread() {
  if (initialized_ && !threadStarted_) threadStarted_ = pthread_create(&thread_, nullptr, ReadMsgThread, this) == 0;
  return threadStarted_;
}

bool CPipeConnector::initSendMsg() {
  std::lock_guard<std::mutex> guard(writeLock_);
  return initialized_ && EnsureWriteOpen();
}

void CPipeConnector::SetMsgHander(IIPCEvent* handler) { handler_ = handler; }

void CPipeConnector::ClosePipe() {
  readEnd_.ClosePipe();
  writeEnd_.ClosePipe();
}

int CPipeConnector::DeletePipe() {
  readEnd_.DeletePipe();
  return writeEnd_.DeletePipe();
}

bool CPipeConnector::EnsureWriteOpen() {
  if (!writeOpen_)
    writeOpen_ = writeEnd_.OpenPipe() != -1;
  else if (!writeEnd_.StillOpenOnPath())
    writeOpen_ = writeEnd_.ReopenPipe() != -1;
  return writeOpen_;
}

bool CPipeConnector::WriteBlock(const _MSG_DATA_PACKAGE& package, unsigned int len) {
  std::lock_guard<std::mutex> guard(writeLock_);
  if (!EnsureWriteOpen()) return false;
  writeEnd_.WriteToPipe(const_cast<_MSG_DATA_PACKAGE*>(&package), len);
  return true;
}

void CPipeConnector::Pause() {
  std::unique_lock<std::mutex> guard(pauseLock_);
  pauseEnded_.wait_for(guard, std::chrono::seconds(1), [this] { return !running_; });
}

void* CPipeConnector::ReadMsgThread(void* connection) {
  auto* self = static_cast<CPipeConnector*>(connection);
  while (self->running_ && self->readEnd_.OpenPipe() == -1) self->Pause();
  char block[kBlockSize + 1];
  while (self->running_) {
    // A peer that made its FIFO anew, or a path that held no FIFO, is
    // tried again.
    if (self->readEnd_.GetPipeDescr() == -1 || !self->readEnd_.StillOpenOnPath()) self->readEnd_.ReopenPipe();
    std::memset(block, 0, sizeof block);
    uint32_t msgId = 0;
    if (self->readEnd_.ReadFromPipe(block, kBlockSize) != -1) {
      std::memcpy(&msgId, block, sizeof msgId);
      if (msgId != 0) self->HandleMessage(block, kBlockSize);
    }
    self->Pause();
  }
  return nullptr;
}

void CPipeConnector::HandleMessage(char* block, unsigned int len) {
  uint32_t id;
  std::memcpy(&id, block, sizeof id);
  {
    CLockerGuard guard(lock_);
    const auto waiting = pending_.find(static_cast<int>(id));
    if (waiting != pending_.end()) {
      __MSG_MAPPING__& entry = waiting->second;
      std::memset(entry.replyData, 0, sizeof entry.replyData);
      std::memcpy(entry.replyData, block + 4, kPayloadSize);
      CSemaphoreHelper().SignalSemaphore(entry.semaphore);
      return;
    }
  }
  // A new message waits here for its handler; nothing further is read
  // meanwhile.
  while (handler_ == nullptr && running_) Pause();
  if (IIPCEvent* handler = handler_) handler->OnCommand_Reply(this, reinterpret_cast<_MSG_DATA_PACKAGE*>(block), len - 4);
}

bool CPipeConnector::SendMsg_async(void* data, unsigned int len, unsigned int msgId) {
  if (data == nullptr || !initialized_) return false;
  _MSG_DATA_PACKAGE package;
  std::memset(&package, 0, sizeof package);
  package.msgId = msgId;
  std::memcpy(package.payload, data, std::min(len, kBlockSize));
  return WriteBlock(package, std::min(len, kBlockSize));
}

bool CPipeConnector::SendMsg_sync(void* data, unsigned int len, void* reply, unsigned int replyLen,
                                  unsigned int timeout) {
  if (data == nullptr || reply == nullptr || !initialized_) return false;
  for (unsigned attempt = 1; timeout != 0 && !initSendMsg(); ++attempt) {
    if (attempt >= timeout) return false;
    Pause();
  }

  CSemaphoreHelper semaphores;
  _MSG_DATA_PACKAGE package;
  int id = 0;
  sem_t* semaphore = SEM_FAILED;
  {
    CLockerGuard guard(lock_);
    for (int tries = 0; semaphore == SEM_FAILED && tries < kSemaphoreNameTries; ++tries) {
      char name[kSemaphoreNameSize];
      id = nextMessageId_++;
      SemaphoreName(name, id);
      semaphore = semaphores.CreateSemaphore(name, 0);
      if (semaphore != SEM_FAILED) semaphores.ClearSemaphore(name);
    }
    if (semaphore == SEM_FAILED) return false;
    __MSG_MAPPING__ entry;
    entry.semaphore = semaphore;
    std::memset(entry.replyData, 0, sizeof entry.replyData);
    pending_.emplace(id, entry);
    std::memset(&package, 0, sizeof package);
    package.msgId = static_cast<uint32_t>(id);
    std::memcpy(package.payload, data, std::min(len, kBlockSize));
  }
  WriteBlock(package, kBlockSize);
  std::memset(reply, 0, replyLen);

  bool answered = semaphores.TryWaitSemaphore(semaphore);
  for (unsigned waited = 0; !answered && waited < timeout; ++waited) {
    sleep(1);
    answered = semaphores.TryWaitSemaphore(semaphore);
  }
  {
    CLockerGuard guard(lock_);
    // A reply that came while the wait ended is still this request's.
    if (!answered) answered = semaphores.TryWaitSemaphore(semaphore);
    const auto entry = pending_.find(id);
    if (answered) std::memcpy(reply, entry->second.replyData, kBlockSize);
    pending_.erase(entry);
  }
  if (!answered) std::memset(reply, 0, replyLen);
  semaphores.DestroySemaphore(semaphore);
  return true;
}
