#include "platform/CoreFoundation/src/messageport/MessagePortFrame.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace MessagePort {

namespace {

constexpr std::uint32_t kMagic = 0x514D5046; // "QMPF"
constexpr std::uint16_t kVersion = 1;
constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

void Put16(std::uint8_t* at, std::uint16_t value) {
    at[0] = static_cast<std::uint8_t>(value >> 8);
    at[1] = static_cast<std::uint8_t>(value & 0xFF);
}

void Put32(std::uint8_t* at, std::uint32_t value) {
    Put16(at, static_cast<std::uint16_t>(value >> 16));
    Put16(at + 2, static_cast<std::uint16_t>(value & 0xFFFF));
}

std::uint16_t Get16(const std::uint8_t* at) {
    return static_cast<std::uint16_t>((unsigned{at[0]} << 8) | at[1]);
}

std::uint32_t Get32(const std::uint8_t* at) {
    return (std::uint32_t{Get16(at)} << 16) | Get16(at + 2);
}

} // namespace

std::array<std::uint8_t, kHeaderSize> EncodeHeader(const FrameHeader& header) {
    std::array<std::uint8_t, kHeaderSize> bytes{};
    Put32(bytes.data(), kMagic);
    Put16(bytes.data() + 4, kVersion);
    Put16(bytes.data() + 6, static_cast<std::uint16_t>(header.kind));
    Put32(bytes.data() + 8, header.sequence);
    Put32(bytes.data() + 12, static_cast<std::uint32_t>(header.msgid));
    Put32(bytes.data() + 16, header.length);
    return bytes;
}

std::optional<FrameHeader> DecodeHeader(std::span<const std::uint8_t, kHeaderSize> bytes) {
    const std::uint16_t kind = Get16(bytes.data() + 6);
    FrameHeader header;
    header.sequence = Get32(bytes.data() + 8);
    header.msgid = static_cast<std::int32_t>(Get32(bytes.data() + 12));
    header.length = Get32(bytes.data() + 16);
    if (Get32(bytes.data()) != kMagic || Get16(bytes.data() + 4) != kVersion ||
        kind < static_cast<std::uint16_t>(FrameKind::kRequest) ||
        kind > static_cast<std::uint16_t>(FrameKind::kRefusal) || header.length > kMaximumPayload) {
        return std::nullopt;
    }
    header.kind = static_cast<FrameKind>(kind);
    return header;
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
