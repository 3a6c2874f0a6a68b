#include "midiserver/replay/session/CaptureFile.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/midi/MidiMessage.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <vector>

namespace MidiServer {

namespace {

// The byte-order mark, which some editors put in front of what they save as UTF-8.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::uint64_t kLongestSession = 7ULL * 24 * 3600 * 1'000'000;

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// Takes the next word off the front of a line. Returns an empty one at the line's end.
std::string_view NextWord(std::string_view& line) {
    while (!line.empty() && IsBlank(line.front())) {
        line.remove_prefix(1);
    }
    std::size_t length = 0;
    while (length < line.size() && !IsBlank(line[length])) {
        ++length;
    }
    std::string_view word = line.substr(0, length);
    line.remove_prefix(length);
    return word;
}

// Returns a word of the file as it may stand in a one-line message: short and printable.
std::string Quoted(std::string_view word) {
    std::string text;
    for (char c : word.substr(0, 24)) {
        text += c >= ' ' && c <= '~' ? c : '?';
    }
    return "\"" + text + (word.size() > 24 ? "...\"" : "\"");
}

template <typename Integer>
bool ParseWhole(std::string_view word, Integer& value, int base) {
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    return error == std::errc() && end == word.data() + word.size();
}

class CaptureReader {
public:
    explicit CaptureReader(const std::string& name) : mName(name) {}

    void ReadLine(std::string_view line) {
        ++mLine;
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        line = line.substr(0, line.find('#'));
        std::string_view timeWord = NextWord(line);
        if (timeWord.empty()) {
            return;
        }
        std::uint64_t time = ReadTime(timeWord);
        mMessage.clear();
        for (std::string_view word = NextWord(line); !word.empty(); word = NextWord(line)) {
            std::uint8_t byte = 0;
            if (word.size() != 2 || !ParseWhole(word, byte, 16)) {
                Fail(fmt::format("{} is not a byte of two hexadecimal digits", Quoted(word)));
            }
            mMessage.push_back(byte);
        }
        CheckMessage();
        mSession.Append(time, mMessage);
    }

    RecordedSession Finish() {
        if (mSession.MessageCount() == 0) {
            throw InputError(fmt::format("{}: holds no MIDI message", mName));
        }
        return std::move(mSession);
    }

private:
    [[noreturn]] void Fail(const std::string& why) const {
        throw InputError(fmt::format("{}:{}: {}", mName, mLine, why));
    }

    std::uint64_t ReadTime(std::string_view word) {
        std::uint64_t time = 0;
        if (!ParseWhole(word, time, 10)) {
            Fail(fmt::format("not a line of a capture, which is \"<microseconds> <hex bytes>\": "
                             "{} is not a time",
                             Quoted(word)));
        }
        if (time > kLongestSession) {
            Fail(fmt::format("the time {} is more than 7 days", time));
        }
        // A recorder may stamp two cycles of the DAW out of order by some milliseconds; the file's
        // order is the order of arrival and stands.
        mTime = std::max(mTime, time);
        return mTime;
    }

    void CheckMessage() const {
        if (mMessage.empty()) {
            Fail("no bytes after the time: the file is cut off here or damaged");
        }
        const std::uint8_t status = mMessage.front();
        if (ContinuesExclusive(mMessage)) {
            Fail(fmt::format("the message starts with {:02X}, which is no status byte", status));
        }
        const std::optional<std::size_t> length = MidiMessageLength(status);
        if (length && mMessage.size() < *length) {
            Fail(fmt::format("a message with status {:02X} has {} bytes, here are {}: the file is "
                             "cut off here or damaged",
                             status, *length, mMessage.size()));
        }
        if (length && mMessage.size() > *length) {
            Fail(fmt::format("a message with status {:02X} has {} bytes, here are {}", status,
                             *length, mMessage.size()));
        }
        if (!length && (mMessage.size() < 2 || mMessage.back() != kEndOfExclusive)) {
            Fail("the System Exclusive message does not end with F7: the file is cut off here or "
                 "damaged");
        }
        const std::size_t dataEnd = length ? mMessage.size() : mMessage.size() - 1;
        for (std::size_t i = 1; i < dataEnd; ++i) {
            if (!IsDataByte(mMessage[i])) {
                Fail(fmt::format("{:02X} stands where a data byte below 80 is due", mMessage[i]));
            }
        }
    }

    const std::string& mName;
    std::size_t mLine = 0;
    std::uint64_t mTime = 0;
    std::vector<std::uint8_t> mMessage;
    RecordedSession mSession;
};

} // namespace

RecordedSession ReadCaptureFile(std::string_view content, const std::string& name) {
    if (content.starts_with(kByteOrderMark)) {
        content.remove_prefix(kByteOrderMark.size());
    }
    CaptureReader reader(name);
    while (!content.empty()) {
        const std::size_t end = content.find('\n');
        reader.ReadLine(content.substr(0, end));
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
    }
    return reader.Finish();
}

} // namespace MidiServer
