// A JACK client that a test controls from outside, in the place of a DAW or of a surface:
//
//     JackPeer NAME PORTS
//
// It has the MIDI ports "in 1", "out 1", ... and obeys lines on its standard input. It writes
// "ready" when it stands, "ended" when the server has ended, and each event that comes as
// "r PORT FRAME BYTES" with the server's time of it. What asks is answered by a line that starts
// with "=", after all that has come.
//
//     s PORT BYTES    sends an event, in pieces if it is larger than a period's buffer
//     connect A|B     connects two ports by their names, if they are not; likewise disconnect
//     ports           all ports, separated by '|'
//     aliases PORT    those of a port, and "meta KEY PORT" a value of its metadata
//     renew           takes its ports away and puts them up again at once
//     lost            the events that JACK lost on the way to the inputs
//     flood COUNT     sends so many of F8 on each port in one period, whether they fit or not
#include <jack/jack.h>
#include <jack/metadata.h>
#include <jack/midiport.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// So much a period and port, so that no reader is swamped that is in time for real DAWs.
constexpr std::size_t kMostInPeriod = 4096;
constexpr std::size_t kRoomForCopies = 1024; // see what PipeWire's library does with events

struct Port {
    jack_port_t* in = nullptr;
    jack_port_t* out = nullptr;
    std::deque<Bytes> toSend;
    std::size_t flood = 0; // how many of F8 are to be sent
};

struct Received {
    std::size_t port;
    jack_nframes_t frame;
    Bytes bytes;
};

std::mutex mutex; // this is no model of a real-time client
std::condition_variable arrived;
std::condition_variable written;
std::vector<Port> ports;
std::deque<Received> received;
std::uint64_t lost = 0;
bool isWriting = false;
bool ended = false;
bool finished = false;

void Send(Port& port, void* buffer) {
    jack_midi_clear_buffer(buffer);
    constexpr jack_midi_data_t kClock = 0xF8;
    for (; port.flood != 0; --port.flood) {
        jack_midi_event_write(buffer, 0, &kClock, 1);
    }
    std::size_t sent = 0;
    while (!port.toSend.empty() && sent < kMostInPeriod) {
        Bytes& event = port.toSend.front();
        const std::size_t room = jack_midi_max_event_size(buffer);
        const std::size_t piece = std::min(event.size(), room - std::min(room, kRoomForCopies));
        if ((piece < event.size() && sent != 0) || piece == 0 ||
            jack_midi_event_write(buffer, 0, event.data(), piece) != 0) {
            return;
        }
        sent += std::max<std::size_t>(piece, 12);
        event.erase(event.begin(), event.begin() + static_cast<std::ptrdiff_t>(piece));
        if (!event.empty()) {
            return;
        }
        port.toSend.pop_front();
    }
}

int Process(jack_nframes_t frames, void* client) {
    const jack_nframes_t first = jack_last_frame_time(static_cast<jack_client_t*>(client));
    const std::lock_guard lock(mutex);
    for (std::size_t i = 0; i < ports.size(); ++i) {
        Send(ports[i], jack_port_get_buffer(ports[i].out, frames));
        void* const buffer = jack_port_get_buffer(ports[i].in, frames);
        const std::uint32_t count = jack_midi_get_event_count(buffer);
        for (std::uint32_t j = 0; j < count; ++j) {
            jack_midi_event_t event;
            jack_midi_event_get(&event, buffer, j);
            received.push_back(
                {i, first + event.time, Bytes(event.buffer, event.buffer + event.size)});
        }
        lost += jack_midi_get_lost_event_count(buffer);
    }
    arrived.notify_all();
    return 0;
}

void WriteReceived() {
    std::string text;
    std::unique_lock lock(mutex);
    for (;;) {
        arrived.wait(lock, [] { return !received.empty() || ended || finished; });
        std::deque<Received> events;
        events.swap(received);
        isWriting = true;
        const bool hasEnded = ended;
        ended = false;
        const bool hasFinished = finished;
        lock.unlock();
        text.clear();
        for (const Received& event : events) {
            text += "r " + std::to_string(event.port + 1) + " " + std::to_string(event.frame) + " ";
            for (const std::uint8_t byte : event.bytes) {
                constexpr const char* kDigits = "0123456789ABCDEF";
                text += {kDigits[byte >> 4], kDigits[byte & 15]};
            }
            text += '\n';
        }
        if (hasEnded) {
            text += "ended\n";
        }
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
        if (hasFinished) {
            return;
        }
        lock.lock();
        isWriting = false;
        written.notify_all();
    }
}

void Answer(const std::string& text) {
    std::unique_lock lock(mutex);
    written.wait(lock, [] { return received.empty() && !isWriting; });
    lock.unlock();
    std::printf("=%s\n", text.c_str());
    std::fflush(stdout);
}

int Digit(char digit) {
    return digit <= '9' ? digit - '0' : digit - 'A' + 10;
}

void TakeSend(const std::string& arguments) {
    const std::size_t space = arguments.find(' ');
    Bytes bytes;
    for (std::size_t i = space + 1; i + 1 < arguments.size(); i += 2) {
        bytes.push_back(
            static_cast<std::uint8_t>(Digit(arguments[i]) * 16 + Digit(arguments[i + 1])));
    }
    const std::lock_guard lock(mutex);
    ports.at(std::stoul(arguments) - 1).toSend.push_back(std::move(bytes));
}

std::uint64_t LostEvents() {
    const std::lock_guard lock(mutex);
    return lost;
}

void Flood(std::size_t count) {
    const std::lock_guard lock(mutex);
    for (Port& port : ports) {
        port.flood = count;
    }
}

std::string PortNames(jack_client_t* client, unsigned long flags = 0) {
    std::string names;
    const char** const list = jack_get_ports(client, nullptr, nullptr, flags);
    for (const char** name = list; name != nullptr && *name != nullptr; ++name) {
        names += (names.empty() ? "" : "|") + std::string(*name);
    }
    jack_free(list);
    return names;
}

std::string Aliases(jack_client_t* client, const std::string& name) {
    std::string first(512, '\0');
    std::string second(512, '\0');
    char* const aliases[] = {first.data(), second.data()};
    const jack_port_t* const port = jack_port_by_name(client, name.c_str());
    const int count = port == nullptr ? 0 : jack_port_get_aliases(port, aliases);
    std::string names;
    for (int i = 0; i < count; ++i) {
        names += (names.empty() ? "" : "|") + std::string(aliases[i]);
    }
    return names;
}

std::string Metadata(jack_client_t* client, const std::string& key, const std::string& name) {
    const jack_port_t* const port = jack_port_by_name(client, name.c_str());
    char* value = nullptr;
    char* type = nullptr;
    if (port == nullptr ||
        jack_get_property(jack_port_uuid(port), key.c_str(), &value, &type) != 0) {
        return "";
    }
    std::string text = value;
    jack_free(value);
    jack_free(type);
    return text;
}

void RegisterPorts(jack_client_t* client) {
    for (std::size_t i = 0; i < ports.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        ports[i].in = jack_port_register(client, ("in " + number).c_str(), JACK_DEFAULT_MIDI_TYPE,
                                         JackPortIsInput, 0);
        ports[i].out = jack_port_register(client, ("out " + number).c_str(), JACK_DEFAULT_MIDI_TYPE,
                                          JackPortIsOutput, 0);
    }
}

// Takes all ports away and puts them up again at once, as a program does that is started anew.
int RenewPorts(jack_client_t* client) {
    jack_deactivate(client);
    for (const Port& port : ports) {
        jack_port_unregister(client, port.in);
        jack_port_unregister(client, port.out);
    }
    RegisterPorts(client);
    return jack_activate(client);
}

void Obey(jack_client_t* client, const std::string& line) {
    const std::size_t space = line.find(' ');
    const std::string command = line.substr(0, space);
    const std::string arguments = space == std::string::npos ? "" : line.substr(space + 1);
    if (command == "s") {
        TakeSend(arguments);
    } else if (command == "connect" || command == "disconnect") {
        const std::size_t bar = arguments.find('|');
        const std::string from = arguments.substr(0, bar);
        const std::string to = arguments.substr(bar + 1);
        const auto change = command == "connect" ? jack_connect : jack_disconnect;
        const int result = change(client, from.c_str(), to.c_str());
        Answer(std::to_string(std::abs(result) == EEXIST ? 0 : result));
    } else if (command == "ports") {
        Answer(PortNames(client));
    } else if (command == "devices") {
        Answer(PortNames(client, JackPortIsTerminal) + "|" + PortNames(client, JackPortIsPhysical));
    } else if (command == "aliases") {
        Answer(Aliases(client, arguments));
    } else if (command == "meta") {
        const std::size_t gap = arguments.find(' ');
        Answer(Metadata(client, arguments.substr(0, gap), arguments.substr(gap + 1)));
    } else if (command == "renew") {
        Answer(std::to_string(RenewPorts(client)));
    } else if (command == "lost") {
        Answer(std::to_string(LostEvents()));
    } else if (command == "flood") {
        Flood(std::stoul(arguments));
        Answer("");
    }
}

} // namespace

int main(int, char** arguments) {
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    jack_client_t* client = nullptr;
    for (int attempt = 0; client == nullptr && attempt < 1200; ++attempt) {
        constexpr auto kOptions = static_cast<jack_options_t>(JackUseExactName | JackNoStartServer);
        client = jack_client_open(arguments[1], kOptions, nullptr);
        if (client == nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    if (client == nullptr) {
        return EXIT_FAILURE;
    }
    ports.resize(std::stoul(arguments[2]));
    RegisterPorts(client);
    jack_set_process_callback(client, Process, client);
    jack_on_shutdown(
        client,
        [](void*) {
            const std::lock_guard lock(mutex);
            ended = true;
            arrived.notify_one();
        },
        nullptr);
    if (jack_activate(client) != 0) {
        return EXIT_FAILURE;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    std::thread writer(WriteReceived);
    std::string line;
    while (std::getline(std::cin, line)) {
        Obey(client, line);
    }
    jack_client_close(client);
    {
        const std::lock_guard lock(mutex);
        finished = true;
        arrived.notify_one();
    }
    writer.join();
    return EXIT_SUCCESS;
}
