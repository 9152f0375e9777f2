// Renaming without replacing: the one rename the system needs beyond
// rename(2), which would replace whatever stands at the new name.
#ifndef ZQ_PLATFORM_RENAME_H_
#define ZQ_PLATFORM_RENAME_H_

namespace platform {

// Renames `from` in the folder open at `fromFolder` to `to` in the folder
// open at `toFolder`, in one step and only when nothing stands at `to`;
// a link at either name is renamed itself, never followed.  0, or an errno
// value: EEXIST when `to` is taken.
int RenameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to);

}  // namespace platform

#endif  // ZQ_PLATFORM_RENAME_H_
