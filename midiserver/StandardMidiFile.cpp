#include "midiserver/StandardMidiFile.h"

#include "midiserver/InputError.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace MidiServer {

namespace {

constexpr std::string_view kHeaderType = "MThd";
constexpr std::string_view kTrackType = "MTrk";
constexpr std::uint64_t kLongestSession = 7ULL * 24 * 3600 * 1'000'000;
constexpr std::uint32_t kDefaultTempo = 500'000; // microseconds per quarter note
constexpr std::uint8_t kMetaEndOfTrack = 0x2F;
constexpr std::uint8_t kMetaTempo = 0x51;

// The bytes of the file with a position; every read is checked and fails with the offset.
class Cursor {
public:
    Cursor(std::string_view content, const std::string& name)
        : mContent(content), mEnd(content.size()), mName(name) {}

    // A cursor over the next `length` bytes, which this one then has behind it.
    Cursor Take(std::size_t length, std::string_view what) {
        Require(length, what);
        Cursor part(*this);
        part.mEnd = mOffset + length;
        mOffset += length;
        return part;
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

// What is to happen at a tick: a message (its bytes in the reader's block) or a change of tempo.
struct Event {
    std::uint64_t tick;
    std::uint32_t tempo; // 0: a message
    std::size_t offset;
    std::size_t length;
    std::size_t fileOffset;
};

class FileReader {
public:
    FileReader(std::string_view content, const std::string& name)
        : mFile(content, name), mName(name) {}

    RecordedSession Read() {
        const unsigned tracks = ReadHeader();
        unsigned found = 0;
        while (found < tracks) {
            if (mFile.AtEnd()) {
                mFile.FailAt(mFile.Offset(),
                             fmt::format("the file ends after {} of {} tracks", found, tracks));
            }
            const std::string_view type = mFile.Text(4, "chunk type");
            const std::uint32_t length = mFile.BigEndian(4, "chunk length");
            Cursor chunk = mFile.Take(length, type == kTrackType ? "track" : "chunk");
            if (type == kTrackType) {
                ReadTrack(chunk);
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

    void ReadTrack(Cursor& track) {
        std::uint64_t tick = 0;
        std::uint8_t runningStatus = 0;
        bool ended = false;
        std::size_t sysexStart = 0;
        mOpenSysex.clear();
        while (!ended) {
            if (track.AtEnd()) {
                track.FailAt(track.Offset(), "the track stops without its End of Track event");
            }
            tick += track.VariableLength("time of an event");
            const std::size_t start = track.Offset();
            std::uint8_t status = track.Byte("event");
            if (status == 0xFF) {
                ended = ReadMetaEvent(track, tick, start);
            } else if (status == 0xF0 || status == 0xF7) {
                if (status == 0xF0 && mOpenSysex.empty()) {
                    sysexStart = start;
                }
                ReadSysexEvent(track, tick, status, start, sysexStart);
            } else {
                CheckSysexEnded(track, sysexStart);
                ReadChannelEvent(track, tick, status, runningStatus, start);
            }
        }
        CheckSysexEnded(track, sysexStart);
    }

    void CheckSysexEnded(const Cursor& track, std::size_t start) const {
        if (!mOpenSysex.empty()) {
            track.FailAt(start, "the System Exclusive message that starts here is not ended");
        }
    }

    bool ReadMetaEvent(Cursor& track, std::uint64_t tick, std::size_t start) {
        const std::uint8_t type = track.Byte("meta event");
        const std::uint32_t length = track.VariableLength("length of a meta event");
        const std::span<const std::uint8_t> data = track.Bytes(length, "meta event");
        if (type == kMetaTempo) {
            if (length != 3) {
                track.FailAt(start, fmt::format("a tempo of {} bytes, 3 are due", length));
            }
            const std::uint32_t tempo = static_cast<std::uint32_t>(data[0]) << 16 |
                                        static_cast<std::uint32_t>(data[1]) << 8 | data[2];
            if (tempo == 0) {
                track.FailAt(start, "a tempo of 0 microseconds per quarter note");
            }
            mEvents.push_back({tick, tempo, 0, 0, start});
        }
        return type == kMetaEndOfTrack;
    }

    void ReadSysexEvent(Cursor& track, std::uint64_t tick, std::uint8_t status, std::size_t start,
                        std::size_t sysexStart) {
        const std::uint32_t length = track.VariableLength("length of a System Exclusive event");
        const std::span<const std::uint8_t> data = track.Bytes(length, "System Exclusive event");
        if (status == 0xF0) {
            CheckSysexEnded(track, sysexStart);
            mOpenSysex.push_back(0xF0);
        } else if (mOpenSysex.empty()) {
            if (!data.empty()) {
                AddMessage(tick, data, start);
            }
            return;
        }
        mOpenSysex.insert(mOpenSysex.end(), data.begin(), data.end());
        if (mOpenSysex.back() == 0xF7) {
            CheckSysexData(track, start, data);
            AddMessage(tick, mOpenSysex, start);
            mOpenSysex.clear();
        } else {
            CheckSysexData(track, start, data);
        }
    }

    static void CheckSysexData(const Cursor& track, std::size_t start,
                               std::span<const std::uint8_t> data) {
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (data[i] >= 0x80 && !(data[i] == 0xF7 && i + 1 == data.size())) {
                track.FailAt(start,
                             fmt::format("{:02X} inside a System Exclusive message", data[i]));
            }
        }
    }

    // Meta and System Exclusive events are said to cancel running status, but files that carry on
    // with it are common and mean what they seem to: it is kept.
    void ReadChannelEvent(Cursor& track, std::uint64_t tick, std::uint8_t status,
                          std::uint8_t& runningStatus, std::size_t start) {
        std::uint8_t message[3];
        std::size_t length = 0;
        if (status >= 0xF0) {
            track.FailAt(start, fmt::format("{:02X} is no event of a MIDI file", status));
        }
        if (status >= 0x80) {
            runningStatus = status;
            message[length++] = status;
        } else {
            if (runningStatus == 0) {
                track.FailAt(start, fmt::format("the data byte {:02X} without a status", status));
            }
            message[length++] = runningStatus;
            message[length++] = status;
        }
        const std::size_t due = (runningStatus & 0xE0) == 0xC0 ? 2 : 3;
        while (length < due) {
            const std::size_t offset = track.Offset();
            const std::uint8_t byte = track.Byte("channel message");
            if (byte >= 0x80) {
                track.FailAt(offset,
                             fmt::format("{:02X} stands where a data byte below 80 is due", byte));
            }
            message[length++] = byte;
        }
        AddMessage(tick, std::span(message, length), start);
    }

    void AddMessage(std::uint64_t tick, std::span<const std::uint8_t> bytes, std::size_t start) {
        mEvents.push_back({tick, 0, mBytes.size(), bytes.size(), start});
        mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
    }

    RecordedSession Merge() {
        // The tracks were read one after the other, so a stable sort keeps their order at a tick.
        std::stable_sort(mEvents.begin(), mEvents.end(),
                         [](const Event& a, const Event& b) { return a.tick < b.tick; });
        RecordedSession session;
        std::uint64_t tick = 0;
        // Whole microseconds and the rest in units of 1/mTicksPerBeat, so that no rounding adds up.
        std::uint64_t microseconds = 0;
        std::uint64_t rest = 0;
        for (const Event& event : mEvents) {
            const std::uint64_t ticks = event.tick - tick;
            tick = event.tick;
            const std::uint64_t most =
                (std::numeric_limits<std::uint64_t>::max() - rest) / mMicrosecondsNumerator;
            const std::uint64_t scaled = ticks > most ? 0 : ticks * mMicrosecondsNumerator + rest;
            microseconds += scaled / mTicksPerBeat;
            rest = scaled % mTicksPerBeat;
            if (ticks > most || microseconds > kLongestSession) {
                mFile.FailAt(event.fileOffset, "this event is more than 7 days after the start");
            }
            if (event.tempo == 0) {
                session.Append(microseconds, std::span(mBytes).subspan(event.offset, event.length));
            } else if (!mFixedTime) {
                mMicrosecondsNumerator = event.tempo;
            }
        }
        if (session.MessageCount() == 0) {
            throw InputError(fmt::format("{}: holds no MIDI message", mName));
        }
        return session;
    }

    Cursor mFile;
    const std::string& mName;
    // A tick is mMicrosecondsNumerator / mTicksPerBeat microseconds; with an SMPTE division "beat"
    // is the division's second and the tempo has no say.
    bool mFixedTime = false;
    std::uint64_t mMicrosecondsNumerator = kDefaultTempo;
    std::uint64_t mTicksPerBeat = 0;
    std::vector<std::uint8_t> mOpenSysex;
    std::vector<std::uint8_t> mBytes;
    std::vector<Event> mEvents;
};

} // namespace

bool IsStandardMidiFile(std::string_view content) {
    return content.starts_with(kHeaderType);
}

RecordedSession ReadStandardMidiFile(std::string_view content, const std::string& name) {
    return FileReader(content, name).Read();
}

} // namespace MidiServer
