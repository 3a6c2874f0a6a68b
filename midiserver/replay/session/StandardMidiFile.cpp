#include "midiserver/replay/session/StandardMidiFile.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/midi/MidiMessage.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <limits>

namespace MidiServer {

namespace {

constexpr std::string_view kHeaderType = "MThd";
constexpr std::string_view kTrackType = "MTrk";
constexpr std::uint64_t kLongestSession = 7ULL * 24 * 3600 * 1'000'000;
constexpr std::uint32_t kDefaultTempo = 500'000; // microseconds per quarter note
constexpr std::uint8_t kMetaEndOfTrack = 0x2F;
constexpr std::uint8_t kMetaTempo = 0x51;

// A cursor is a position in the file's bytes. It checks every read, and a read that fails names the
// offset.
class Cursor {
public:
    Cursor(std::string_view content, const std::string& name)
        : mContent(content), mEnd(content.size()), mName(name) {}

    // Returns a cursor over the next `length` bytes, and moves this one behind them.
    Cursor Take(std::size_t length, std::string_view what) {
        Require(length, what);
        Cursor part(*this);
        part.mEnd = mOffset + length;
        mOffset += length;
        return part;
    }

    // Returns a cursor at another place with the same end.
    Cursor At(std::size_t offset) const {
        Cursor other(*this);
        other.mOffset = offset;
        return other;
    }

    std::size_t Offset() const { return mOffset; }
    bool AtEnd() const { return mOffset == mEnd; }
    std::size_t Left() const { return mEnd - mOffset; }

    std::uint8_t Byte(std::string_view what) {
        Require(1, what);
        return static_cast<std::uint8_t>(mContent[mOffset++]);
    }

    std::uint32_t BigEndian(unsigned bytes, std::string_view what) {
        Require(bytes, what);
        std::uint32_t value = 0;
        for (unsigned i = 0; i < bytes; ++i) {
            value = value << 8 | static_cast<std::uint8_t>(mContent[mOffset++]);
        }
        return value;
    }

    std::uint32_t VariableLength(std::string_view what) {
        const std::size_t start = mOffset;
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            const std::uint8_t byte = Byte(what);
            value = value << 7 | (byte & 0x7FU);
            if (byte < 0x80) {
                return value;
            }
        }
        FailAt(start, fmt::format("the {} is longer than 4 bytes", what));
    }

    std::span<const std::uint8_t> Bytes(std::size_t length, std::string_view what) {
        Require(length, what);
        const auto* first = reinterpret_cast<const std::uint8_t*>(mContent.data()) + mOffset;
        mOffset += length;
        return {first, length};
    }

    std::string_view Text(std::size_t length, std::string_view what) {
        Require(length, what);
        mOffset += length;
        return mContent.substr(mOffset - length, length);
    }

    [[noreturn]] void FailAt(std::size_t offset, const std::string& why) const {
        throw InputError(fmt::format("{}: byte {}: {}", mName, offset, why));
    }

private:
    void Require(std::size_t length, std::string_view what) const {
        if (length > Left()) {
            FailAt(mOffset, fmt::format("cut off in the {}: {} bytes are due, {} are left", what,
                                        length, Left()));
        }
    }

    std::string_view mContent;
    std::size_t mOffset = 0;
    std::size_t mEnd;
    const std::string& mName;
};

// What a track does next.
struct Event {
    enum class Kind { kNothing, kTempo, kChannel, kSysex, kEscape, kEndOfTrack };

    Kind kind = Kind::kNothing;
    std::uint32_t tempo = 0;
    std::array<std::uint8_t, 3> bytes{}; // of a channel message
    std::size_t length = 0;              // of the channel message or of the whole SysEx message
    std::span<const std::uint8_t> escaped;
};

// Where the reading of a track stands: at an event, its time already read. The file may consist of
// very many short tracks, so that each must be small.
struct TrackPosition {
    std::uint64_t tick = 0;        // of that event
    std::uint32_t offset = 0;      // of that event in the file
    std::uint32_t sysexStart = 0;  // the event with which a System Exclusive message starts
    std::uint32_t sysexLength = 0; // of what is read of it; 0: none is open
    std::uint16_t track = 0;
    std::uint8_t runningStatus = 0;
};

// Tells which of two tracks comes later: by time, and then by their place in the file.
bool IsLater(const TrackPosition& a, const TrackPosition& b) {
    return a.tick != b.tick ? a.tick > b.tick : a.track > b.track;
}

class FileReader {
public:
    FileReader(std::string_view content, const std::string& name)
        : mFile(content, name), mName(name) {}

    RecordedSession Read() {
        const unsigned tracks = ReadHeader();
        std::uint16_t found = 0;
        while (found < tracks) {
            if (mFile.AtEnd()) {
                mFile.FailAt(mFile.Offset(),
                             fmt::format("the file ends after {} of {} tracks", found, tracks));
            }
            const std::string_view type = mFile.Text(4, "chunk type");
            const std::uint32_t length = mFile.BigEndian(4, "chunk length");
            Cursor chunk = mFile.Take(length, type == kTrackType ? "track" : "chunk");
            if (type == kTrackType) {
                CheckTrack(chunk, found);
                ++found;
            }
        }
        return Merge();
    }

private:
    unsigned ReadHeader() {
        if (mFile.Text(4, "header") != kHeaderType) {
            mFile.FailAt(0, "not a Standard MIDI File: it does not start with MThd");
        }
        const std::uint32_t length = mFile.BigEndian(4, "header");
        if (length < 6) {
            mFile.FailAt(4, fmt::format("the header has {} bytes, at least 6 are due", length));
        }
        Cursor header = mFile.Take(length, "header");
        const std::size_t formatOffset = header.Offset();
        const std::uint32_t format = header.BigEndian(2, "header");
        const std::uint32_t tracks = header.BigEndian(2, "header");
        const std::size_t divisionOffset = header.Offset();
        const std::uint32_t division = header.BigEndian(2, "header");
        if (format > 1) {
            mFile.FailAt(formatOffset,
                         fmt::format("format {} is not supported, only 0 and 1 are", format));
        }
        if (tracks == 0 || (format == 0 && tracks != 1)) {
            mFile.FailAt(formatOffset + 2,
                         fmt::format("a file of format {} with {} tracks", format, tracks));
        }
        SetDivision(division, divisionOffset);
        return tracks;
    }

    void SetDivision(std::uint32_t division, std::size_t offset) {
        if ((division & 0x8000) == 0) {
            mTicksPerBeat = division;
            if (division == 0) {
                mFile.FailAt(offset, "the division is 0 ticks per quarter note");
            }
            return;
        }
        const std::uint32_t framesPerSecond = 256 - (division >> 8);
        const std::uint32_t ticksPerFrame = division & 0xFF;
        if (ticksPerFrame == 0 || (framesPerSecond != 24 && framesPerSecond != 25 &&
                                   framesPerSecond != 29 && framesPerSecond != 30)) {
            mFile.FailAt(offset, fmt::format("the division of {} frames a second with {} ticks "
                                             "each is not defined",
                                             framesPerSecond, ticksPerFrame));
        }
        mFixedTime = true;
        // 29 stands for 30 drop frame, which is 30000 frames in 1001 seconds.
        mMicrosecondsNumerator = framesPerSecond == 29 ? 1'001'000'000 : 1'000'000;
        const std::uint64_t frames = framesPerSecond == 29 ? 30'000 : framesPerSecond;
        mTicksPerBeat = frames * ticksPerFrame;
    }

    // Reads a track to its end, so that a damaged one is known before anything else is made of it.
    void CheckTrack(Cursor chunk, std::uint16_t track) {
        TrackPosition position;
        position.track = track;
        ReadTime(chunk, position);
        mTracks.push_back(position);
        while (ReadEvent(chunk, position).kind != Event::Kind::kEndOfTrack) {
        }
    }

    static void ReadTime(Cursor& cursor, TrackPosition& position) {
        if (cursor.AtEnd()) {
            cursor.FailAt(cursor.Offset(), "the track stops without its End of Track event");
        }
        position.tick += cursor.VariableLength("time of an event");
        position.offset = static_cast<std::uint32_t>(cursor.Offset());
    }

    // Reads the event at which the cursor and the position stand, and the next one's time.
    static Event ReadEvent(Cursor& cursor, TrackPosition& position) {
        Event event;
        const std::uint8_t status = cursor.Byte("event");
        if (status == 0xFF) {
            event = ReadMetaEvent(cursor, position);
        } else if (status == kStartOfExclusive || status == kEndOfExclusive) {
            event = ReadSysexEvent(cursor, position, status);
        } else {
            CheckSysexEnded(cursor, position);
            event = ReadChannelEvent(cursor, position, status);
        }
        if (event.kind != Event::Kind::kEndOfTrack) {
            ReadTime(cursor, position);
        }
        return event;
    }

    static void CheckSysexEnded(const Cursor& cursor, const TrackPosition& position) {
        if (position.sysexLength != 0) {
            cursor.FailAt(position.sysexStart,
                          "the System Exclusive message that starts here is not ended");
        }
    }

    static Event ReadMetaEvent(Cursor& cursor, const TrackPosition& position) {
        const std::uint8_t type = cursor.Byte("meta event");
        const std::uint32_t length = cursor.VariableLength("length of a meta event");
        const std::span<const std::uint8_t> data = cursor.Bytes(length, "meta event");
        Event event;
        if (type == kMetaEndOfTrack) {
            CheckSysexEnded(cursor, position);
            event.kind = Event::Kind::kEndOfTrack;
        } else if (type == kMetaTempo) {
            if (length != 3) {
                cursor.FailAt(position.offset,
                              fmt::format("a tempo of {} bytes, 3 are due", length));
            }
            event.kind = Event::Kind::kTempo;
            event.tempo = static_cast<std::uint32_t>(data[0]) << 16 |
                          static_cast<std::uint32_t>(data[1]) << 8 | data[2];
            if (event.tempo == 0) {
                cursor.FailAt(position.offset, "a tempo of 0 microseconds per quarter note");
            }
        }
        return event;
    }

    static Event ReadSysexEvent(Cursor& cursor, TrackPosition& position, std::uint8_t status) {
        const std::uint32_t length = cursor.VariableLength("length of a System Exclusive event");
        const std::size_t start = cursor.Offset();
        const std::span<const std::uint8_t> data = cursor.Bytes(length, "System Exclusive event");
        Event event;
        if (status == kStartOfExclusive) {
            CheckSysexEnded(cursor, position);
            position.sysexStart = position.offset;
            position.sysexLength = 1;
        } else if (position.sysexLength == 0) {
            CheckEscape(cursor, start, data);
            event.kind = data.empty() ? Event::Kind::kNothing : Event::Kind::kEscape;
            event.escaped = data;
            return event;
        }
        const bool ends = !data.empty() && data.back() == kEndOfExclusive;
        for (std::size_t i = 0; i < data.size() - (ends ? 1 : 0); ++i) {
            if (!IsDataByte(data[i])) {
                cursor.FailAt(start + i,
                              fmt::format("{:02X} inside a System Exclusive message", data[i]));
            }
        }
        position.sysexLength += length;
        if (ends) {
            event.kind = Event::Kind::kSysex;
            event.length = position.sysexLength;
            position.sysexLength = 0;
        }
        return event;
    }

    static void CheckEscape(const Cursor& cursor, std::size_t start,
                            std::span<const std::uint8_t> data) {
        for (std::size_t at = 0; at < data.size();) {
            at += EscapedMessageLength(cursor, start + at, data.subspan(at));
        }
    }

    // How long the message is with which the bytes start, which lie at `start` in the file.
    static std::size_t EscapedMessageLength(const Cursor& cursor, std::size_t start,
                                            std::span<const std::uint8_t> bytes) {
        const std::uint8_t status = bytes.front();
        if (ContinuesExclusive(bytes)) {
            cursor.FailAt(start,
                          fmt::format("{:02X} stands in an escape where a message starts", status));
        }
        const auto end = static_cast<std::size_t>(
            std::find_if_not(bytes.begin() + 1, bytes.end(), IsDataByte) - bytes.begin());
        if (const std::optional<std::size_t> due = MidiMessageLength(status)) {
            if (end < *due) {
                cursor.FailAt(start, fmt::format("a message with status {:02X} has {} bytes, in "
                                                 "this escape it has {}",
                                                 status, *due, end));
            }
            return *due;
        }
        if (end == bytes.size() || bytes[end] != kEndOfExclusive) {
            cursor.FailAt(start, "the System Exclusive message that starts here is not ended in "
                                 "its escape");
        }
        return end + 1;
    }

    // Meta and System Exclusive events are said to cancel running status, but files that carry on
    // with it are common and mean what they seem to: it is kept.
    static Event ReadChannelEvent(Cursor& cursor, TrackPosition& position, std::uint8_t status) {
        Event event;
        event.kind = Event::Kind::kChannel;
        if (status >= 0xF0) {
            cursor.FailAt(position.offset,
                          fmt::format("{:02X} is no event of a MIDI file", status));
        }
        if (status >= 0x80) {
            position.runningStatus = status;
        } else if (position.runningStatus == 0) {
            cursor.FailAt(position.offset,
                          fmt::format("the data byte {:02X} without a status", status));
        }
        event.bytes[event.length++] = position.runningStatus;
        if (status < 0x80) {
            event.bytes[event.length++] = status;
        }
        const std::size_t due = *MidiMessageLength(position.runningStatus);
        while (event.length < due) {
            const std::size_t offset = cursor.Offset();
            const std::uint8_t byte = cursor.Byte("channel message");
            if (byte >= 0x80) {
                cursor.FailAt(offset,
                              fmt::format("{:02X} stands where a data byte below 80 is due", byte));
            }
            event.bytes[event.length++] = byte;
        }
        return event;
    }

    // Reads the tracks once more, side by side in order of time. They were found to be sound.
    RecordedSession Merge() {
        RecordedSession session;
        std::make_heap(mTracks.begin(), mTracks.end(), IsLater);
        while (!mTracks.empty()) {
            std::pop_heap(mTracks.begin(), mTracks.end(), IsLater);
            TrackPosition& track = mTracks.back();
            const TrackPosition at = track;
            Cursor cursor = mFile.At(at.offset);
            const Event event = ReadEvent(cursor, track);
            if (event.kind == Event::Kind::kEndOfTrack) {
                mTracks.pop_back();
                continue;
            }
            if (event.kind != Event::Kind::kNothing) {
                AdvanceTo(at);
                Perform(event, track, session);
            }
            std::push_heap(mTracks.begin(), mTracks.end(), IsLater);
        }
        if (session.MessageCount() == 0) {
            throw InputError(fmt::format("{}: holds no MIDI message", mName));
        }
        return session;
    }

    void AdvanceTo(const TrackPosition& position) {
        const std::uint64_t ticks = position.tick - mTick;
        mTick = position.tick;
        const std::uint64_t most =
            (std::numeric_limits<std::uint64_t>::max() - mRest) / mMicrosecondsNumerator;
        const std::uint64_t scaled = ticks > most ? 0 : ticks * mMicrosecondsNumerator + mRest;
        mMicroseconds += scaled / mTicksPerBeat;
        mRest = scaled % mTicksPerBeat;
        if (ticks > most || mMicroseconds > kLongestSession) {
            mFile.FailAt(position.offset, "this event is more than 7 days after the start");
        }
    }

    void Perform(const Event& event, const TrackPosition& track, RecordedSession& session) {
        switch (event.kind) {
        case Event::Kind::kTempo:
            if (!mFixedTime) {
                mMicrosecondsNumerator = event.tempo;
            }
            break;
        case Event::Kind::kChannel:
            session.Append(mMicroseconds, std::span(event.bytes).first(event.length));
            break;
        case Event::Kind::kSysex:
            JoinSysex(track.sysexStart, session.Append(mMicroseconds, event.length));
            break;
        case Event::Kind::kEscape:
            for (std::span<const std::uint8_t> rest = event.escaped; !rest.empty();) {
                const std::size_t length = EscapedMessageLength(mFile, 0, rest);
                session.Append(mMicroseconds, rest.first(length));
                rest = rest.subspan(length);
            }
            break;
        case Event::Kind::kNothing:
        case Event::Kind::kEndOfTrack:
            break;
        }
    }

    // Copies a message from the events over which it is split, the first of which is at `start`.
    void JoinSysex(std::size_t start, std::span<std::uint8_t> message) const {
        Cursor cursor = mFile.At(start);
        message.front() = kStartOfExclusive;
        for (std::size_t have = 1; have < message.size();) {
            if (cursor.Byte("event") == 0xFF) {
                cursor.Byte("meta event");
                cursor.Bytes(cursor.VariableLength("length of a meta event"), "meta event");
            } else {
                const std::span<const std::uint8_t> part =
                    cursor.Bytes(cursor.VariableLength("length of a System Exclusive event"),
                                 "System Exclusive event");
                std::copy(part.begin(), part.end(), message.begin() + static_cast<long>(have));
                have += part.size();
            }
            if (have < message.size()) {
                cursor.VariableLength("time of an event");
            }
        }
    }

    Cursor mFile;
    const std::string& mName;
    std::deque<TrackPosition> mTracks; // in pieces, so that it grows without a copy

    // A tick is mMicrosecondsNumerator / mTicksPerBeat microseconds; with an SMPTE division "beat"
    // is the division's second and the tempo has no say.
    bool mFixedTime = false;
    std::uint64_t mMicrosecondsNumerator = kDefaultTempo;
    std::uint64_t mTicksPerBeat = 0;
    // The place in time of the merge: whole microseconds, and the rest in units of 1/mTicksPerBeat,
    // so that no rounding adds up.
    std::uint64_t mTick = 0;
    std::uint64_t mMicroseconds = 0;
    std::uint64_t mRest = 0;
};

} // namespace

bool IsStandardMidiFile(std::string_view content) {
    return content.starts_with(kHeaderType);
}

RecordedSession ReadStandardMidiFile(std::string_view content, const std::string& name) {
    if (content.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw InputError(fmt::format("{}: larger than 4 GiB", name));
    }
    return FileReader(content, name).Read();
}

} // namespace MidiServer
