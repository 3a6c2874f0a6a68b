// The setup's file as bytes. All functions give 0 or a value of errno.
#pragma once

#include "platform/support/CFOwned.h"

#include <string>

namespace CoreMIDI {

// A regular file of at most 16 MiB; EFBIG for a longer one, ENOENT when there is none.
int ReadWholeFile(const std::string& path, CFOwned<CFDataRef>& contents);

// Writes a temporary file beside `path`, syncs it and puts it in the place of `path`, whose folder
// is made if need be. On failure what was there stays as it is.
int WriteFileAtomically(const std::string& path, CFDataRef contents);

// Renames the file to the first name of "PATH.broken", "PATH.broken-2", ... that is free, and says
// which that is.
int MoveFileAside(const std::string& path, std::string& newPath);

} // namespace CoreMIDI
