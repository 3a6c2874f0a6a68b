#include "hsl/CCat.h"

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "hsl/LogManager.h"

namespace HSL {

int CCat::Serialize(CCircularBuffer* buffer) const {
    int count = 1 + mCount;
    // Count and ids lie one after another.
    buffer->Write(this, count);
    return 0;
}

void CCat::Initialize() {
    CLogManager* const manager = CLogManager::Instance();
    manager->SetCategoryName(kUltraVerbose, "Ultra Verbose");
    manager->SetCategoryName(kVerbose, "Verbose");
    manager->SetCategoryName(kChatty, "Chatty");
    manager->SetCategoryName(kInfo, "Info");
    manager->SetCategoryName(kWarning, "Warning");
    manager->SetCategoryName(kError, "Error");
    manager->SetCategoryName(kCatastrophy, "Catastrophy");
}

void CCat::Cleanup() {}

} // namespace HSL
