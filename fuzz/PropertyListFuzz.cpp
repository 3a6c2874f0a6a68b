// Reads arbitrary bytes as a property list. A list that is accepted is written in both formats and
// must read back.
#include "fuzz/Require.h"
#include "platform/support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>

namespace {

using Data = CFOwned<CFDataRef>;
using Value = CFOwned<CFPropertyListRef>;

Value Read(CFDataRef data) {
    CFErrorRef error = nullptr;
    Value value(
        CFPropertyListCreateWithData(nullptr, data, kCFPropertyListImmutable, nullptr, &error));
    const CFOwned<CFErrorRef> owner(error);
    Require(static_cast<bool>(value) != (error != nullptr), "either a value or an error");
    return value;
}

Data Write(CFPropertyListRef value, CFPropertyListFormat format) {
    CFErrorRef error = nullptr;
    Data data(CFPropertyListCreateData(nullptr, value, format, 0, &error));
    const CFOwned<CFErrorRef> owner(error);
    Require(static_cast<bool>(data) != (error != nullptr), "either bytes or an error");
    return data;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const Data input(CFDataCreate(nullptr, bytes, static_cast<CFIndex>(size)));
    const Value value = Read(input.Get());
    if (!value) {
        return 0;
    }
    Require(CFPropertyListIsValid(value.Get(), kCFPropertyListXMLFormat_v1_0),
            "what is read is a property list");
    const Value copy(CFPropertyListCreateDeepCopy(nullptr, value.Get(), 0));
    Require(CFEqual(copy.Get(), value.Get()), "a copy is equal");
    for (const CFPropertyListFormat format :
         {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
        const Data written = Write(value.Get(), format);
        if (!written) {
            continue; // objects that are referred to often come to more than a file may have
        }
        const Value back = Read(written.Get());
        Require(static_cast<bool>(back), "what is written is read");
        // XML has no fractions of seconds; beyond those nothing is lost.
        Require(format == kCFPropertyListXMLFormat_v1_0 || CFEqual(back.Get(), value.Get()),
                "what is written reads back");
        Require(CFEqual(Write(back.Get(), format).Get(), written.Get()),
                "the same bytes are written again");
    }
    return 0;
}
