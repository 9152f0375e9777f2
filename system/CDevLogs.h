// The service's diagnostic log: one time-stamped line per call, appended to
// a plain-text file that grows across runs.
//
// A line is "[Zq Norvane]", the local time as YYYY-MM-DD HH:MM:SS, four
// blanks, the message and CR LF, written whole and flushed at once.  Lines
// from different threads never mix.
#ifndef ZQ_SYSTEM_CDEVLOGS_H_
#define ZQ_SYSTEM_CDEVLOGS_H_

#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>

class CDevLogs {
 public:
  // Messages shorter than this are built in the log's own buffer; longer
  // ones take a heap buffer of their exact size for the one call.
  static constexpr size_t kMessageBufferSize = 1024;

  // The service's log, "/tmp/zqlog.log", opened on first use and closed at
  // process exit.
  static CDevLogs* Instance();

  // A log appending to `path` when it is a regular file of this process's
  // user (root, for the service) with one link.  Anyone may plant something
  // at a path under /tmp, so anything else there (a link, another user's
  // file, a second name of one, a FIFO, a folder) is replaced by the file
  // made anew, mode 0644, as OwnPath.h tells; opening never waits.  A log that cannot be
  // had at all writes its lines to standard error, never nowhere.
  explicit CDevLogs(const std::string& path);
  ~CDevLogs();
  CDevLogs(const CDevLogs&) = delete;
  CDevLogs& operator=(const CDevLogs&) = delete;

  // Formats the message as printf does and appends its line.  A null
  // format, or a long message whose buffer cannot be had, writes nothing.
  void WriteLog(const char* format, ...) __attribute__((format(printf, 2, 3)));

  // The local time now, as "2024-03-07 09:05:01".
  static std::string CurrentTimeString();

  // Makes *line the log line of a message: prefix, time, blanks, CR LF.
  static void FormatLine(const char* message, size_t length, std::string* line);

 private:
  std::mutex mutex_;  // guards the two buffers and the stream position
  FILE* file_;
  char message_[kMessageBufferSize];
  std::string line_;
};

// A descriptor appending to the log file at `path`, opened as the log's
// constructor opens it: a regular file of this process's user with one
// link is kept; anything else there is replaced by the file made anew,
// mode 0644.  Never follows a link and never waits.  -1 when it cannot be
// had.
int OpenOwnLogFile(const std::string& path);

#endif  // ZQ_SYSTEM_CDEVLOGS_H_
