// How the service puts a file of its own at a path in a folder where every
// user may plant anything beforehand and race it meanwhile (/tmp): the
// client channels' FIFOs and the log.
//
// The file is made under an unpredictable temporary name beside the path
// and renamed over it in one step, so the name is never free for another
// user to take.  A folder standing at the path, which a rename cannot
// replace, is first moved aside under an unpredictable name of its own in
// the same folder; it is never deleted with what it holds, since that is
// not the service's to delete.  Every call works on the folder's descriptor
// and follows no link; nothing is deleted but the service's own temporary
// file and empty folders.
#ifndef ZQ_SYSTEM_OWNPATH_H_
#define ZQ_SYSTEM_OWNPATH_H_

#include <functional>
#include <string>

// Makes the file at `name` in the folder open at `folder`, with mkfifoat
// or openat(O_CREAT | O_EXCL), and sets its owner and mode through a
// descriptor: 0, or an errno value (EEXIST has `name` tried anew).
using MakeOwnFile = std::function<int(int folder, const char* name)>;

// Puts the file that `make` makes at the absolute `path`, in place of
// whatever stands there: 0, or an errno value with nothing changed but a
// folder moved aside.
int PutOwnFileAt(const std::string& path, const MakeOwnFile& make);

#endif  // ZQ_SYSTEM_OWNPATH_H_
