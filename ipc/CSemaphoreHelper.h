// Thin operations over POSIX named semaphores.  A connection gives every
// synchronous request a semaphore of its own: the sender polls it, the
// reading thread signals it when the reply comes.
#ifndef ZQ_IPC_CSEMAPHOREHELPER_H_
#define ZQ_IPC_CSEMAPHOREHELPER_H_

#include <semaphore.h>

class CSemaphoreHelper {
 public:
  // Opens the semaphore `name`, making it with `value` when it does not
  // exist yet; SEM_FAILED on failure.
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
