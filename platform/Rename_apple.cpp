#include "platform/Rename.h"

#include <stdio.h>

#include <cerrno>

namespace platform {

int RenameWithoutReplacing(int fromFolder, const char* from, int toFolder, const char* to) {
  return ::renameatx_np(fromFolder, from, toFolder, to, RENAME_EXCL) == 0 ? 0 : errno;
}

}  // namespace platform
