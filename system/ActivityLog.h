// The activity log: one line for every run of the mounter and the explorer,
// saying what each was asked and how it ended, in its own words.  The
// service's log never hears of mounts; this is where a person, or zqctl,
// reads why one failed.
//
// It lies in a folder of root's outside /tmp (platform::ActivityLogPath()),
// readable by everyone, and its lines have the service log's format.  A
// line's message is the program's name and quoted fields:
//
//   zq-mounter: device="/dev/loop3" mount-point="/media/My Disk" status=0
//       result="mounted" report="mounted read-only"
//
// (on one line).  A value is written with \" and \\ and each control
// character as \xHH, so that no value can end a line or forge a field.  No
// credential is ever part of a line.
#ifndef ZQ_SYSTEM_ACTIVITYLOG_H_
#define ZQ_SYSTEM_ACTIVITYLOG_H_

#include <string>
#include <vector>

struct Activity {
  std::string program;     // "zq-mounter"
  std::string device;      // as the program was given it
  std::string mountPoint;  // as the program was given it; empty for the explorer
  int status = 0;          // the outcome in the program's status numbers
  std::string result;      // that status in words
  std::string report;      // what the program told its caller
  std::string time;        // "2024-03-07 09:05:01", filled in when read back
};

// The message of the line for `activity` (its time is not part of it).
std::string ActivityMessage(const Activity& activity);

// Appends the line for `activity` to the activity log, making its folder
// if need be.  Only root writes there: for anyone else, or when the folder
// is not root's alone, nothing is written and false returned.
bool AppendActivity(const Activity& activity);

// The lines of the log at `path` from byte `offset` on that parse, oldest
// first.  A file shorter than `offset` has been replaced: it is read whole.
std::vector<Activity> ReadActivities(const std::string& path, long long offset = 0);

// The size of the log at `path` now, where lines written from now on start;
// 0 when there is none.
long long ActivityLogEnd(const std::string& path);

#endif  // ZQ_SYSTEM_ACTIVITYLOG_H_
