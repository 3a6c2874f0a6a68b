#include "midiserver/host/Setup.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/CFText.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <fmt/format.h>

#include <cerrno>
#include <system_error>

namespace MidiServer {

Setup::Setup(const std::optional<std::filesystem::path>& file) : mFile(file) {
    if (!file) {
        const OSStatus status = MIDIServerHostOpenSetup(nullptr);
        if (status != noErr) {
            throw HostError(fmt::format("the setup cannot be opened (status {})", status));
        }
        Log(kHostLog[HSL::kChatty], "opened a setup that is not kept");
        return;
    }
    const CFOwned<CFStringRef> path = MakeCFString(std::filesystem::absolute(*file).string());
    const OSStatus status = MIDIServerHostOpenSetup(path.Get());
    if (status == kMIDISetupFormatErr) {
        mWarning = fmt::format("{}: not a setup; it was moved aside and a new one is made",
                               file->string());
    } else if (status != noErr) {
        throw InputError(fmt::format("{}: the setup cannot be opened: {}", file->string(),
                                     std::generic_category().message(errno)));
    }
    Log(kHostLog[HSL::kChatty], "opened setup %s", file->string());
}

void Setup::Save() const {
    if (mFile && MIDIServerHostSaveSetup() != noErr) {
        throw InputError(fmt::format("{}: the setup cannot be saved: {}", mFile->string(),
                                     std::generic_category().message(errno)));
    }
}

} // namespace MidiServer
