#pragma once

#include "MidiDriver/MidiParser.h"

// A parser that emits every message on a CoreMIDI source, or nowhere while its endpoint is null. It
// is private to the plug-in.
//
//     MidiReceiver receiver(false);
//     receiver.SetEndpoint(source);
//     receiver.FeedBytes(0, bytes, count);
class MidiReceiver final : public MIDIParser {
public:
    explicit MidiReceiver(bool honourPortSelect);

    void SetEndpoint(MIDIEndpointRef endpoint) { mEndpoint = endpoint; }

    // Does not use the port number: the endpoint stands for all ports.
    void EmitPacketList(unsigned char port, const MIDIPacketList& list) override;

private:
    MIDIEndpointRef mEndpoint{};
};
