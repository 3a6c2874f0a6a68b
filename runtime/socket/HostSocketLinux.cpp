#include "runtime/socket/HostSocket.h"

#include <cerrno>

namespace {

// The number of IPv6 on the driver's first platform.
constexpr int kPlatformIPv6 = 30;

struct ErrorPair {
    int host;
    int platform;
};

// The error numbers of the first platform, beside the host's of the same name.
constexpr ErrorPair kErrors[] = {
    {EPERM, 1},
    {ENOENT, 2},
    {ESRCH, 3},
    {EINTR, 4},
    {EIO, 5},
    {ENXIO, 6},
    {E2BIG, 7},
    {ENOEXEC, 8},
    {EBADF, 9},
    {ECHILD, 10},
    {EDEADLK, 11},
    {ENOMEM, 12},
    {EACCES, 13},
    {EFAULT, 14},
    {ENOTBLK, 15},
    {EBUSY, 16},
    {EEXIST, 17},
    {EXDEV, 18},
    {ENODEV, 19},
    {ENOTDIR, 20},
    {EISDIR, 21},
    {EINVAL, 22},
    {ENFILE, 23},
    {EMFILE, 24},
    {ENOTTY, 25},
    {ETXTBSY, 26},
    {EFBIG, 27},
    {ENOSPC, 28},
    {ESPIPE, 29},
    {EROFS, 30},
    {EMLINK, 31},
    {EPIPE, 32},
    {EDOM, 33},
    {ERANGE, 34},
    {EAGAIN, 35},
    {EINPROGRESS, 36},
    {EALREADY, 37},
    {ENOTSOCK, 38},
    {EDESTADDRREQ, 39},
    {EMSGSIZE, 40},
    {EPROTOTYPE, 41},
    {ENOPROTOOPT, 42},
    {EPROTONOSUPPORT, 43},
    {ESOCKTNOSUPPORT, 44},
    {EOPNOTSUPP, 45},
    {EPFNOSUPPORT, 46},
    {EAFNOSUPPORT, 47},
    {EADDRINUSE, 48},
    {EADDRNOTAVAIL, 49},
    {ENETDOWN, 50},
    {ENETUNREACH, 51},
    {ENETRESET, 52},
    {ECONNABORTED, 53},
    {ECONNRESET, 54},
    {ENOBUFS, 55},
    {EISCONN, 56},
    {ENOTCONN, 57},
    {ESHUTDOWN, 58},
    {ETOOMANYREFS, 59},
    {ETIMEDOUT, 60},
    {ECONNREFUSED, 61},
    {ELOOP, 62},
    {ENAMETOOLONG, 63},
    {EHOSTDOWN, 64},
    {EHOSTUNREACH, 65},
    {ENOTEMPTY, 66},
    {EUSERS, 68},
    {EDQUOT, 69},
    {ESTALE, 70},
    {EREMOTE, 71},
    {ENOLCK, 77},
    {ENOSYS, 78},
    {EOVERFLOW, 84},
    {ECANCELED, 89},
    {EIDRM, 90},
    {ENOMSG, 91},
    {EILSEQ, 92},
    {EBADMSG, 94},
    {EMULTIHOP, 95},
    {ENODATA, 96},
    {ENOLINK, 97},
    {ENOSR, 98},
    {ENOSTR, 99},
    {EPROTO, 100},
    {ETIME, 101},
};

} // namespace

int HostErrorToPlatformError(int hostError) {
    if (hostError == 0) {
        return 0;
    }
    for (const ErrorPair& error : kErrors) {
        if (error.host == hostError) {
            return error.platform;
        }
    }
    return -1;
}

int PlatformFamilyToHost(int platformFamily) {
    return platformFamily == kPlatformIPv6 ? AF_INET6 : platformFamily;
}

int HostFamilyToPlatform(int hostFamily) {
    return hostFamily == AF_INET6 ? kPlatformIPv6 : hostFamily;
}

void SetHostAddressHeader(sockaddr_storage& address, int hostFamily, socklen_t /*length*/) {
    address.ss_family = static_cast<sa_family_t>(hostFamily);
}

int SetHostNoSigPipe(int /*descriptor*/, int /*on*/) {
    errno = ENOPROTOOPT;
    return -1;
}

int GetHostNoSigPipe(int /*descriptor*/, int& /*on*/) {
    errno = ENOPROTOOPT;
    return -1;
}

int RequestedBufferSize(int readBack) {
    // The kernel doubles the size that is asked for, as it needs room for its own bookkeeping, and
    // reads the doubled size back.
    return readBack / 2;
}
