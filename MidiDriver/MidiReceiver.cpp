#include "MidiDriver/MidiReceiver.h"

MidiReceiver::MidiReceiver(bool honourPortSelect) : MIDIParser(honourPortSelect) {}

void MidiReceiver::EmitPacketList(unsigned char /*port*/, const MIDIPacketList& list) {
    if (mEndpoint != MIDIEndpointRef{}) {
        MIDIReceived(mEndpoint, &list);
    }
}
