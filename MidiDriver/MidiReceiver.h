#pragma once

#include "MidiDriver/MidiParser.h"

// A parser that puts every message on a CoreMIDI source. With a null endpoint it puts it nowhere.
// Private to the plug-in.
class MidiReceiver final : public MIDIParser {
public:
    explicit MidiReceiver(bool honourPortSelect);

    void SetEndpoint(MIDIEndpointRef endpoint) { mEndpoint = endpoint; }

    // The port number is not used: the endpoint stands for all of them.
    void EmitPacketList(unsigned char port, const MIDIPacketList& list) override;

private:
    MIDIEndpointRef mEndpoint{};
};
