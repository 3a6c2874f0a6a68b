#pragma once

#include "tests/integration/jack/ChildProcess.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace JackTest {

using Bytes = std::vector<std::uint8_t>;

// How many bytes all messages have together.
std::size_t BytesOf(const std::vector<Bytes>& messages);

// Another program on the server (JackPeer.cpp), with the MIDI ports "NAME:in 1", "NAME:out 1", ...
// One thread uses the object.
class Peer {
public:
    // Returns when the program stands on the server. Throws if there is none for two minutes.
    explicit Peer(const std::string& name, std::size_t ports = 1);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Ports count from 1.
    void Send(std::size_t port, const Bytes& event);
    // What came so far on a port, pieces of System Exclusive messages joined.
    std::vector<Bytes> Received(std::size_t port) const;
    // When each of them came, or its first piece: the server's frame times.
    std::vector<std::uint32_t> FramesReceived(std::size_t port) const;
    // How many events came with pieces counted each.
    std::size_t EventsReceived(std::size_t port) const;
    std::size_t BytesReceived(std::size_t port) const;
    // What came so far counts no more. No message may be under way.
    void Forget(std::size_t port);
    bool ServerHasEnded() const;

    bool Connect(const std::string& from, const std::string& to);
    bool Disconnect(const std::string& from, const std::string& to);
    std::vector<std::string> Ports();
    std::string Ask(const std::string& question);

private:
    struct Input {
        std::vector<Bytes> messages;
        std::vector<std::uint32_t> frames; // one for each message
        std::size_t events = 0;
        std::size_t bytes = 0;
        bool isOpen = false; // the last message is not whole yet
    };

    void ReadLines();
    void TakeEvent(const std::string& line);

    ChildProcess mProgram;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Input> mInputs;
    bool mReady = false;
    bool mServerEnded = false;
    bool mEnded = false;
    std::vector<std::string> mAnswers;
    std::thread mReader;
};

} // namespace JackTest
