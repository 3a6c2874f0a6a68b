#include "midiserver/backends/alsa/ClientRoom.h"

#include <sys/ioctl.h>

// The kernel's own interface: the library asks for the memory of its own client only.
#include <sound/asequencer.h>

namespace MidiServer {

ClientRoom RoomOfClient(int sequencer, int client) {
    snd_seq_client_pool pool{};
    pool.client = client;
    if (ioctl(sequencer, SNDRV_SEQ_IOCTL_GET_CLIENT_POOL, &pool) != 0 || pool.input_pool <= 0 ||
        pool.input_free < 0) {
        return {0, 0};
    }
    return {static_cast<unsigned>(pool.input_pool), static_cast<unsigned>(pool.input_free)};
}

} // namespace MidiServer
