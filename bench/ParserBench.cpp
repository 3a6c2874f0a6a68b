// Compares the throughput of the MIDI parser with that of ALSA's, which turns the same bytes into
// sequencer events.

#include "MidiDriver/MidiParser.h"

#include <alsa/asoundlib.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Pieces = std::vector<Bytes>; // what one call is fed

constexpr std::size_t kPieceSize = 1023; // a whole number of three-byte messages
constexpr std::size_t kPieces = 64;
constexpr std::size_t kChunkSize = 257; // of a System Exclusive, in both parsers

unsigned char DataByte(std::size_t i) {
    return static_cast<unsigned char>((i * 37) % 128);
}

// Notes on and off, each with its status.
Pieces Notes() {
    Pieces pieces(kPieces);
    for (Bytes& piece : pieces) {
        for (std::size_t i = 0; piece.size() < kPieceSize; i++) {
            piece.push_back(static_cast<unsigned char>((i % 2 == 0 ? 0x90 : 0x80) | (i % 16)));
            piece.push_back(DataByte(i));
            piece.push_back(DataByte(i + 1));
        }
    }
    return pieces;
}

// A fader's movements: one status, then pairs of data bytes.
Pieces RunningStatus() {
    Pieces pieces(kPieces);
    for (Bytes& piece : pieces) {
        piece.push_back(0xE0);
        for (std::size_t i = 0; piece.size() < kPieceSize; i++) {
            piece.push_back(DataByte(i));
        }
    }
    return pieces;
}

// Each piece holds one message, since the parser drops the bytes that follow the end of a message
// in the same call.
Pieces SystemExclusive() {
    Pieces pieces(kPieces);
    for (Bytes& piece : pieces) {
        piece.push_back(0xF0);
        for (std::size_t i = 0; piece.size() < kPieceSize - 1; i++) {
            piece.push_back(DataByte(i));
        }
        piece.push_back(0xF7);
    }
    return pieces;
}

std::size_t SizeOf(const Pieces& pieces) {
    std::size_t size = 0;
    for (const Bytes& piece : pieces) {
        size += piece.size();
    }
    return size;
}

void Report(benchmark::State& state, const Pieces& pieces, std::uint64_t messages) {
    state.SetBytesProcessed(static_cast<std::int64_t>(SizeOf(pieces)) * state.iterations());
    state.counters["messages"] =
        benchmark::Counter(static_cast<double>(messages), benchmark::Counter::kAvgIterations);
}

class CountingParser final : public MIDIParser {
public:
    CountingParser() : MIDIParser(false) {}

    void EmitPacketList(unsigned char /*port*/, const MIDIPacketList& list) override {
        benchmark::DoNotOptimize(&list);
        messages++;
    }

    std::uint64_t messages = 0;
};

void BM_Parser(benchmark::State& state, Pieces (*makePieces)()) {
    Pieces pieces = makePieces();
    CountingParser parser;
    for ([[maybe_unused]] auto iteration : state) {
        for (Bytes& piece : pieces) {
            parser.FeedBytes(0, piece.data(), static_cast<int>(piece.size()));
        }
    }
    Report(state, pieces, parser.messages);
}

void BM_AlsaEncode(benchmark::State& state, Pieces (*makePieces)()) {
    const Pieces pieces = makePieces();
    snd_midi_event_t* encoder = nullptr;
    if (snd_midi_event_new(kChunkSize, &encoder) != 0) {
        state.SkipWithError("snd_midi_event_new failed");
        return;
    }
    std::uint64_t messages = 0;
    for ([[maybe_unused]] auto iteration : state) {
        for (const Bytes& piece : pieces) {
            const unsigned char* next = piece.data();
            long left = static_cast<long>(piece.size());
            while (left > 0) {
                snd_seq_event_t event;
                const long taken = snd_midi_event_encode(encoder, next, left, &event);
                if (taken <= 0) {
                    state.SkipWithError("snd_midi_event_encode failed");
                    break;
                }
                next += taken;
                left -= taken;
                if (event.type != SND_SEQ_EVENT_NONE) {
                    benchmark::DoNotOptimize(&event);
                    messages++;
                }
            }
        }
    }
    snd_midi_event_free(encoder);
    Report(state, pieces, messages);
}

BENCHMARK_CAPTURE(BM_Parser, Notes, Notes);
BENCHMARK_CAPTURE(BM_AlsaEncode, Notes, Notes);
BENCHMARK_CAPTURE(BM_Parser, RunningStatus, RunningStatus);
BENCHMARK_CAPTURE(BM_AlsaEncode, RunningStatus, RunningStatus);
BENCHMARK_CAPTURE(BM_Parser, SystemExclusive, SystemExclusive);
BENCHMARK_CAPTURE(BM_AlsaEncode, SystemExclusive, SystemExclusive);

} // namespace
