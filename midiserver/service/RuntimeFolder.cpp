#include "midiserver/service/RuntimeFolder.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/CFText.h"

#include <CoreFoundation/CFMessagePortHost.h>

namespace MidiServer {

std::string RuntimeFolder() {
    CFStringRef failure = nullptr;
    const CFOwned<CFStringRef> folder(CFMessagePortHostCopyFolder(&failure));
    const CFOwned<CFStringRef> reason(failure);
    if (!folder) {
        throw HostError("the runtime folder cannot be used: " + TextOf(reason.Get()));
    }
    return TextOf(folder.Get());
}

} // namespace MidiServer
