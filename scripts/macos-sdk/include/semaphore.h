// <semaphore.h> as on macOS: only named semaphores work there (sem_init
// fails with ENOSYS), and no wait has a timeout.
#ifndef ZQ_MACOS_SDK_SEMAPHORE_H_
#define ZQ_MACOS_SDK_SEMAPHORE_H_

#include_next <semaphore.h>

#ifdef __cplusplus
extern "C" {
#endif
int sem_init(sem_t* semaphore, int shared, unsigned int value) __attribute__((unavailable("fails on macOS")));
int sem_destroy(sem_t* semaphore) __attribute__((unavailable("fails on macOS")));
int sem_getvalue(sem_t* __restrict semaphore, int* __restrict value) __attribute__((unavailable("fails on macOS")));
int sem_timedwait(sem_t* __restrict semaphore, const struct timespec* __restrict deadline)
    __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_SEMAPHORE_H_
