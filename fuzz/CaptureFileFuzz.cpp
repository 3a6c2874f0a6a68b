// Gives arbitrary text to the reader of captures.
#include "fuzz/SessionReading.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using MidiServer::ReadCaptureFile;
    const std::string content(data, data + size);
    const auto session = ReadSession(ReadCaptureFile, content);
    if (session) {
        CheckSession(*session);
    }
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (!content.starts_with(kMark)) {
        const auto marked = ReadSession(ReadCaptureFile, std::string(kMark) + content);
        Require(marked.has_value() == session.has_value() &&
                    (!session || std::equal(session->begin(), session->end(), marked->begin(),
                                            marked->end(), SameMessage)),
                "a byte-order mark changes nothing");
    }
    return 0;
}
