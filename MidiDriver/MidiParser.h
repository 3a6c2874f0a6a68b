#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>

// Turns a raw MIDI 1.0 byte stream into packet lists, one complete message per list.
//
// The stream may be cut anywhere: an unfinished message, the running status and the port number are
// kept between calls of FeedBytes. A System Exclusive message is handed on in chunks of at most 257
// bytes; the later chunks have no leading 0xF0. Real-time messages are handed on at once, even from
// the middle of another message.
//
// The parser has neither a thread nor a lock of its own; one thread at a time may use an object. It
// never allocates or blocks, unless EmitPacketList does.
//
//     class Printer : public MIDIParser {
//         using MIDIParser::MIDIParser;
//         void EmitPacketList(unsigned char port, const MIDIPacketList& list) override;
//     };
//     Printer printer(false);
//     printer.FeedBytes(0, bytes, 3); // 90 3C 40 calls EmitPacketList once
class MIDIParser {
public:
    // With `honourPortSelect` the status 0xF5 starts a two-byte message that selects the port
    // number for EmitPacketList. Otherwise 0xF5 has no data bytes of its own.
    explicit MIDIParser(bool honourPortSelect);
    MIDIParser(const MIDIParser&) = delete;
    MIDIParser& operator=(const MIDIParser&) = delete;
    virtual ~MIDIParser();

    // Called for every complete message and every System Exclusive chunk, on the thread that feeds
    // the bytes. `list` holds one packet and is valid during the call only. `port` is 0 for
    // real-time messages; for others it is the number that was selected last, or 0 before the first
    // selection. The function must not feed this parser.
    virtual void EmitPacketList(unsigned char port, const MIDIPacketList& list) = 0;

    // Parses `count` bytes. A null pointer or a count below 1 feeds nothing.
    //
    // `timestamp`, in host ticks, becomes the time stamp of every message and every System
    // Exclusive chunk whose first byte comes in this call. There is one exception: if a chunk was
    // just full when the closing 0xF7 came, the 0xF7 makes a chunk of its own, which keeps the time
    // stamp of the chunk before it.
    //
    // After the 0xF7 that ends a System Exclusive message, the rest of the call's bytes is dropped.
    // This is intended: the sources that the parser was made for deliver such a message by itself.
    void FeedBytes(unsigned long long timestamp, unsigned char* bytes, int count);

private:
    static constexpr int kNothingPending = 0;
    static constexpr int kInSystemExclusive = -1;
    static constexpr std::size_t kHeaderSize = 14; // packet count, time stamp, length
    static constexpr std::size_t kDataRoom = 258;
    static constexpr std::size_t kChunkSize = 257;

    MIDIPacketList& List();
    unsigned char* Data() { return mPacketList + kHeaderSize; }
    void Emit();
    void EmitRealTime(unsigned long long timestamp, unsigned char status);
    bool TakeStatus(unsigned long long timestamp, unsigned char status);
    const unsigned char* TakeWholeMessages(unsigned long long timestamp, const unsigned char* next,
                                           const unsigned char* end);
    const unsigned char* TakeData(unsigned long long timestamp, const unsigned char* next,
                                  const unsigned char* end);
    const unsigned char* TakeSystemExclusive(unsigned long long timestamp,
                                             const unsigned char* next, const unsigned char* end);

    UInt32 mHonourPortSelect;
    UInt8 mCurrentPort;
    UInt8 mRunningStatus; // 0x80 to 0xEF, or 0 when there is none
    SInt32 mBytesNeeded;  // data bytes that the message still lacks, or a constant from above
    // A MIDIPacketList of one packet. Kept as bytes because a chunk is one byte longer than the
    // data array that the platform's header declares.
    alignas(MIDIPacketList) unsigned char mPacketList[kHeaderSize + kDataRoom];
};
