// How long a module's file has to be.
#pragma once

#include <cstdint>
#include <optional>

// Where the last of what the headers of an ELF file describe ends: its segments and the tables of
// its headers. A file that is shorter was cut off, and the dynamic loader, which maps what is not
// there, would end the process with SIGBUS. Nothing for a file that is no ELF file of this
// process's kind: the loader itself refuses those.
std::optional<std::uint64_t> ModuleExtent(int file);
