#include "tests/integration/alsa/AlsaFaults.h"

#include <alsa/asoundlib.h>

#include <dlfcn.h>

#include <atomic>
#include <cerrno>

namespace QuorvelTest {

namespace {

// The function whose next call fails: the address of its name in one of the lists.
std::atomic<const std::string*> sFailing{nullptr};

// Calls the library's function of this name, or fails in its place.
template <typename... Arguments>
int Call(const char* function, Arguments... arguments) {
    const std::string* failing = sFailing.load();
    if (failing != nullptr && *failing == function &&
        sFailing.compare_exchange_strong(failing, nullptr)) {
        return -EIO;
    }
    const auto real = reinterpret_cast<int (*)(Arguments...)>(dlsym(RTLD_NEXT, function));
    return real(arguments...);
}

} // namespace

const std::vector<std::string>& AlsaFaults::CallsAtTheStart() {
    static const std::vector<std::string> functions = {
        "snd_seq_open",
        "snd_seq_set_client_name",
        "snd_seq_set_client_pool_input",
        "snd_seq_set_input_buffer_size",
        "snd_seq_client_id",
        "snd_seq_poll_descriptors",
        "snd_seq_create_port",
        "snd_seq_subscribe_port",
        "snd_seq_query_port_subscribers",
        "snd_seq_query_next_client",
        "snd_seq_query_next_port",
        "snd_seq_event_input",
    };
    return functions;
}

const std::vector<std::string>& AlsaFaults::CallsWhileRunning() {
    static const std::vector<std::string> functions = {
        "snd_seq_create_port",
        "snd_seq_delete_port",
        "snd_seq_subscribe_port",
        "snd_seq_unsubscribe_port",
        "snd_seq_query_port_subscribers",
        "snd_seq_query_next_client",
        "snd_seq_query_next_port",
        "snd_seq_event_output_direct",
        "snd_seq_event_input",
    };
    return functions;
}

void AlsaFaults::FailNext(const std::string& function) {
    sFailing = &function;
}

bool AlsaFaults::HasFailed() {
    return sFailing == nullptr;
}

void AlsaFaults::FailNone() {
    sFailing = nullptr;
}

} // namespace QuorvelTest

// These stand before the library's, for everything in this program.
extern "C" {

int snd_seq_open(snd_seq_t** handle, const char* name, int streams, int mode) {
    return QuorvelTest::Call("snd_seq_open", handle, name, streams, mode);
}
int snd_seq_set_client_name(snd_seq_t* handle, const char* name) {
    return QuorvelTest::Call("snd_seq_set_client_name", handle, name);
}
int snd_seq_set_client_pool_input(snd_seq_t* handle, size_t size) {
    return QuorvelTest::Call("snd_seq_set_client_pool_input", handle, size);
}
int snd_seq_set_input_buffer_size(snd_seq_t* handle, size_t size) {
    return QuorvelTest::Call("snd_seq_set_input_buffer_size", handle, size);
}
int snd_seq_client_id(snd_seq_t* handle) {
    return QuorvelTest::Call("snd_seq_client_id", handle);
}
int snd_seq_poll_descriptors(snd_seq_t* handle, pollfd* descriptors, unsigned space, short events) {
    return QuorvelTest::Call("snd_seq_poll_descriptors", handle, descriptors, space, events);
}
int snd_seq_create_port(snd_seq_t* handle, snd_seq_port_info_t* info) {
    return QuorvelTest::Call("snd_seq_create_port", handle, info);
}
int snd_seq_delete_port(snd_seq_t* handle, int port) {
    return QuorvelTest::Call("snd_seq_delete_port", handle, port);
}
int snd_seq_subscribe_port(snd_seq_t* handle, snd_seq_port_subscribe_t* subscription) {
    return QuorvelTest::Call("snd_seq_subscribe_port", handle, subscription);
}
int snd_seq_unsubscribe_port(snd_seq_t* handle, snd_seq_port_subscribe_t* subscription) {
    return QuorvelTest::Call("snd_seq_unsubscribe_port", handle, subscription);
}
int snd_seq_query_port_subscribers(snd_seq_t* handle, snd_seq_query_subscribe_t* query) {
    return QuorvelTest::Call("snd_seq_query_port_subscribers", handle, query);
}
int snd_seq_query_next_client(snd_seq_t* handle, snd_seq_client_info_t* info) {
    return QuorvelTest::Call("snd_seq_query_next_client", handle, info);
}
int snd_seq_query_next_port(snd_seq_t* handle, snd_seq_port_info_t* info) {
    return QuorvelTest::Call("snd_seq_query_next_port", handle, info);
}
int snd_seq_event_output_direct(snd_seq_t* handle, snd_seq_event_t* event) {
    return QuorvelTest::Call("snd_seq_event_output_direct", handle, event);
}
int snd_seq_event_input(snd_seq_t* handle, snd_seq_event_t** event) {
    return QuorvelTest::Call("snd_seq_event_input", handle, event);
}
}
