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
// A local port that has read a whole request answers it or ends; it never merely closes the
// connection. If it closes a connection from which it has not read everything, the system resets
// the connection, and so the sender knows that its last request was not performed.
//
//     FrameWriter writer(header, payload);
//     writer.Write(socket);                                 // until it is complete
//     FrameReader reader;
//     if (reader.Read(socket) == FrameReader::Result::kComplete) {
//         Use(reader.Header(), reader.TakePayload());
//     }
//
// Neither class is thread-safe, and neither blocks if the socket does not.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace MessagePort {

enum class FrameKind : std::uint16_t {
    kRequest = 1,    // a request that wants an answer, which is one of the last three
    kOneWay = 2,     // a request that wants none
    kReply = 3,      // a reply with data, which may be empty
    kEmptyReply = 4, // a reply without data
    kRefusal = 5,    // the request was performed but its reply cannot be sent
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

// Returns nothing unless the bytes are a header of this version and its payload is within the
// limit.
std::optional<FrameHeader> DecodeHeader(std::span<const std::uint8_t, kHeaderSize> bytes);

// A FrameReader gathers one frame at a time from a non-blocking socket. It takes memory for what
// has arrived, not for what the header promises.
class FrameReader {
public:
    enum class Result {
        kIncomplete,
        kComplete,
        kClosed, // the other side closed it, having read all that it was sent
        kReset,  // the other side closed it, not having read all
        kMalformed,
    };

    // Reads until the frame is complete (no byte beyond it is taken) or nothing more is there.
    Result Read(int socket);

    bool HasBegun() const { return mReceived != 0; }

    // Give the complete frame. Once its payload is taken, the next frame is gathered.
    const FrameHeader& Header() const { return mHeader; }
    std::vector<std::uint8_t> TakePayload();

private:
    std::array<std::uint8_t, kHeaderSize> mHeaderBytes{};
    std::size_t mReceived = 0; // of header and payload together
    FrameHeader mHeader;
    std::vector<std::uint8_t> mPayload;
};

// A FrameWriter sends one frame over a non-blocking socket. It never raises SIGPIPE.
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
