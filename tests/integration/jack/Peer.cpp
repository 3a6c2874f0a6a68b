#include "tests/integration/jack/Peer.h"

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace JackTest {

namespace {

constexpr auto kPatience = std::chrono::minutes(2);

int Digit(char digit) {
    return digit <= '9' ? digit - '0' : digit - 'A' + 10;
}

} // namespace

Peer::Peer(const std::string& name, std::size_t ports)
    : mProgram({JACK_PEER_PROGRAM, name, std::to_string(ports)}, {},
               // PipeWire's library would turn each note-on of velocity 0 into a note-off.
               {{"PIPEWIRE_PROPS", "{ jack.fix-midi-events = false }"}}),
      mInputs(ports),
      mReader([this] { ReadLines(); }) {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, kPatience, [this] { return mReady || mEnded; });
    if (!mReady) {
        lock.unlock();
        mProgram.Kill();
        mReader.join();
        throw std::runtime_error(name + " does not reach the server");
    }
}

Peer::~Peer() {
    mProgram.End(); // a client that is killed can bring the server to a halt
    mReader.join();
}

void Peer::Send(std::size_t port, const Bytes& event) {
    std::string line = "s " + std::to_string(port) + " ";
    for (const std::uint8_t byte : event) {
        constexpr const char* kDigits = "0123456789ABCDEF";
        line += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    mProgram.WriteLine(line);
}

void Peer::ReadLines() {
    std::string line;
    while (mProgram.ReadLine(line)) {
        const std::lock_guard lock(mMutex);
        if (line.starts_with("r ")) {
            TakeEvent(line);
        } else if (line.starts_with("=")) {
            mAnswers.push_back(line.substr(1));
        } else if (line == "ready") {
            mReady = true;
        } else if (line == "ended") {
            mServerEnded = true;
        }
        mChanged.notify_all();
    }
    const std::lock_guard lock(mMutex);
    mEnded = true;
    mChanged.notify_all();
}

void Peer::TakeEvent(const std::string& line) {
    char* place = nullptr;
    Input& input = mInputs.at(std::strtoul(line.c_str() + 2, &place, 10) - 1);
    const auto frame = static_cast<std::uint32_t>(std::strtoul(place, &place, 10));
    Bytes bytes;
    for (auto i = static_cast<std::size_t>(place + 1 - line.c_str()); i + 1 < line.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(Digit(line[i]) * 16 + Digit(line[i + 1])));
    }
    ++input.events;
    input.bytes += bytes.size();
    const bool goesOn = bytes.front() < 0x80 || bytes.front() == 0xF7;
    if (goesOn && input.isOpen) {
        Bytes& message = input.messages.back();
        message.insert(message.end(), bytes.begin(), bytes.end());
    } else {
        input.messages.push_back(bytes);
        input.frames.push_back(frame);
    }
    input.isOpen = (bytes.front() == 0xF0 || (goesOn && input.isOpen)) && bytes.back() != 0xF7;
}

std::vector<Bytes> Peer::Received(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    const Input& input = mInputs.at(port - 1);
    std::vector<Bytes> messages = input.messages;
    if (input.isOpen) {
        messages.pop_back();
    }
    return messages;
}

std::vector<std::uint32_t> Peer::FramesReceived(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    const Input& input = mInputs.at(port - 1);
    std::vector<std::uint32_t> frames = input.frames;
    if (input.isOpen) {
        frames.pop_back();
    }
    return frames;
}

std::size_t Peer::EventsReceived(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    return mInputs.at(port - 1).events;
}

void Peer::Forget(std::size_t port) {
    const std::lock_guard lock(mMutex);
    mInputs.at(port - 1) = Input{};
}

std::size_t Peer::BytesReceived(std::size_t port) const {
    const std::lock_guard lock(mMutex);
    return mInputs.at(port - 1).bytes;
}

bool Peer::ServerHasEnded() const {
    const std::lock_guard lock(mMutex);
    return mServerEnded;
}

std::string Peer::Ask(const std::string& question) {
    std::unique_lock lock(mMutex);
    mAnswers.clear();
    mProgram.WriteLine(question);
    mChanged.wait_for(lock, kPatience, [this] { return !mAnswers.empty() || mEnded; });
    return mAnswers.empty() ? "no answer" : mAnswers.front();
}

bool Peer::Connect(const std::string& from, const std::string& to) {
    return Ask("connect " + from + "|" + to) == "0";
}

bool Peer::Disconnect(const std::string& from, const std::string& to) {
    return Ask("disconnect " + from + "|" + to) == "0";
}

std::vector<std::string> Peer::Ports() {
    std::istringstream text(Ask("ports"));
    std::vector<std::string> names;
    for (std::string name; std::getline(text, name, '|');) {
        names.push_back(name);
    }
    return names;
}

std::size_t BytesOf(const std::vector<Bytes>& messages) {
    std::size_t bytes = 0;
    for (const Bytes& message : messages) {
        bytes += message.size();
    }
    return bytes;
}

} // namespace JackTest
