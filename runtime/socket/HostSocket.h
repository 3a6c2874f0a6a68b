// The differences between a host's sockets and those of the driver's first platform. The runtime's
// interface keeps that platform's numbers and meanings on every host. Each host has one source file
// for this.
//
// Any thread may call these functions; they neither block nor allocate.
#pragma once

#include <sys/socket.h>

// Returns the first platform's number for the host's error `hostError`; errors are matched by name,
// so ETIMEDOUT becomes 60. Returns -1 for an error that the first platform does not have.
int HostErrorToPlatformError(int hostError);

// These convert the number of an address family from the first platform's, where IPv6 is 30, to the
// host's, and back. Families other than IPv6 have the same number on both.
int PlatformFamilyToHost(int platformFamily);
int HostFamilyToPlatform(int hostFamily);

// Writes the host's family, and the length where the host keeps one, into `address`.
void SetHostAddressHeader(sockaddr_storage& address, int hostFamily, socklen_t length);

// Set and read the option that keeps a write to a closed connection from raising SIGPIPE. Both
// return 0, or -1 with errno set as setsockopt and getsockopt do. On a host without the option they
// set errno to ENOPROTOOPT.
int SetHostNoSigPipe(int descriptor, int on);
int GetHostNoSigPipe(int descriptor, int& on);

// Returns the buffer size that was asked for, given the size that getsockopt reads back.
int RequestedBufferSize(int readBack);
