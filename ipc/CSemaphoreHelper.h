// Thin operations over POSIX named semaphores.  A connection gives every
// synchronous request a semaphore of its own: the sender polls it, the
// reading thread signals it when the reply comes.  Both hold it from the
// start, so its name is removed at once.
#ifndef ZQ_IPC_CSEMAPHOREHELPER_H_
#define ZQ_IPC_CSEMAPHOREHELPER_H_

#include <semaphore.h>

class CSemaphoreHelper {
 public:
  // Makes the semaphore `name` with `value`, for this user alone;
  // SEM_FAILED when the name is taken, so that a semaphore someone else
  // planted under it is never used.
  sem_t* CreateSemaphore(const char* name, int value);
  // Opens an existing semaphore only.
  sem_t* OpenSemaphore(const char* name);
  // Closes this process's handle; the name stays.
  bool DestroySemaphore(sem_t* semaphore);
  int SignalSemaphore(sem_t* semaphore);
  int WaitSemaphore(sem_t* semaphore);
  // True when a count was taken without waiting.
  bool TryWaitSemaphore(sem_t* semaphore);
  // Removes the name.
  bool ClearSemaphore(const char* name);
};

#endif  // ZQ_IPC_CSEMAPHOREHELPER_H_
