#include "MidiDriver/worker/ActiveSense.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<unsigned char, 3> kHUIPing = {0x90, 0x00, 0x00};
constexpr std::array<unsigned char, 3> kHUIReply = {0x90, 0x00, 0x7F};

constexpr std::array<unsigned char, 4> kMackieHeader = {0xF0, 0x00, 0x00, 0x66};
constexpr unsigned char kMackieModel = 0x14;
constexpr unsigned char kMackieExtenderModel = 0x15;
constexpr unsigned char kDeviceQuery = 0x00;
constexpr unsigned char kConnectionQuery = 0x1A;
constexpr unsigned char kEndOfExclusive = 0xF7;
// The length of the header, the model, the query and the end together. A shorter message lacks one
// of them.
constexpr unsigned int kShortestMackiePing = 7;

using MackieReply = std::array<unsigned char, 18>;
constexpr MackieReply kMackieReplyTemplate = {0xF0, 0x00, 0x00, 0x66, 0x00, 0x00, 0x00, 0x03, 0x00,
                                              0x02, 0x01, 0x09, 0x05, 0x07, 0x00, 0x07, 0x07, 0xF7};

MackieReply MakeMackieReply(unsigned int port, unsigned char model, unsigned char query) {
    MackieReply reply = kMackieReplyTemplate;
    reply[4] = model;
    reply[5] = query == kConnectionQuery ? 0x1B : 0x01;
    reply[14] = static_cast<unsigned char>(port & 0x7F);
    return reply;
}

bool IsMackiePing(const unsigned char* data, unsigned int length) {
    return data != nullptr && length >= kShortestMackiePing &&
           std::equal(kMackieHeader.begin(), kMackieHeader.end(), data) &&
           (data[4] == kMackieModel || data[4] == kMackieExtenderModel) &&
           (data[5] == kDeviceQuery || data[5] == kConnectionQuery) &&
           data[length - 1] == kEndOfExclusive;
}

// Copies the answer if it fits.
template <typename Reply>
bool Answer(const Reply& answer, unsigned char* reply, unsigned int* replyLength) {
    if (*replyLength < answer.size() || reply == nullptr) {
        *replyLength = 0;
        return false;
    }
    std::copy(answer.begin(), answer.end(), reply);
    *replyLength = static_cast<unsigned int>(answer.size());
    return true;
}

} // namespace

bool IsHUIActiveSenseFn(unsigned int /*port*/, const unsigned char* data, unsigned int length,
                        unsigned char* reply, unsigned int* replyLength) {
    if (data == nullptr || replyLength == nullptr || length != kHUIPing.size() ||
        !std::equal(kHUIPing.begin(), kHUIPing.end(), data)) {
        return false;
    }
    return Answer(kHUIReply, reply, replyLength);
}

bool IsMackieControlActiveSenseFn(unsigned int port, const unsigned char* data, unsigned int length,
                                  unsigned char* reply, unsigned int* replyLength) {
    if (replyLength == nullptr || !IsMackiePing(data, length)) {
        return false;
    }
    // The first ping of the process makes the answer, and all later ones get the same, whatever
    // their port, model and query are. See the header.
    static const MackieReply sReply = MakeMackieReply(port, data[4], data[5]);
    return Answer(sReply, reply, replyLength);
}
