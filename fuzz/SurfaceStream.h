// Arbitrary bytes as what a DAW sends to a port, for the fuzz targets of both decoders.
#pragma once

#include "fuzz/Require.h"
#include "midiserver/midi/MessageAssembler.h"
#include "surface/event/EventText.h"
#include "surface/model/SurfacePort.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

inline bool IsPrintableText(const std::string& text) {
    return std::all_of(text.begin(), text.end(), Surface::IsPrintable);
}

// Requires that the model stays within its ranges.
inline void RequireWithinRanges(const Surface::SurfaceModel& model) {
    using namespace Surface;
    for (std::size_t line = 0; line < SurfaceModel::kLines; ++line) {
        Require(model.Line(line).size() == kStripCount * SurfaceModel::kStripCells &&
                    IsPrintableText(model.Line(line)),
                "a line has its cells");
        Require(IsPrintableText(std::string(model.MainLine(line))), "so has the main display");
    }
    Require(IsPrintableText(model.TimecodeText()) && IsPrintableText(model.AssignmentText()),
            "digits are printable");
    for (std::size_t strip = 0; strip < kStripCount; ++strip) {
        for (const MeterSide side : {MeterSide::kLeft, MeterSide::kRight}) {
            Require(model.MeterOf(strip, side).level <= kHighestMeter, "meters have their range");
        }
    }
    for (std::size_t fader = 0; fader < kFaderCount; ++fader) {
        Require(model.Fader(fader) <= kHighestFader, "faders have their range");
    }
    for (std::size_t pot = 0; pot < kPotCount; ++pot) {
        Require(model.Ring(pot).value <= kRingLights, "rings have their range");
    }
}

// Feeds the bytes as whole messages, and at the end all of them as one, which the decoders must
// stand too. The first byte is the time between two messages in milliseconds.
inline void FeedSurfacePort(MidiServer::Protocol protocol, std::span<const std::uint8_t> input) {
    using namespace Surface;
    if (input.empty()) {
        return;
    }
    const auto step = std::chrono::milliseconds(input[0]);
    const auto bytes = input.subspan(1);
    SurfacePort port(protocol);
    SurfaceModel::Time now{0};
    std::uint64_t messages = 0;
    const auto receive = [&](std::span<const std::uint8_t> message) {
        // As long as the message: what the decoders read beyond it is found.
        const std::vector<std::uint8_t> copy(message.begin(), message.end());
        now += step;
        ++messages;
        const SurfaceEvent event = port.Receive(copy, now);
        const std::string text = EventText(event);
        Require(!text.empty() && IsPrintableText(text), "an event is one printable line");
        if (const auto answer = port.AnswerTo(event, "0.1.0")) {
            Require(answer->front() == 0xF0 && answer->back() == 0xF7, "an answer is whole");
        }
    };
    MidiServer::MessageAssembler assembler;
    assembler.Add(bytes, receive);
    receive(bytes);
    Require(port.Counts().messages == messages, "every message is counted");
    RequireWithinRanges(port.Model());
    port.Model().Advance(now + std::chrono::hours(1));
    RequireWithinRanges(port.Model());
}
