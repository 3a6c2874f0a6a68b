#include "midiserver/backends/alsa/SequencerClient.h"

#include "midiserver/backends/alsa/ClientRoom.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/Host.h"

#include <fmt/format.h>

#include <poll.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace MidiServer {

namespace {

// The most that the sequencer gives a client. What is sent directly waits in the receivers' memory
// only, so there is no such number for the other way.
constexpr std::size_t kInputCells = 2000;

[[noreturn]] void Fail(const char* what, int error) {
    throw HostError(fmt::format("the ALSA sequencer {}: {}", what, snd_strerror(error)));
}

// The library prints what fails; this program says it itself.
void PrintNothing(const char*, int, const char*, int, const char*, ...) {}

} // namespace

std::string AddressText(PortAddress address) {
    return fmt::format("{}:{}", address.client, address.port);
}

PortAddress AddressOfText(const std::string& text) {
    PortAddress address{};
    if (std::sscanf(text.c_str(), "%3d:%3d", &address.client, &address.port) != 2 ||
        address.client < 0 || address.port < 0 || AddressText(address) != text) {
        throw InputError(fmt::format("\"{}\" is no address of an ALSA port", text));
    }
    return address;
}

SequencerClient::SequencerClient(const std::string& name) {
    snd_lib_error_set_handler(PrintNothing);
    snd_seq_t* handle = nullptr;
    int status = snd_seq_open(&handle, "hw", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK);
    if (status == -ENOENT || status == -ENODEV || status == -ENXIO) {
        throw HostError("there is no ALSA sequencer: /dev/snd/seq is missing (modprobe snd-seq "
                        "makes it where the kernel has it)");
    }
    if (status < 0) {
        Fail("cannot be opened (/dev/snd/seq)", status);
    }
    mHandle.reset(handle);
    status = snd_seq_set_client_name(handle, name.c_str());
    if (status < 0) {
        Fail("refuses the client's name", status);
    }
    // A receiver whose memory is full loses all that waits there, so there should be much of it;
    // the library has to hold the largest event that fits.
    status = snd_seq_set_client_pool_input(handle, kInputCells);
    if (status >= 0) {
        status = snd_seq_set_input_buffer_size(handle, kInputCells * sizeof(snd_seq_event_t));
    }
    if (status < 0) {
        Fail("gives no memory", status);
    }
    mId = snd_seq_client_id(handle);
    pollfd descriptor{};
    if (mId < 0 || snd_seq_poll_descriptors(handle, &descriptor, 1, POLLIN) != 1) {
        Fail("cannot be waited for", mId < 0 ? mId : -EIO);
    }
    mDescriptor = descriptor.fd;
}

int SequencerClient::CreatePort(int number, const std::string& name, unsigned capability) {
    snd_seq_port_info_t* info = nullptr;
    snd_seq_port_info_alloca(&info);
    snd_seq_port_info_set_port_specified(info, 1);
    snd_seq_port_info_set_port(info, number);
    snd_seq_port_info_set_name(info, name.c_str());
    snd_seq_port_info_set_capability(info, capability);
    snd_seq_port_info_set_type(info, SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_SOFTWARE |
                                         SND_SEQ_PORT_TYPE_PORT);
    snd_seq_port_info_set_midi_channels(info, 16);
    return snd_seq_create_port(mHandle.get(), info);
}

int SequencerClient::DeletePort(int number) {
    return snd_seq_delete_port(mHandle.get(), number);
}

int SequencerClient::Send(snd_seq_event_t& event) {
    snd_seq_ev_set_subs(&event);
    snd_seq_ev_set_direct(&event);
    return snd_seq_event_output_direct(mHandle.get(), &event);
}

void SequencerClient::ReceiveAll(const Take& take, const std::function<void()>& lose) {
    for (;;) {
        snd_seq_event_t* event = nullptr;
        const int status = snd_seq_event_input(mHandle.get(), &event);
        if (status >= 0) {
            take(*event);
        } else if (status == -ENOSPC) {
            lose();
        } else if (status == -EAGAIN) {
            return;
        } else if (status != -EINTR) {
            Fail("cannot be read", status);
        }
    }
}

namespace {

void Fill(snd_seq_port_subscribe_t* subscription, PortAddress sender, PortAddress receiver) {
    const auto address = [](PortAddress of) {
        return snd_seq_addr_t{static_cast<unsigned char>(of.client),
                              static_cast<unsigned char>(of.port)};
    };
    const snd_seq_addr_t from = address(sender);
    const snd_seq_addr_t to = address(receiver);
    snd_seq_port_subscribe_set_sender(subscription, &from);
    snd_seq_port_subscribe_set_dest(subscription, &to);
}

} // namespace

int SequencerClient::Connect(PortAddress sender, PortAddress receiver) {
    snd_seq_port_subscribe_t* subscription = nullptr;
    snd_seq_port_subscribe_alloca(&subscription);
    Fill(subscription, sender, receiver);
    return snd_seq_subscribe_port(mHandle.get(), subscription);
}

int SequencerClient::Disconnect(PortAddress sender, PortAddress receiver) {
    snd_seq_port_subscribe_t* subscription = nullptr;
    snd_seq_port_subscribe_alloca(&subscription);
    Fill(subscription, sender, receiver);
    return snd_seq_unsubscribe_port(mHandle.get(), subscription);
}

std::vector<PortAddress> SequencerClient::Receivers(int port) const {
    return Connected(port, SND_SEQ_QUERY_SUBS_READ);
}

std::vector<PortAddress> SequencerClient::Senders(int port) const {
    return Connected(port, SND_SEQ_QUERY_SUBS_WRITE);
}

std::vector<PortAddress> SequencerClient::Connected(int port,
                                                    snd_seq_query_subs_type_t direction) const {
    std::vector<PortAddress> connected;
    snd_seq_query_subscribe_t* query = nullptr;
    snd_seq_query_subscribe_alloca(&query);
    const snd_seq_addr_t root{static_cast<unsigned char>(mId), static_cast<unsigned char>(port)};
    snd_seq_query_subscribe_set_root(query, &root);
    snd_seq_query_subscribe_set_type(query, direction);
    for (int index = 0;; ++index) {
        snd_seq_query_subscribe_set_index(query, index);
        if (snd_seq_query_port_subscribers(mHandle.get(), query) < 0) {
            return connected;
        }
        const snd_seq_addr_t* address = snd_seq_query_subscribe_get_addr(query);
        connected.push_back({address->client, address->port});
    }
}

bool SequencerClient::HasRoom(int client, unsigned cells, unsigned& freeCells) const {
    const ClientRoom room = RoomOfClient(mDescriptor, client);
    freeCells = room.freeCells;
    // An event that is larger than the client's whole memory will never fit: not worth a wait.
    return room.freeCells >= cells || room.freeCells >= room.allCells;
}

std::vector<SequencerPort> SequencerClient::Ports() const {
    std::vector<SequencerPort> ports;
    snd_seq_client_info_t* client = nullptr;
    snd_seq_client_info_alloca(&client);
    snd_seq_port_info_t* port = nullptr;
    snd_seq_port_info_alloca(&port);
    snd_seq_client_info_set_client(client, -1);
    while (snd_seq_query_next_client(mHandle.get(), client) >= 0) {
        const int id = snd_seq_client_info_get_client(client);
        snd_seq_port_info_set_client(port, id);
        snd_seq_port_info_set_port(port, -1);
        while (snd_seq_query_next_port(mHandle.get(), port) >= 0) {
            ports.push_back({{id, snd_seq_port_info_get_port(port)},
                             fmt::format("{}:{}", snd_seq_client_info_get_name(client),
                                         snd_seq_port_info_get_name(port)),
                             snd_seq_port_info_get_capability(port)});
        }
    }
    return ports;
}

std::string SequencerClient::NameOf(PortAddress address) const {
    snd_seq_client_info_t* client = nullptr;
    snd_seq_client_info_alloca(&client);
    snd_seq_port_info_t* port = nullptr;
    snd_seq_port_info_alloca(&port);
    if (snd_seq_get_any_client_info(mHandle.get(), address.client, client) < 0 ||
        snd_seq_get_any_port_info(mHandle.get(), address.client, address.port, port) < 0) {
        return {};
    }
    return fmt::format("{}:{}", snd_seq_client_info_get_name(client),
                       snd_seq_port_info_get_name(port));
}

unsigned EventCells(const snd_seq_event_t& event) {
    // One for the event, and as many of the same size as its own bytes take.
    if (!snd_seq_ev_is_variable(&event)) {
        return 1;
    }
    return 1 + static_cast<unsigned>((event.data.ext.len + sizeof event - 1) / sizeof event);
}

} // namespace MidiServer
