#include "midiserver/backends/alsa/PortOutput.h"

#include "midiserver/midi/MidiMessage.h"

#include <algorithm>
#include <span>

namespace MidiServer {

namespace {

// So many events a port sends before the others have their turn.
constexpr int kEventsInTurn = 64;

} // namespace

void PortOutput::Close() {
    mStream.Close();
    mReceivers.clear();
    mFilled = 0;
}

void PortOutput::FindReceivers(const SequencerClient& client, int port) {
    std::map<int, Patience> receivers;
    for (const PortAddress& address : client.Receivers(port)) {
        const auto known = mReceivers.find(address.client);
        receivers.emplace(address.client, known == mReceivers.end() ? Patience() : known->second);
    }
    mReceivers = std::move(receivers);
}

std::optional<PortOutput::Time> PortOutput::Play(SequencerClient& client, int port,
                                                 EventEncoder& encoder, Time now) {
    for (int sent = 0; Next(); ++sent) {
        if (sent == kEventsInTurn) {
            return now;
        }
        snd_seq_event_t event;
        if (encoder.Encode(std::span(mBytes).first(mFilled), event)) {
            if (WaitsForRoom(client, EventCells(event), now)) {
                return now + kTryAgain;
            }
            snd_seq_ev_set_source(&event, static_cast<unsigned char>(port));
            if (client.Send(event) < 0) {
                CountRefused();
            }
        }
        mFilled = 0;
    }
    return std::nullopt;
}

bool PortOutput::Next() {
    if (mFilled == 0) {
        mFilled = std::min(mStream.Events().Next(), mBytes.size());
        if (mFilled == 0) {
            return false;
        }
        mStream.Events().Take(std::span(mBytes).first(mFilled));
        if (mBytes[0] == kStartOfExclusive) {
            mMessageIsCounted = false;
        }
    }
    return true;
}

bool PortOutput::WaitsForRoom(const SequencerClient& client, unsigned cells, Time now) {
    bool waits = false;
    for (auto& [receiver, patience] : mReceivers) {
        unsigned freeCells = 0;
        if (client.HasRoom(receiver, cells, freeCells)) {
            patience.HasRoom();
        } else if (patience.Waits(now, freeCells)) {
            waits = true;
        }
    }
    return waits;
}

void PortOutput::CountRefused() {
    const bool isPiece = IsExclusive(mBytes);
    if (!isPiece || !mMessageIsCounted) {
        mRefused.fetch_add(1, std::memory_order_relaxed);
        mMessageIsCounted = isPiece;
    }
}

} // namespace MidiServer
