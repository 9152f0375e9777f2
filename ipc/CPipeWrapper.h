// One end of one named FIFO: remembers its path and open flags, makes the
// FIFO on request, opens it, and moves raw bytes through it with single
// system calls.  No framing, no retrying, no waiting: callers poll.
#ifndef ZQ_IPC_CPIPEWRAPPER_H_
#define ZQ_IPC_CPIPEWRAPPER_H_

class CPipeWrapper {
 public:
  static constexpr unsigned kPathSize = 1024;

  CPipeWrapper();
  ~CPipeWrapper();
  CPipeWrapper(const CPipeWrapper&) = delete;
  CPipeWrapper& operator=(const CPipeWrapper&) = delete;

  // Stores the path and the flags; a null name changes nothing.  The name
  // must be shorter than kPathSize.
  void InitPipe(const char* name, int flags);

  // Makes the FIFO first when the flags hold the create bit, then opens it.
  // A symbolic link is not followed, and anything but a FIFO is not kept
  // open (EINVAL).  Returns the new descriptor, or -1 with errno set.
  int OpenPipe();

  // False when the path now names another FIFO than the open one: the peer
  // made its FIFO anew.  A path that is gone still counts as the same.
  bool StillOpenOnPath() const;

  // Closes the open descriptor, keeping the path, and opens the path again.
  int ReopenPipe();

  // One read(2) into a zeroed buffer.  -1 when nothing was waiting (EAGAIN),
  // the end is closed, or on error; 0 when no writer has the FIFO open.
  long ReadFromPipe(void* buffer, unsigned long len);

  // One write(2).  A reader that has gone makes it fail with EPIPE; the
  // process is never killed by SIGPIPE.
  long WriteToPipe(void* buffer, unsigned long len);

  // Closes the descriptor and forgets the path; nothing when not open.
  void ClosePipe();

  // Removes the FIFO from the file system; call before ClosePipe, which
  // forgets the path.
  int DeletePipe();

  int GetPipeDescr() const { return descriptor_; }
  char* GetPipeName() { return path_; }

 private:
  int descriptor_;
  int flags_;
  char path_[kPathSize];
};

#endif  // ZQ_IPC_CPIPEWRAPPER_H_
