#include "tests/integration/alsa/AlsaFaults.h"

#include "tests/support/LibraryFaults.h"

#include <alsa/asoundlib.h>

#include <cerrno>

namespace QuorvelTest {

const std::vector<std::string>& CallsAtTheStart() {
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

const std::vector<std::string>& CallsWhileRunning() {
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

} // namespace QuorvelTest

#define FALLIBLE(name, parameters, arguments)                                                      \
    QUORVEL_FALLIBLE(int, name, parameters, arguments, -EIO)

FALLIBLE(snd_seq_open, (snd_seq_t * *a, const char* b, int c, int d), (a, b, c, d))
FALLIBLE(snd_seq_set_client_name, (snd_seq_t * a, const char* b), (a, b))
FALLIBLE(snd_seq_set_client_pool_input, (snd_seq_t * a, size_t b), (a, b))
FALLIBLE(snd_seq_set_input_buffer_size, (snd_seq_t * a, size_t b), (a, b))
FALLIBLE(snd_seq_client_id, (snd_seq_t * a), (a))
FALLIBLE(snd_seq_poll_descriptors, (snd_seq_t * a, pollfd* b, unsigned c, short d), (a, b, c, d))
FALLIBLE(snd_seq_create_port, (snd_seq_t * a, snd_seq_port_info_t* b), (a, b))
FALLIBLE(snd_seq_delete_port, (snd_seq_t * a, int b), (a, b))
FALLIBLE(snd_seq_subscribe_port, (snd_seq_t * a, snd_seq_port_subscribe_t* b), (a, b))
FALLIBLE(snd_seq_unsubscribe_port, (snd_seq_t * a, snd_seq_port_subscribe_t* b), (a, b))
FALLIBLE(snd_seq_query_port_subscribers, (snd_seq_t * a, snd_seq_query_subscribe_t* b), (a, b))
FALLIBLE(snd_seq_query_next_client, (snd_seq_t * a, snd_seq_client_info_t* b), (a, b))
FALLIBLE(snd_seq_query_next_port, (snd_seq_t * a, snd_seq_port_info_t* b), (a, b))
FALLIBLE(snd_seq_event_output_direct, (snd_seq_t * a, snd_seq_event_t* b), (a, b))
FALLIBLE(snd_seq_event_input, (snd_seq_t * a, snd_seq_event_t** b), (a, b))
