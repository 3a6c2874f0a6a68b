// Reads whole files. Nobody vouches for their content, so every read has a limit.
#pragma once

#include "platform/support/FileFailure.h"

#include <cstddef>
#include <string>

// Reads an open file from its present position to its end; at a pipe it waits for the writers.
// Fails with EFBIG if there are more than `limit` bytes. For a regular file it takes no more memory
// than the file has bytes, and for a pipe at most three times as much as the pipe brings.
FileFailure ReadToEnd(int descriptor, std::size_t limit, std::string& bytes);

// Reads a regular file. Fails with ENOENT if there is none, with EISDIR or EINVAL if something else
// lies at the path, and with EFBIG if the file has more than `limit` bytes. Waits only for the
// disk.
FileFailure ReadWholeFile(const std::string& path, std::size_t limit, std::string& bytes);
