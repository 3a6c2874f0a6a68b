#include "platform/CoreFoundation/src/plugin/ModuleExtent.h"

#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace {

constexpr unsigned char kOwnClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr unsigned char kOwnByteOrder =
    std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;

template <typename Record>
bool ReadAt(int file, std::uint64_t offset, Record& record) {
    return offset <= static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) &&
           pread(file, &record, sizeof record, static_cast<off_t>(offset)) ==
               static_cast<ssize_t>(sizeof record);
}

std::uint64_t End(std::uint64_t offset, std::uint64_t size) {
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return size > most - offset ? most : offset + size;
}

} // namespace

std::optional<std::uint64_t> ModuleExtent(int file) {
    ElfW(Ehdr) header;
    if (!ReadAt(file, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != kOwnClass || header.e_ident[EI_DATA] != kOwnByteOrder) {
        return std::nullopt;
    }
    const auto tableEnd = [](std::uint64_t offset, std::uint64_t count, std::uint64_t size) {
        return End(offset, count * size);
    };
    std::uint64_t extent = std::max(tableEnd(header.e_phoff, header.e_phnum, header.e_phentsize),
                                    tableEnd(header.e_shoff, header.e_shnum, header.e_shentsize));
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment;
        if (!ReadAt(file, tableEnd(header.e_phoff, i, header.e_phentsize), segment)) {
            break; // the table itself is cut off
        }
        extent = std::max(extent, End(segment.p_offset, segment.p_filesz));
    }
    return extent;
}
