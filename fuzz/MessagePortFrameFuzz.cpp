// Arbitrary bytes in arbitrary cuts as a peer's message-port frames, to the reader of frames and
// over a connection to a local port. The input's first byte chooses between the two; then each byte
// up to 0xDF is the length of a cut that follows, and each above stands for a cut of 1 to 32 times
// 4096 equal bytes.
#include "platform/CoreFoundation/src/messageport/MessagePortFrame.h"

#include "fuzz/Require.h"
#include "platform/support/FileDescriptor.h"

#include <CoreFoundation/CFMessagePort.h>

#include <sanitizer/allocator_interface.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace {

using MessagePort::FrameKind;
using MessagePort::FrameReader;
using MessagePort::FrameWriter;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kHeader = 20;
constexpr std::size_t kLongest = 1048576;

std::uint32_t NumberAt(const Bytes& bytes, std::size_t at, std::size_t count) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < count; ++i) {
        number = number << 8 | bytes[at + i];
    }
    return number;
}

// A frame within a stream of bytes, as its description has it.
struct Frame {
    std::size_t at = 0;
    std::uint32_t kind = 0;
    std::uint32_t sequence = 0;
    std::uint32_t msgid = 0;
    std::uint32_t length = 0;

    std::size_t End() const { return at + kHeader + length; }
    Bytes Payload(const Bytes& stream) const {
        return {stream.begin() + static_cast<std::ptrdiff_t>(at + kHeader),
                stream.begin() + static_cast<std::ptrdiff_t>(End())};
    }
};

// The whole frames at the beginning of a stream, and whether what follows them cannot be one.
std::vector<Frame> FramesOf(const Bytes& stream, bool& isMalformed) {
    std::vector<Frame> frames;
    std::size_t at = 0;
    isMalformed = false;
    while (stream.size() - at >= kHeader) {
        const Frame frame{at, NumberAt(stream, at + 6, 2), NumberAt(stream, at + 8, 4),
                          NumberAt(stream, at + 12, 4), NumberAt(stream, at + 16, 4)};
        isMalformed = std::memcmp(stream.data() + at, "QMPF\0\1", 6) != 0 || frame.kind < 1 ||
                      frame.kind > 5 || frame.length > kLongest;
        if (isMalformed || stream.size() - at - kHeader < frame.length) {
            break;
        }
        frames.push_back(frame);
        at = frame.End();
    }
    return frames;
}

std::vector<Bytes> CutsOf(std::span<const std::uint8_t> input) {
    std::vector<Bytes> cuts;
    while (!input.empty()) {
        const std::size_t first = input.front();
        input = input.subspan(1);
        if (first > 0xDF) {
            cuts.emplace_back((first - 0xDF) * 4096, std::uint8_t{0x5A});
        } else {
            const auto cut = input.first(std::min(first, input.size()));
            cuts.emplace_back(cut.begin(), cut.end());
            input = input.subspan(cut.size());
        }
    }
    return cuts;
}

// What is kept of a message grows with what has arrived of it, whatever its header promises: at
// most twice that and the piece to be read next, beside what serves a connection.
void RequireMemoryFor(std::size_t arrived, std::size_t before) {
    constexpr std::size_t kChunk = 65536;
    const std::size_t now = __sanitizer_get_current_allocated_bytes();
    Require(now <= before + 2 * (arrived + kChunk) + kChunk, "memory grows with what has arrived");
}

// Sends as much as the socket takes. The rest of a cut follows when that has been read.
std::size_t SendSome(int socket, std::span<const std::uint8_t> bytes) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 ? 0 : static_cast<std::size_t>(sent);
}

// Reads all that is there and returns whether more may come.
bool ReceiveSome(int socket, Bytes& received) {
    static Bytes part(65536);
    while (true) {
        const ssize_t got = recv(socket, part.data(), part.size(), MSG_DONTWAIT);
        if (got <= 0) {
            return got < 0 && errno == EAGAIN;
        }
        received.insert(received.end(), part.begin(), part.begin() + got);
    }
}

// A frame that was read and is written again gives the same bytes.
void RequireRoundTrip(const MessagePort::FrameHeader& header, const Bytes& payload,
                      const Bytes& stream, const Frame& frame, int from, int to) {
    FrameWriter writer(header, payload);
    Bytes written;
    while (writer.Write(from) == FrameWriter::Result::kIncomplete) {
        ReceiveSome(to, written);
    }
    ReceiveSome(to, written);
    Require(written.size() == frame.End() - frame.at &&
                std::equal(written.begin(), written.end(),
                           stream.begin() + static_cast<std::ptrdiff_t>(frame.at)),
            "a frame is written as it was read");
}

void ReadFrames(const std::vector<Bytes>& cuts, const Bytes& stream) {
    bool isMalformed = false;
    const std::vector<Frame> frames = FramesOf(stream, isMalformed);
    std::array<int, 2> ends{};
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "a pair of sockets is made");
    const FileDescriptor peer(ends[0]);
    const FileDescriptor own(ends[1]);
    FrameReader reader;
    std::size_t next = 0;
    std::size_t arrived = 0;
    FrameReader::Result result = FrameReader::Result::kIncomplete;
    const auto readAll = [&](std::size_t before) {
        while ((result = reader.Read(own.Get())) == FrameReader::Result::kComplete) {
            Require(next < frames.size() && frames[next].End() <= arrived, "a frame is whole");
            const Frame& frame = frames[next++];
            const MessagePort::FrameHeader header = reader.Header();
            Require(static_cast<std::uint32_t>(header.kind) == frame.kind &&
                        header.sequence == frame.sequence &&
                        static_cast<std::uint32_t>(header.msgid) == frame.msgid &&
                        header.length == frame.length,
                    "a header is read as it lies");
            const Bytes payload = reader.TakePayload();
            Require(payload == frame.Payload(stream), "a payload is passed on as it is");
            RequireRoundTrip(header, payload, stream, frame, own.Get(), peer.Get());
        }
        RequireMemoryFor(arrived, before);
    };
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    for (const Bytes& cut : cuts) {
        std::size_t sent = 0;
        while (sent < cut.size() && result == FrameReader::Result::kIncomplete) {
            const std::size_t count = SendSome(peer.Get(), std::span(cut).subspan(sent));
            sent += count;
            arrived += count;
            readAll(before);
        }
    }
    Require(next == frames.size(), "every whole frame is read");
    Require((result == FrameReader::Result::kMalformed) == isMalformed,
            "what cannot be a frame is found so");
}

// A local port that this thread serves: it answers with the request, and with nothing to an empty
// one.
class ServedPort {
public:
    ServedPort() {
        std::string folder = "/tmp/MessagePortFrameFuzz-XXXXXX";
        Require(mkdtemp(folder.data()) != nullptr, "a folder is made");
        setenv("QUORVEL_RUNTIME_DIR", folder.c_str(), 1);
        mFolder = folder;
        mPort = CFMessagePortCreateLocal(nullptr, CFSTR("fuzz"), Answer, nullptr, nullptr);
        Require(mPort != nullptr, "a port is made");
        const CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, mPort, 0);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
        CFRelease(source);
    }
    ServedPort(const ServedPort&) = delete;
    ServedPort& operator=(const ServedPort&) = delete;
    ~ServedPort() {
        CFMessagePortInvalidate(mPort);
        CFRelease(mPort);
        unlink((mFolder + "/.lock").c_str());
        rmdir(mFolder.c_str());
    }

    FileDescriptor Connect() const {
        FileDescriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = mFolder + "/fuzz.port";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        Require(connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address),
                        sizeof address) == 0,
                "the port is connected to");
        return connection;
    }

    // Performs what is ready. This thread serves both ends, so nothing comes by waiting.
    static void Serve() { CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false); }

    static std::size_t msRequests;

private:
    static CFDataRef Answer(CFMessagePortRef /*port*/, SInt32 /*msgid*/, CFDataRef data,
                            void* /*info*/) {
        ++msRequests;
        return CFDataGetLength(data) == 0 ? nullptr : static_cast<CFDataRef>(CFRetain(data));
    }

    std::string mFolder;
    CFMessagePortRef mPort = nullptr;
};

std::size_t ServedPort::msRequests = 0;

// The answers to the requests up to the first frame that is none, and the number of requests.
Bytes AnswersTo(const Bytes& stream, std::size_t& requests) {
    bool isMalformed = false;
    Bytes answers;
    requests = 0;
    for (const Frame& frame : FramesOf(stream, isMalformed)) {
        if (frame.kind > 2) {
            break;
        }
        ++requests;
        if (frame.kind == 1) {
            MessagePort::FrameHeader header;
            header.kind = frame.length == 0 ? FrameKind::kEmptyReply : FrameKind::kReply;
            header.sequence = frame.sequence;
            header.length = frame.length;
            const auto bytes = MessagePort::EncodeHeader(header);
            const Bytes payload = frame.Payload(stream);
            answers.insert(answers.end(), bytes.begin(), bytes.end());
            answers.insert(answers.end(), payload.begin(), payload.end());
        }
    }
    return answers;
}

void AskThePort(const std::vector<Bytes>& cuts, const Bytes& stream) {
    static const ServedPort port;
    std::size_t requests = 0;
    const Bytes expected = AnswersTo(stream, requests);
    Bytes answers;
    answers.reserve(expected.size() + 65536);
    ServedPort::msRequests = 0;
    const FileDescriptor connection = port.Connect();
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    std::size_t arrived = 0;
    bool isOpen = true;
    for (const Bytes& cut : cuts) {
        std::size_t sent = 0;
        while (sent < cut.size() && isOpen) {
            const std::size_t count = SendSome(connection.Get(), std::span(cut).subspan(sent));
            sent += count;
            arrived += count;
            ServedPort::Serve();
            isOpen = ReceiveSome(connection.Get(), answers);
            // A request, its copy for the callout and the answer.
            RequireMemoryFor(4 * arrived, before);
        }
    }
    shutdown(connection.Get(), SHUT_WR);
    for (int i = 0; isOpen; ++i) {
        Require(i < 10000, "the port closes a connection that has ended");
        ServedPort::Serve();
        isOpen = ReceiveSome(connection.Get(), answers);
    }
    Require(ServedPort::msRequests == requests, "every request is performed once");
    Require(answers == expected, "every request is answered in its turn");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::vector<Bytes> cuts = CutsOf({data + 1, size - 1});
    Bytes stream;
    for (const Bytes& cut : cuts) {
        stream.insert(stream.end(), cut.begin(), cut.end());
    }
    if (data[0] % 2 == 0) {
        ReadFrames(cuts, stream);
    } else {
        AskThePort(cuts, stream);
    }
    return 0;
}
