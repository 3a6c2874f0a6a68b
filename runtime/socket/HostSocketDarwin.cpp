// The driver's first platform itself. Nothing differs there, except that an address keeps its own
// length.
#include "runtime/socket/HostSocket.h"

int HostErrorToPlatformError(int hostError) {
    return hostError;
}

int PlatformFamilyToHost(int platformFamily) {
    return platformFamily;
}

int HostFamilyToPlatform(int hostFamily) {
    return hostFamily;
}

void SetHostAddressHeader(sockaddr_storage& address, int hostFamily, socklen_t length) {
    address.ss_len = static_cast<unsigned char>(length);
    address.ss_family = static_cast<sa_family_t>(hostFamily);
}

int SetHostNoSigPipe(int descriptor, int on) {
    return setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
}

int GetHostNoSigPipe(int descriptor, int& on) {
    socklen_t length = sizeof on;
    return getsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, &length);
}

int RequestedBufferSize(int readBack) {
    return readBack;
}
