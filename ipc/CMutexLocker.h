// A pthread mutex made and destroyed with its holder, and a scope lock
// over it.
#ifndef ZQ_IPC_CMUTEXLOCKER_H_
#define ZQ_IPC_CMUTEXLOCKER_H_

#include <pthread.h>

class CMutexLocker {
 public:
  CMutexLocker() { pthread_mutex_init(&mutex_, nullptr); }
  ~CMutexLocker() { pthread_mutex_destroy(&mutex_); }
  CMutexLocker(const CMutexLocker&) = delete;
  CMutexLocker& operator=(const CMutexLocker&) = delete;
  pthread_mutex_t* mutex() { return &mutex_; }

 private:
  pthread_mutex_t mutex_;
};

class CLockerGuard {
 public:
  explicit CLockerGuard(CMutexLocker& locker) : mutex_(locker.mutex()) { pthread_mutex_lock(mutex_); }
  ~CLockerGuard() { pthread_mutex_unlock(mutex_); }
  CLockerGuard(const CLockerGuard&) = delete;
  CLockerGuard& operator=(const CLockerGuard&) = delete;

 private:
  pthread_mutex_t* mutex_;
};

#endif  // ZQ_IPC_CMUTEXLOCKER_H_
