#include "ipc/CSemaphoreHelper.h"

#include <fcntl.h>

sem_t* CSemaphoreHelper::CreateSemaphore(const char* name, int value) {
  return sem_open(name, O_CREAT | O_EXCL, 0600, static_cast<unsigned>(value));
}

sem_t* CSemaphoreHelper::OpenSemaphore(const char* name) { return sem_open(name, O_EXCL); }

bool CSemaphoreHelper::DestroySemaphore(sem_t* semaphore) { return sem_close(semaphore) != -1; }

int CSemaphoreHelper::SignalSemaphore(sem_t* semaphore) { return sem_post(semaphore); }

int CSemaphoreHelper::WaitSemaphore(sem_t* semaphore) { return sem_wait(semaphore); }

bool CSemaphoreHelper::TryWaitSemaphore(sem_t* semaphore) {
  return semaphore != SEM_FAILED && sem_trywait(semaphore) == 0;
}

bool CSemaphoreHelper::ClearSemaphore(const char* name) { return sem_unlink(name) != -1; }
