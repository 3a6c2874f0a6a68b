#pragma once

#include "midiserver/preferences/PingProtocol.h"
#include "midiserver/routing/pacing/ValuePlace.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace MidiServer {

// A PacingQueue holds the messages of one port until the port's rate lets them go. They go in the
// order in which they came, with two exceptions.
//
// Pings of the port's protocol may overtake the others when these have to wait: a ping carries no
// state, and a DAW that gets no answer in time gives the surface up. A ping does not break into a
// message that has begun to go out.
//
// With coalescing, a later value for the same fader, ring, digits or display cells (see
// ValuePlace.h) takes the place of an earlier one that still waits. Text and digits are replaced
// only if no others for some of their cells came in between. So a surface that has taken the whole
// queue shows the same with coalescing as without it. A HUI fader's two messages are replaced
// together.
//
//     queue.Add(message, now);
//     Send(queue.Next().rest.first(size));
//     queue.Advance(size);
//
// A queue takes kCapacity bytes. A message that does not fit is refused whole, but an empty queue
// takes one message of any length, and a full one takes a ping as long as fewer than
// kMostOvertaking wait. Not synchronised.
class PacingQueue {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // Four seconds at the port's rate.
    static constexpr std::size_t kCapacity = 57344;
    static constexpr std::size_t kMostOvertaking = 4;
    // A longer message is no ping, whatever it begins with.
    static constexpr std::size_t kLongestPing = 256;

    // What goes out next.
    struct Front {
        std::span<const std::uint8_t> rest; // of the message; valid until the queue is changed
        TimePoint arrived;
        bool isPing;
    };

    // Apply to what is added from now on; what waits already is replaced no more.
    void Configure(Protocol protocol, bool coalescing);

    // Returns whether the message was taken, which it is too if it replaces another one.
    bool Add(std::span<const std::uint8_t> message, TimePoint arrived);

    // The bytes that the queue takes now. An empty queue takes longer messages too.
    std::size_t Room() const { return mBytes < kCapacity ? kCapacity - mBytes : 0; }
    bool Empty() const { return mMessages.empty(); }
    std::size_t Messages() const { return mMessages.size() - mOvertaken; }
    std::size_t Bytes() const { return mBytes; }

    // What is next by order. The queue must not be empty.
    Front Next() const;
    // Takes so many bytes of Next(), at most its rest. Returns whether that completed the message.
    bool Advance(std::size_t bytes);

    // Whether a ping waits that may overtake, which one is the next of these, and taking it.
    bool HasOvertakingPing() const { return mOffset == 0 && !mPings.empty(); }
    Front NextPing() const;
    void TakePing();

    // Says that all messages that are queued have to wait, for the count.
    void NoteDelay() { mWaiting = mMessages.size(); }

    void Clear();

    // Messages that were replaced, and messages that went out late, since the start.
    std::uint64_t Coalesced() const { return mCoalesced; }
    std::uint64_t Delayed() const { return mDelayed; }

private:
    struct Message {
        std::vector<std::uint8_t> bytes; // none: a ping stood here that has overtaken
        TimePoint arrived;
        std::optional<ValuePlace> place; // if mPlaces leads to it
    };

    bool IsShortPing(std::span<const std::uint8_t> message) const;
    bool Coalesce(std::span<const std::uint8_t> message);
    bool CoalesceHalves(std::span<const std::uint8_t> low);
    bool HasLaterOverlap(const ValuePlace& place, std::uint64_t number) const;
    void NotePlaceOfLast();
    void Remember(const ValuePlace& place, std::uint64_t number);
    void Forget(const ValuePlace& place);
    Message& At(std::uint64_t number) {
        return mMessages[static_cast<std::size_t>(number - mFirstNumber)];
    }
    const Message& At(std::uint64_t number) const {
        return mMessages[static_cast<std::size_t>(number - mFirstNumber)];
    }
    std::uint64_t EndNumber() const { return mFirstNumber + mMessages.size(); }
    void PopMessage();

    Protocol mProtocol = Protocol::kNone;
    bool mCoalescing = false;
    std::deque<Message> mMessages;    // the first is none that has overtaken
    std::uint64_t mFirstNumber = 0;   // of the first message; the others follow
    std::deque<std::uint64_t> mPings; // the numbers of those that wait
    std::size_t mOvertaken = 0;       // empty places in mMessages
    std::size_t mOffset = 0;          // what of the first message has gone out
    std::size_t mBytes = 0;           // still to go out
    // The number of the last message for each place; of a HUI fader's, the first of the two.
    std::map<ValuePlace, std::uint64_t> mPlaces;
    std::size_t mWaiting = 0; // of mMessages, from the first on
    std::uint64_t mCoalesced = 0;
    std::uint64_t mDelayed = 0;
};

} // namespace MidiServer
