// How requests and replies lie on a message port's socket: a header of 20 bytes, all numbers
// big-endian, followed by the payload, which is passed on as it is.
//
//   offset 0   magic, the bytes "QMPF"
//          4   version, 16 bits, 1
//          6   kind, 16 bits, FrameKind
//          8   sequence, 32 bits: a reply bears that of its request
//         12   message id, 32 bits, signed; 0 in replies
//         16   length of the payload in bytes, 32 bits
//
// A local port that has read a request whole answers it or has ended: it never just closes the
// connection. One that closes before it has read everything resets the connection, so the sender
// knows that its last request was not performed.
//
// Neither class is thread-safe; neither blocks when the socket does not.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace MessagePort {

enum class FrameKind : std::uint16_t {
    kRequest = 1,    // wants an answer: one of the three below
    kOneWay = 2,     // wants none
    kReply = 3,      // with data, which may be empty
    kEmptyReply = 4, // without data
    kRefusal = 5,    // the request was performed, its reply cannot be sent
};

struct FrameHeader {
    FrameKind kind = FrameKind::kRequest;
    std::uint32_t sequence = 0;
    std::int32_t msgid = 0;
    std::uint32_t length = 0;
};

inline constexpr std::size_t kHeaderSize = 20;
inline constexpr std::size_t kMaximumPayload = std::size_t{1024} * 1024;

std::array<std::uint8_t, kHeaderSize> EncodeHeader(const FrameHeader& header);

// Null for anything but a header of this version whose payload is within the limit.
std::optional<FrameHeader> DecodeHeader(std::span<const std::uint8_t, kHeaderSize> bytes);

// Gathers one frame at a time from a non-blocking socket. Memory grows with what has arrived, not
// with what the header promises.
class FrameReader {
public:
    enum class Result {
        kIncomplete,
        kComplete,
        kClosed, // by the other side, which had read all that it was sent
        kReset,  // by the other side, which had not
        kMalformed,
    };

    // Reads until the frame is complete (no byte beyond it is taken) or nothing more is there.
    Result Read(int socket);

    bool HasBegun() const { return mReceived != 0; }

    // The complete frame; after taking its payload the next one is gathered.
    const FrameHeader& Header() const { return mHeader; }
    std::vector<std::uint8_t> TakePayload();

private:
    std::array<std::uint8_t, kHeaderSize> mHeaderBytes{};
    std::size_t mReceived = 0; // of header and payload together
    FrameHeader mHeader;
    std::vector<std::uint8_t> mPayload;
};

// Sends one frame over a non-blocking socket, without ever raising SIGPIPE.
class FrameWriter {
public:
    enum class Result { kIncomplete, kComplete, kFailed };

    // The header's length is set to the payload's, which must be within the limit.
    FrameWriter(FrameHeader header, std::vector<std::uint8_t> payload);

    Result Write(int socket);

    bool HasBegun() const { return mSent != 0; }

private:
    std::array<std::uint8_t, kHeaderSize> mHeaderBytes;
    std::vector<std::uint8_t> mPayload;
    std::size_t mSent = 0;
};

} // namespace MessagePort
