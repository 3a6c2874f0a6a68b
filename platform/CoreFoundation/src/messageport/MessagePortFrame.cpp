#include "platform/CoreFoundation/src/messageport/MessagePortFrame.h"

#include <endian.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>

namespace MessagePort {

namespace {

constexpr std::uint32_t kMagic = 0x514D5046; // "QMPF"
constexpr std::uint16_t kVersion = 1;
constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

// A header as it lies on the socket; its numbers are big-endian.
struct WireHeader {
    std::uint32_t magic;
    std::uint16_t version;
    std::uint16_t kind;
    std::uint32_t sequence;
    std::uint32_t msgid;
    std::uint32_t length;
};
static_assert(sizeof(WireHeader) == kHeaderSize);

} // namespace

std::array<std::uint8_t, kHeaderSize> EncodeHeader(const FrameHeader& header) {
    const WireHeader wire{htobe32(kMagic),
                          htobe16(kVersion),
                          htobe16(static_cast<std::uint16_t>(header.kind)),
                          htobe32(header.sequence),
                          htobe32(static_cast<std::uint32_t>(header.msgid)),
                          htobe32(header.length)};
    return std::bit_cast<std::array<std::uint8_t, kHeaderSize>>(wire);
}

std::optional<FrameHeader> DecodeHeader(std::span<const std::uint8_t, kHeaderSize> bytes) {
    WireHeader wire;
    std::memcpy(&wire, bytes.data(), sizeof wire);
    const FrameHeader header{static_cast<FrameKind>(be16toh(wire.kind)), be32toh(wire.sequence),
                             static_cast<std::int32_t>(be32toh(wire.msgid)), be32toh(wire.length)};
    const bool isKind = header.kind >= FrameKind::kRequest && header.kind <= FrameKind::kRefusal;
    return be32toh(wire.magic) == kMagic && be16toh(wire.version) == kVersion && isKind &&
                   header.length <= kMaximumPayload
               ? std::optional(header)
               : std::nullopt;
}

FrameReader::Result FrameReader::Read(int socket) {
    while (true) {
        std::uint8_t* into = nullptr;
        std::size_t wanted = 0;
        if (mReceived < kHeaderSize) {
            into = mHeaderBytes.data() + mReceived;
            wanted = kHeaderSize - mReceived;
        } else {
            const std::size_t have = mReceived - kHeaderSize;
            if (have == mHeader.length) {
                return Result::kComplete;
            }
            wanted = std::min(mHeader.length - have, kReadChunk);
            mPayload.resize(have + wanted);
            into = mPayload.data() + have;
        }
        const ssize_t got = recv(socket, into, wanted, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return Result::kIncomplete;
        }
        if (got < 0 && errno == ECONNRESET) {
            return Result::kReset;
        }
        if (got <= 0) {
            return Result::kClosed;
        }
        mReceived += static_cast<std::size_t>(got);
        if (mReceived == kHeaderSize) {
            const auto header = DecodeHeader(mHeaderBytes);
            if (!header) {
                return Result::kMalformed;
            }
            mHeader = *header;
        }
    }
}

std::vector<std::uint8_t> FrameReader::TakePayload() {
    mReceived = 0;
    mPayload.resize(mHeader.length);
    return std::exchange(mPayload, {});
}

FrameWriter::FrameWriter(FrameHeader header, std::vector<std::uint8_t> payload)
    : mPayload(std::move(payload)) {
    header.length = static_cast<std::uint32_t>(mPayload.size());
    mHeaderBytes = EncodeHeader(header);
}

FrameWriter::Result FrameWriter::Write(int socket) {
    while (mSent < kHeaderSize + mPayload.size()) {
        std::array<iovec, 2> parts{};
        std::size_t count = 0;
        std::size_t payloadSent = 0;
        if (mSent < kHeaderSize) {
            parts[count++] = {mHeaderBytes.data() + mSent, kHeaderSize - mSent};
        } else {
            payloadSent = mSent - kHeaderSize;
        }
        if (payloadSent < mPayload.size()) {
            parts[count++] = {mPayload.data() + payloadSent, mPayload.size() - payloadSent};
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = count;
        const ssize_t sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return Result::kIncomplete;
        }
        if (sent < 0) {
            return Result::kFailed;
        }
        mSent += static_cast<std::size_t>(sent);
    }
    return Result::kComplete;
}

} // namespace MessagePort
