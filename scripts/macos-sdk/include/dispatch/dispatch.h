// Darwin's libdispatch, as far as this project uses it: work handed to a
// global queue.
#ifndef ZQ_MACOS_SDK_DISPATCH_DISPATCH_H_
#define ZQ_MACOS_SDK_DISPATCH_DISPATCH_H_

#include <stdint.h>

struct dispatch_queue_s {};
struct dispatch_queue_global_s : dispatch_queue_s {};
typedef dispatch_queue_s* dispatch_queue_t;
typedef dispatch_queue_global_s* dispatch_queue_global_t;
typedef void (*dispatch_function_t)(void* context);

#define DISPATCH_QUEUE_PRIORITY_DEFAULT 0

extern "C" {
dispatch_queue_global_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
}

#endif  // ZQ_MACOS_SDK_DISPATCH_DISPATCH_H_
