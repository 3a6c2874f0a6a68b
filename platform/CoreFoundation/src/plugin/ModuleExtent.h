#pragma once

#include <cstdint>
#include <optional>

// Returns the length that a module's file has to have: the place where the last segment or table of
// headers ends that the headers of the ELF file describe. A shorter file was cut off, and the
// dynamic loader, which maps what is not there, would end the process with SIGBUS. Returns nothing
// for a file that is no ELF file of this process's kind; the loader itself refuses such files.
std::optional<std::uint64_t> ModuleExtent(int file);
