// Loaded before Ardour's own libraries. Ardour asks the JACK server from several threads while it
// loads, and JACK's library sends the requests of all of them over one socket without a lock: now
// and then two of them are mixed up, and the server ends the connection. With this library the
// requests go one after the other. Ardour finds JACK's functions by dlsym, which is why that is
// replaced.
#include <jack/jack.h>
#include <jack/metadata.h>

#include <dlfcn.h>

#include <mutex>
#include <string_view>

namespace {

std::recursive_mutex requests;

// Stands before one function of the library; it is a type of its own for each.
template <auto kFunction>
struct Request;

template <typename Result, typename... Arguments, Result (*kFunction)(Arguments...)>
struct Request<kFunction> {
    static Result (*found)(Arguments...);

    static Result Make(Arguments... arguments) {
        const std::lock_guard lock(requests);
        return found(arguments...);
    }

    static void* Replace(void* function) {
        found = reinterpret_cast<Result (*)(Arguments...)>(function);
        return reinterpret_cast<void*>(&Make);
    }
};

template <typename Result, typename... Arguments, Result (*kFunction)(Arguments...)>
Result (*Request<kFunction>::found)(Arguments...) = nullptr;

struct Entry {
    std::string_view name;
    void* (*replace)(void* function);
};

#define QUORVEL_REQUEST(name)                                                                      \
    { #name, Request < name> ::Replace }
constexpr Entry kRequests[] = {
    QUORVEL_REQUEST(jack_activate),
    QUORVEL_REQUEST(jack_client_close),
    QUORVEL_REQUEST(jack_connect),
    QUORVEL_REQUEST(jack_deactivate),
    QUORVEL_REQUEST(jack_disconnect),
    QUORVEL_REQUEST(jack_get_client_name_by_uuid),
    QUORVEL_REQUEST(jack_get_uuid_for_client_name),
    QUORVEL_REQUEST(jack_port_disconnect),
    QUORVEL_REQUEST(jack_port_register),
    QUORVEL_REQUEST(jack_port_rename),
    QUORVEL_REQUEST(jack_port_request_monitor),
    QUORVEL_REQUEST(jack_port_set_alias),
    QUORVEL_REQUEST(jack_port_unregister),
    QUORVEL_REQUEST(jack_port_unset_alias),
    QUORVEL_REQUEST(jack_recompute_total_latencies),
    QUORVEL_REQUEST(jack_release_timebase),
    QUORVEL_REQUEST(jack_remove_properties),
    QUORVEL_REQUEST(jack_remove_property),
    QUORVEL_REQUEST(jack_set_buffer_size),
    QUORVEL_REQUEST(jack_set_freewheel),
    QUORVEL_REQUEST(jack_set_property),
    QUORVEL_REQUEST(jack_set_timebase_callback),
};
#undef QUORVEL_REQUEST

} // namespace

extern "C" __attribute__((visibility("default"))) void* dlsym(void* library,
                                                              const char* name) noexcept {
    using Find = void* (*)(void*, const char*);
    static const auto find = reinterpret_cast<Find>(dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.34"));
    void* const function = find(library, name);
    for (const Entry& request : kRequests) {
        if (function != nullptr && request.name == name) {
            return request.replace(function);
        }
    }
    return function;
}
