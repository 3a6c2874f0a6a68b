#include "midiserver/service/control/ControlProtocol.h"

#include <nlohmann/json.hpp>

#include <new>
#include <string>

namespace MidiServer {

using Json = nlohmann::ordered_json;

CFOwned<CFDataRef> ControlData(const Json& message) {
    const std::string text = message.dump(-1, ' ', false, Json::error_handler_t::replace);
    CFOwned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                         reinterpret_cast<const UInt8*>(text.data()),
                                         static_cast<CFIndex>(text.size())));
    if (!data) {
        throw std::bad_alloc();
    }
    return data;
}

Json ControlMessage(CFDataRef data) {
    const UInt8* const bytes = CFDataGetBytePtr(data);
    return Json::parse(bytes, bytes + CFDataGetLength(data), nullptr, false);
}

} // namespace MidiServer
