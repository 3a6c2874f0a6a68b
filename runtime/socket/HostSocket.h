// Where a host's sockets differ from those of the driver's first platform, whose numbers and
// meanings the runtime's interface keeps. One source file a host.
//
// Any thread; nothing blocks or allocates.
#pragma once

#include <sys/socket.h>

// The first platform's number of the host's error `hostError`, matched by name; -1 for an error
// that the first platform does not have.
int HostErrorToPlatformError(int hostError);

// The host's number of an address family given as the first platform's: 30 is IPv6. Any other
// family is returned as it is. And back.
int PlatformFamilyToHost(int platformFamily);
int HostFamilyToPlatform(int hostFamily);

// Writes the host's family, and the length where the host keeps one, into `address`.
void SetHostAddressHeader(sockaddr_storage& address, int hostFamily, socklen_t length);

// Whether writing to a closed connection raises SIGPIPE. Both return 0, or -1 with errno set as
// setsockopt and getsockopt do; a host without the option sets errno to ENOPROTOOPT.
int SetHostNoSigPipe(int descriptor, int on);
int GetHostNoSigPipe(int descriptor, int& on);

// The buffer size that was asked for, given what getsockopt reads back for it.
int RequestedBufferSize(int readBack);
