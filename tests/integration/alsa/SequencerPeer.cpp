#include "tests/integration/alsa/SequencerPeer.h"

#include <poll.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace QuorvelTest {

namespace {

constexpr int kPort = 0;

int Check(int status, const char* what) {
    if (status < 0) {
        std::fprintf(stderr, "%s: %s\n", what, snd_strerror(status));
        std::abort();
    }
    return status;
}

snd_seq_addr_t AddressOf(const std::string& name) {
    const std::vector<ForeignPort> ports = PortsNamed(name);
    Check(ports.empty() ? -ENOENT : 0, name.c_str());
    return ports.front().address;
}

} // namespace

std::vector<ForeignPort> PortsNamed(const std::string& name) {
    std::vector<ForeignPort> ports;
    snd_seq_t* handle = nullptr;
    Check(snd_seq_open(&handle, "hw", SND_SEQ_OPEN_DUPLEX, 0), "open");
    snd_seq_client_info_t* client = nullptr;
    snd_seq_client_info_alloca(&client);
    snd_seq_port_info_t* port = nullptr;
    snd_seq_port_info_alloca(&port);
    snd_seq_client_info_set_client(client, -1);
    while (snd_seq_query_next_client(handle, client) >= 0) {
        snd_seq_port_info_set_client(port, snd_seq_client_info_get_client(client));
        snd_seq_port_info_set_port(port, -1);
        while (snd_seq_query_next_port(handle, port) >= 0) {
            if (std::string(snd_seq_client_info_get_name(client)) + ":" +
                    snd_seq_port_info_get_name(port) ==
                name) {
                ports.push_back(
                    {*snd_seq_port_info_get_addr(port), snd_seq_port_info_get_capability(port)});
            }
        }
    }
    snd_seq_close(handle);
    return ports;
}

SequencerPeer::SequencerPeer(const std::string& name) {
    Check(snd_seq_open(&mHandle, "hw", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK), "open");
    Check(snd_seq_set_client_name(mHandle, name.c_str()), "name");
    Check(snd_seq_create_simple_port(mHandle, "port",
                                     SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ |
                                         SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                     SND_SEQ_PORT_TYPE_APPLICATION),
          "port");
    Check(snd_midi_event_new(16, &mCodec), "codec");
    snd_midi_event_no_status(mCodec, 1);
}

SequencerPeer::~SequencerPeer() {
    snd_midi_event_free(mCodec);
    snd_seq_close(mHandle);
}

void SequencerPeer::ListenTo(const std::string& port) {
    const snd_seq_addr_t address = AddressOf(port);
    Check(snd_seq_connect_from(mHandle, kPort, address.client, address.port), "listen");
}

void SequencerPeer::SendTo(const std::string& port) {
    const snd_seq_addr_t address = AddressOf(port);
    Check(snd_seq_connect_to(mHandle, kPort, address.client, address.port), "send");
}

bool SequencerPeer::ListensTo(const std::string& port) const {
    return IsConnected(SND_SEQ_QUERY_SUBS_WRITE, port);
}

bool SequencerPeer::SendsTo(const std::string& port) const {
    return IsConnected(SND_SEQ_QUERY_SUBS_READ, port);
}

bool SequencerPeer::IsConnected(snd_seq_query_subs_type_t direction,
                                const std::string& port) const {
    snd_seq_query_subscribe_t* query = nullptr;
    snd_seq_query_subscribe_alloca(&query);
    const snd_seq_addr_t root{static_cast<unsigned char>(Id()), kPort};
    snd_seq_query_subscribe_set_root(query, &root);
    snd_seq_query_subscribe_set_type(query, direction);
    const std::vector<ForeignPort> ports = PortsNamed(port);
    for (int index = 0;; ++index) {
        snd_seq_query_subscribe_set_index(query, index);
        if (snd_seq_query_port_subscribers(mHandle, query) < 0) {
            return false;
        }
        const snd_seq_addr_t* address = snd_seq_query_subscribe_get_addr(query);
        for (const ForeignPort& candidate : ports) {
            if (candidate.address.client == address->client &&
                candidate.address.port == address->port) {
                return true;
            }
        }
    }
}

void SequencerPeer::Send(const Bytes& bytes) {
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    if (bytes[0] == 0xF0 || bytes[0] < 0x80) {
        event.type = SND_SEQ_EVENT_SYSEX;
        snd_seq_ev_set_variable(&event, static_cast<unsigned>(bytes.size()),
                                const_cast<std::uint8_t*>(bytes.data()));
    } else {
        snd_midi_event_reset_encode(mCodec);
        Check(static_cast<int>(snd_midi_event_encode(mCodec, bytes.data(),
                                                     static_cast<long>(bytes.size()), &event)),
              "encode");
    }
    snd_seq_ev_set_source(&event, kPort);
    snd_seq_ev_set_subs(&event);
    snd_seq_ev_set_direct(&event);
    Check(snd_seq_event_output_direct(mHandle, &event), "send");
}

void SequencerPeer::WaitForInput(std::chrono::milliseconds longest) const {
    pollfd descriptor{};
    Check(snd_seq_poll_descriptors(mHandle, &descriptor, 1, POLLIN), "poll descriptor");
    poll(&descriptor, 1, static_cast<int>(longest.count()));
}

const Bytes& SequencerPeer::Read() {
    for (;;) {
        snd_seq_event_t* event = nullptr;
        const int status = snd_seq_event_input(mHandle, &event);
        if (status == -EAGAIN) {
            return mReceived;
        }
        if (status == -ENOSPC) {
            ++mOverruns;
            continue;
        }
        Check(status, "read");
        if (event->type == SND_SEQ_EVENT_SYSEX) {
            const auto* const data = static_cast<const std::uint8_t*>(event->data.ext.ptr);
            mReceived.insert(mReceived.end(), data, data + event->data.ext.len);
            mLargestEvent = std::max<std::size_t>(mLargestEvent, event->data.ext.len);
        } else {
            std::uint8_t message[16];
            const long size = snd_midi_event_decode(mCodec, message, sizeof message, event);
            if (size <= 0) {
                continue; // of the sequencer's own
            }
            mReceived.insert(mReceived.end(), message, message + size);
        }
        ++mEvents;
    }
}

} // namespace QuorvelTest
