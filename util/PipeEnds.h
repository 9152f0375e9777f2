// Keeping a pipe's ends clear of the standard streams, where a child's
// streams are put.
#ifndef ZQ_UTIL_PIPEENDS_H_
#define ZQ_UTIL_PIPEENDS_H_

// Moves each end of the close-on-exec pipe `fds` that is one of the three
// standard streams (because they were closed) to a new close-on-exec
// descriptor above them.  Returns 0, or an errno value with both ends
// closed.
int MovePipeAboveStandardStreams(int fds[2]);

#endif  // ZQ_UTIL_PIPEENDS_H_
