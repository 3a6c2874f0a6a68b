#include "tests/integration/jack/JackFaults.h"

#include "tests/support/LibraryFaults.h"

#include <jack/jack.h>
#include <jack/metadata.h>
#include <jack/midiport.h>
#include <jack/uuid.h>

// Each function that can fail, with what it returns then.
#define FALLIBLE_FUNCTIONS(FALLIBLE)                                                               \
    FALLIBLE(int, jack_activate, (jack_client_t * a), (a), -1)                                     \
    FALLIBLE(int, jack_connect, (jack_client_t * a, const char* b, const char* c), (a, b, c), -1)  \
    FALLIBLE(jack_nframes_t, jack_cycle_wait, (jack_client_t * a), (a), 0)                         \
    FALLIBLE(int, jack_deactivate, (jack_client_t * a), (a), -1)                                   \
    FALLIBLE(int, jack_disconnect, (jack_client_t * a, const char* b, const char* c), (a, b, c),   \
             -1)                                                                                   \
    FALLIBLE(jack_nframes_t, jack_get_buffer_size, (jack_client_t * a), (a), 0)                    \
    FALLIBLE(                                                                                      \
        int, jack_get_cycle_times,                                                                 \
        (const jack_client_t* a, jack_nframes_t* b, jack_time_t* c, jack_time_t* d, float* e),     \
        (a, b, c, d, e), -1)                                                                       \
    FALLIBLE(const char**, jack_get_ports,                                                         \
             (jack_client_t * a, const char* b, const char* c, unsigned long d), (a, b, c, d),     \
             nullptr)                                                                              \
    FALLIBLE(jack_nframes_t, jack_get_sample_rate, (jack_client_t * a), (a), 0)                    \
    FALLIBLE(char*, jack_get_uuid_for_client_name, (jack_client_t * a, const char* b), (a, b),     \
             nullptr)                                                                              \
    FALLIBLE(int, jack_midi_event_get, (jack_midi_event_t * a, void* b, uint32_t c), (a, b, c),    \
             -1)                                                                                   \
    FALLIBLE(jack_midi_data_t*, jack_midi_event_reserve, (void* a, jack_nframes_t b, size_t c),    \
             (a, b, c), nullptr)                                                                   \
    FALLIBLE(size_t, jack_midi_max_event_size, (void* a), (a), 0)                                  \
    FALLIBLE(jack_port_t*, jack_port_by_id, (jack_client_t * a, jack_port_id_t b), (a, b),         \
             nullptr)                                                                              \
    FALLIBLE(jack_port_t*, jack_port_by_name, (jack_client_t * a, const char* b), (a, b), nullptr) \
    FALLIBLE(int, jack_port_flags, (const jack_port_t* a), (a), 0)                                 \
    FALLIBLE(int, jack_port_get_aliases, (const jack_port_t* a, char* const b[2]), (a, b), -1)     \
    FALLIBLE(const char**, jack_port_get_all_connections,                                          \
             (const jack_client_t* a, const jack_port_t* b), (a, b), nullptr)                      \
    FALLIBLE(void*, jack_port_get_buffer, (jack_port_t * a, jack_nframes_t b), (a, b), nullptr)    \
    FALLIBLE(const char*, jack_port_name, (const jack_port_t* a), (a), nullptr)                    \
    FALLIBLE(jack_port_t*, jack_port_register,                                                     \
             (jack_client_t * a, const char* b, const char* c, unsigned long d, unsigned long e),  \
             (a, b, c, d, e), nullptr)                                                             \
    FALLIBLE(int, jack_port_set_alias, (jack_port_t * a, const char* b), (a, b), -1)               \
    FALLIBLE(int, jack_port_unregister, (jack_client_t * a, jack_port_t * b), (a, b), -1)          \
    FALLIBLE(int, jack_port_unset_alias, (jack_port_t * a, const char* b), (a, b), -1)             \
    FALLIBLE(jack_uuid_t, jack_port_uuid, (const jack_port_t* a), (a), 0)                          \
    FALLIBLE(int, jack_set_buffer_size_callback,                                                   \
             (jack_client_t * a, JackBufferSizeCallback b, void* c), (a, b, c), -1)                \
    FALLIBLE(int, jack_set_port_connect_callback,                                                  \
             (jack_client_t * a, JackPortConnectCallback b, void* c), (a, b, c), -1)               \
    FALLIBLE(int, jack_set_port_registration_callback,                                             \
             (jack_client_t * a, JackPortRegistrationCallback b, void* c), (a, b, c), -1)          \
    FALLIBLE(int, jack_set_process_thread, (jack_client_t * a, JackThreadCallback b, void* c),     \
             (a, b, c), -1)                                                                        \
    FALLIBLE(int, jack_set_property,                                                               \
             (jack_client_t * a, jack_uuid_t b, const char* c, const char* d, const char* e),      \
             (a, b, c, d, e), -1)                                                                  \
    FALLIBLE(int, jack_set_sample_rate_callback,                                                   \
             (jack_client_t * a, JackSampleRateCallback b, void* c), (a, b, c), -1)

using TestSupport::LibraryFaults;

namespace JackTest {

const std::vector<std::string>& FunctionsThatCanFail() {
#define NAME_OF(result, name, parameters, arguments, failure) #name,
    static const std::vector<std::string> functions = {
        FALLIBLE_FUNCTIONS(NAME_OF) "jack_client_open", "jack_client_close"};
    return functions;
}

const std::vector<std::string>& FunctionsThatCannotFail() {
    static const std::vector<std::string> functions = {
        "jack_cycle_signal",
        "jack_free",
        "jack_get_time",
        "jack_get_version_string",
        "jack_midi_clear_buffer",
        "jack_midi_get_event_count",
        "jack_midi_get_lost_event_count",
        "jack_on_shutdown",
        "jack_port_name_size",
        "jack_set_error_function",
        "jack_set_info_function",
    };
    return functions;
}

} // namespace JackTest

FALLIBLE_FUNCTIONS(QUORVEL_FALLIBLE)

namespace {

using Open = jack_client_t*(const char*, jack_options_t, jack_status_t*, ...);
using Close = int(jack_client_t*);

Open* const sOriginalOpen = TestSupport::OriginalOf<Open>("jack_client_open");
Close* const sOriginalClose = TestSupport::OriginalOf<Close>("jack_client_close");

} // namespace

extern "C" {

__attribute__((visibility("default"))) jack_client_t* ReplacedOpen(const char* name,
                                                                   jack_options_t options,
                                                                   jack_status_t* status,
                                                                   ...) asm("jack_client_open");
jack_client_t* ReplacedOpen(const char* name, jack_options_t options, jack_status_t* status, ...) {
    if (!LibraryFaults::MustFail("jack_client_open")) {
        return sOriginalOpen(name, options, status);
    }
    if (status != nullptr) {
        *status = static_cast<jack_status_t>(JackFailure | JackServerError);
    }
    return nullptr;
}

// A client is gone even if its end has failed: nothing can be done with it any more.
__attribute__((visibility("default"))) int
ReplacedClose(jack_client_t* client) asm("jack_client_close");
int ReplacedClose(jack_client_t* client) {
    const int result = sOriginalClose(client);
    return LibraryFaults::MustFail("jack_client_close") ? -1 : result;
}
}
