// Measures how long a DAW waits for the answer to its ping: from entering the driver's Send to
// MIDIReceived on the port's own source. For comparison it also times any call through the same
// table, and the reading of the clock itself.

#include "MidiDriver/MacSonaretDefs.h"
#include "MidiDriver/MidiDriverPlugin.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Pings per port: 3 bytes each, so that no port comes up to its 14336 bytes in one second.
constexpr unsigned int kPorts = 32;
constexpr unsigned int kPingsPerPort = 4000;

// Written in MIDIReceived on the thread that calls Send.
std::atomic<MIDIEndpointRef> sPingedSource{0};
Clock::time_point sAnswered;
unsigned int sAnswers = 0;

std::atomic<std::uint64_t> sAllocations{0};

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "PingBench: %s\n", what);
    std::exit(1);
}

void PrintRow(const char* name, std::vector<std::int64_t>& nanoseconds) {
    std::sort(nanoseconds.begin(), nanoseconds.end());
    const auto at = [&nanoseconds](double share) {
        return nanoseconds[static_cast<std::size_t>(share *
                                                    static_cast<double>(nanoseconds.size() - 1))];
    };
    std::printf("%-44s %8zu %8lld %8lld %8lld\n", name, nanoseconds.size(),
                static_cast<long long>(at(0.5)), static_cast<long long>(at(0.99)),
                static_cast<long long>(at(0.999)));
}

template <typename Call>
std::vector<std::int64_t> TimeCalls(std::size_t count, Call call) {
    std::vector<std::int64_t> nanoseconds;
    nanoseconds.reserve(count);
    for (std::size_t i = 0; i < count; i++) {
        const Clock::time_point start = Clock::now();
        call();
        nanoseconds.push_back((Clock::now() - start).count());
    }
    return nanoseconds;
}

void ConfigureHUIOnAllPorts() {
    CFMutableDictionaryRef entry = CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(entry, MacSonaretDefs::kProtocolKey, CFSTR("HUI"));
    CFMutableArrayRef applications = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    for (CFStringRef range : {CFSTR("1-32"), CFSTR("29-32")}) {
        CFDictionarySetValue(entry, MacSonaretDefs::kMIDIPortKey, range);
        CFDictionaryRef copy = CFDictionaryCreateCopy(nullptr, entry);
        CFArrayAppendValue(applications, copy);
        CFRelease(copy);
    }
    CFPreferencesSetValue(MacSonaretDefs::kAppInfoArrayKey, applications,
                          MacSonaretDefs::kPrefsIdentifier, kCFPreferencesAnyUser,
                          kCFPreferencesCurrentHost);
    CFRelease(applications);
    CFRelease(entry);
}

MIDIDriverRef StartDriver() {
    ConfigureHUIOnAllPorts();
    if (MIDIServerHostOpenSetup(nullptr) != noErr) {
        Fail("the MIDI setup cannot be opened");
    }
    const auto driver = static_cast<MIDIDriverRef>(MIDIPluginFactory(nullptr, kMIDIDriverTypeID));
    if (driver == nullptr || MIDIServerHostAttachDriver(driver, CFSTR("PingBench")) != noErr ||
        (*driver)->Start(driver, 0) != noErr) {
        Fail("the driver does not start");
    }
    return driver;
}

} // namespace

// Counts every allocation of the driver while pings are timed.
void* operator new(std::size_t size) {
    sAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    sAllocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size);
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

// Stands in for the platform's function, where the driver's part of the way ends.
OSStatus MIDIReceived(MIDIEndpointRef src, const MIDIPacketList* /*pktlist*/) {
    if (src == sPingedSource.load(std::memory_order_relaxed)) {
        sAnswered = Clock::now();
        sAnswers++;
    }
    return noErr;
}

int main() {
    char folder[] = "/tmp/quorvel-bench-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        Fail("no folder could be made in /tmp");
    }
    setenv("QUORVEL_PREFERENCES_DIR", folder, 1);
    setenv("QUORVEL_RUNTIME_DIR", folder, 1);
    const MIDIDriverRef driver = StartDriver();
    const MIDIDeviceRef device = MIDIGetDevice(0);

    MIDIPacketList ping;
    ping.numPackets = 1;
    ping.packet[0].timeStamp = 0;
    ping.packet[0].length = 3;
    ping.packet[0].data[0] = 0x90;
    ping.packet[0].data[1] = 0x00;
    ping.packet[0].data[2] = 0x00;

    constexpr std::size_t kPings = std::size_t{kPorts} * kPingsPerPort;
    std::vector<std::int64_t> answers;
    answers.reserve(kPings);
    std::vector<std::int64_t> sends;
    sends.reserve(kPings);
    const std::uint64_t allocationsBefore = sAllocations;
    for (unsigned int i = 0; i < kPings; i++) {
        const unsigned int port = i % kPorts;
        sPingedSource = MIDIEntityGetSource(MIDIDeviceGetEntity(device, port), 0);
        const Clock::time_point entered = Clock::now();
        (*driver)->Send(driver, &ping, driver, reinterpret_cast<void*>(std::uintptr_t{port}));
        const Clock::time_point returned = Clock::now();
        answers.push_back((sAnswered - entered).count());
        sends.push_back((returned - entered).count());
    }
    const std::uint64_t allocations = sAllocations - allocationsBefore;
    if (sAnswers != kPings) {
        Fail("a ping was not answered");
    }
    std::vector<std::int64_t> empty =
        TimeCalls(kPings, [driver] { (*driver)->Flush(driver, 0, nullptr, nullptr); });
    std::vector<std::int64_t> clock = TimeCalls(kPings, [] {});

    std::printf("%-44s %8s %8s %8s %8s\n", "nanoseconds", "calls", "p50", "p99", "p99.9");
    PrintRow("ping: entering Send to MIDIReceived", answers);
    PrintRow("ping: whole Send, with queueing it", sends);
    PrintRow("floor: empty call through the table (Flush)", empty);
    PrintRow("floor: the clock alone", clock);
    std::printf("allocations per ping: %.3f (the reply buffer is one)\n",
                static_cast<double>(allocations) / static_cast<double>(kPings));

    (*driver)->Stop(driver);
    MIDIServerHostDetachDriver(driver);
    (*driver)->Release(driver);
    std::filesystem::remove_all(folder);
    return 0;
}
