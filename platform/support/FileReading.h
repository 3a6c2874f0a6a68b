// Files as a whole, from bytes that nobody vouches for.
#pragma once

#include "platform/support/FileFailure.h"

#include <cstddef>
#include <string>

// Reads what is open from where it stands to its end, waiting for a pipe's writers. EFBIG when
// there are more than `limit` bytes. Takes no more memory than a regular file has bytes, and at
// most three times what a pipe brings.
FileFailure ReadToEnd(int descriptor, std::size_t limit, std::string& bytes);

// Reads a regular file. ENOENT when there is none, EISDIR or EINVAL for anything else that lies at
// the path, and EFBIG when it has more than `limit` bytes. Waits for nothing but the disk.
FileFailure ReadWholeFile(const std::string& path, std::size_t limit, std::string& bytes);
