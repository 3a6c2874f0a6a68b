#include "runtime/socket/NySocket.h"

#include "runtime/socket/HostSocket.h"
#include "runtime/socket/NyResult.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int kNoDescriptor = -1;
constexpr long long kMicrosecondsPerSecond = 1000000;

// The result of a system call that returned `status`.
int ResultOf(int status) {
    return status == 0 ? kNyOK : OSToNyResult(HostErrorToPlatformError(errno));
}

using AddressCall = int (*)(int, sockaddr*, socklen_t*);

int GetAddress(AddressCall call, int descriptor, NySocketAddress& address) {
    if (descriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    const int result = ResultOf(call(descriptor, reinterpret_cast<sockaddr*>(&storage), &length));
    if (result == kNyOK) {
        address = NySocketAddress(reinterpret_cast<const sockaddr*>(&storage));
    }
    return result;
}

} // namespace

constinit std::atomic<bool> NySocket::mInitialized{false};

NySocket::NySocket(int descriptor, bool owns) : mOwnsDescriptor(owns), mDescriptor(descriptor) {}

NySocket::~NySocket() {
    NySocket::Close();
}

int NySocket::Open(tNySocketFamily family, tNySocketType type) {
    mFamily = family;
    mType = type;
    if (mDescriptor != kNoDescriptor) {
        return kNyAlreadyOpen;
    }
    if (!IsInitialized()) {
        Initialize();
    }
    const int protocol = type == kNyStream ? IPPROTO_TCP : IPPROTO_UDP;
    const int descriptor = ::socket(PlatformFamilyToHost(family), type, protocol);
    if (descriptor == kNoDescriptor) {
        return ResultOf(descriptor);
    }
    mDescriptor = descriptor;
    mOwnsDescriptor = true;
    SetNoSigPipe(true);
    return kNyOK;
}

int NySocket::Close() {
    if (!mOwnsDescriptor || mDescriptor == kNoDescriptor) {
        return kNyOK;
    }
    const int result = ResultOf(::close(mDescriptor));
    mDescriptor = kNoDescriptor;
    mBlocking = false;
    mBound = false;
    return result;
}

int NySocket::Bind(const NySocketAddress& address) {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    if (mBound) {
        return kNyAlreadyBound;
    }
    sockaddr_storage storage;
    address.ToNyOSSockAddrStorage(storage);
    const socklen_t length =
        address.GetFamily() == NySocketAddress::kIPv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    const int result =
        ResultOf(::bind(mDescriptor, reinterpret_cast<const sockaddr*>(&storage), length));
    mBound = result == kNyOK;
    return result;
}

int NySocket::GetRemoteAddress(NySocketAddress& address) const {
    return GetAddress(::getpeername, mDescriptor, address);
}

int NySocket::GetLocalAddress(NySocketAddress& address) const {
    return GetAddress(::getsockname, mDescriptor, address);
}

int NySocket::SetBlocking(bool blocking) {
    int nonBlocking = blocking ? 0 : 1;
    if (::ioctl(mDescriptor, FIONBIO, &nonBlocking) != 0) {
        return kNyUnknownError;
    }
    mBlocking = blocking;
    return kNyOK;
}

int NySocket::SetFlag(int level, int option, bool on) {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    const int value = on ? 1 : 0;
    return ResultOf(::setsockopt(mDescriptor, level, option, &value, sizeof value));
}

int NySocket::GetFlag(int level, int option, bool& on) const {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    int value = 0;
    socklen_t length = sizeof value;
    const int result = ResultOf(::getsockopt(mDescriptor, level, option, &value, &length));
    if (result == kNyOK) {
        on = value != 0;
    }
    return result;
}

int NySocket::CheckStream() const {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    return mType == kNyStream ? kNyOK : kNyNotForThisSocketType;
}

int NySocket::SetNoSigPipe(bool on) {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    return ResultOf(SetHostNoSigPipe(mDescriptor, on ? 1 : 0));
}

int NySocket::GetNoSigPipe(bool& on) const {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    int value = 0;
    const int result = ResultOf(GetHostNoSigPipe(mDescriptor, value));
    if (result == kNyOK) {
        on = value != 0;
    }
    return result;
}

int NySocket::SetBroadcast(bool on) {
    return SetFlag(SOL_SOCKET, SO_BROADCAST, on);
}

int NySocket::GetBroadcast(bool& on) const {
    return GetFlag(SOL_SOCKET, SO_BROADCAST, on);
}

int NySocket::SetReuseAddress(bool on) {
    return SetFlag(SOL_SOCKET, SO_REUSEADDR, on);
}

int NySocket::GetReuseAddress(bool& on) const {
    return GetFlag(SOL_SOCKET, SO_REUSEADDR, on);
}

int NySocket::SetLinger(bool on, int seconds) {
    if (const int refused = CheckStream(); refused != kNyOK) {
        return refused;
    }
    const linger value{on ? 1 : 0, seconds};
    return ResultOf(::setsockopt(mDescriptor, SOL_SOCKET, SO_LINGER, &value, sizeof value));
}

int NySocket::GetLinger(bool& on) const {
    if (const int refused = CheckStream(); refused != kNyOK) {
        return refused;
    }
    linger value{};
    socklen_t length = sizeof value;
    const int result = ResultOf(::getsockopt(mDescriptor, SOL_SOCKET, SO_LINGER, &value, &length));
    if (result == kNyOK) {
        on = value.l_onoff != 0;
    }
    return result;
}

int NySocket::SetNoDelay(bool on) {
    const int refused = CheckStream();
    return refused != kNyOK ? refused : SetFlag(IPPROTO_TCP, TCP_NODELAY, on);
}

int NySocket::GetNoDelay(bool& on) const {
    const int refused = CheckStream();
    return refused != kNyOK ? refused : GetFlag(IPPROTO_TCP, TCP_NODELAY, on);
}

int NySocket::SetKeepAlive(bool on) {
    const int refused = CheckStream();
    return refused != kNyOK ? refused : SetFlag(SOL_SOCKET, SO_KEEPALIVE, on);
}

int NySocket::GetKeepAlive(bool& on) const {
    const int refused = CheckStream();
    return refused != kNyOK ? refused : GetFlag(SOL_SOCKET, SO_KEEPALIVE, on);
}

int NySocket::SetTimeout(int option, const NyTime& timeout) {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    timeval value{};
    if (timeout.mSpecial == NyTime::kZero) {
        value.tv_sec = static_cast<time_t>(timeout.mMicroseconds / kMicrosecondsPerSecond);
        value.tv_usec = static_cast<suseconds_t>(timeout.mMicroseconds % kMicrosecondsPerSecond);
    }
    return ResultOf(::setsockopt(mDescriptor, SOL_SOCKET, option, &value, sizeof value));
}

int NySocket::GetTimeout(int option, NyTime& timeout) const {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    timeval value{};
    socklen_t length = sizeof value;
    const int result = ResultOf(::getsockopt(mDescriptor, SOL_SOCKET, option, &value, &length));
    if (result == kNyOK) {
        const long long microseconds = value.tv_sec * kMicrosecondsPerSecond + value.tv_usec;
        timeout.Set(microseconds == 0 ? NyTime::kInfinite : NyTime::kMicroseconds, microseconds);
    }
    return result;
}

int NySocket::SetReceiveTimeout(const NyTime& timeout) {
    return SetTimeout(SO_RCVTIMEO, timeout);
}

int NySocket::GetReceiveTimeout(NyTime& timeout) const {
    return GetTimeout(SO_RCVTIMEO, timeout);
}

int NySocket::SetSendTimeout(const NyTime& timeout) {
    return SetTimeout(SO_SNDTIMEO, timeout);
}

int NySocket::GetSendTimeout(NyTime& timeout) const {
    return GetTimeout(SO_SNDTIMEO, timeout);
}

int NySocket::SetBufferSizes(unsigned long receive, unsigned long send) {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    const auto set = [this](int option, unsigned long size) {
        const int value = static_cast<int>(size);
        return ResultOf(::setsockopt(mDescriptor, SOL_SOCKET, option, &value, sizeof value));
    };
    const int result = set(SO_RCVBUF, receive);
    return result != kNyOK ? result : set(SO_SNDBUF, send);
}

int NySocket::GetBufferSizes(unsigned long& receive, unsigned long& send) const {
    if (mDescriptor == kNoDescriptor) {
        return kNyNoSocket;
    }
    const auto get = [this](int option, unsigned long& size) {
        int value = 0;
        socklen_t length = sizeof value;
        const int result = ResultOf(::getsockopt(mDescriptor, SOL_SOCKET, option, &value, &length));
        if (result == kNyOK) {
            size = static_cast<unsigned long>(RequestedBufferSize(value));
        }
        return result;
    };
    const int result = get(SO_RCVBUF, receive);
    return result != kNyOK ? result : get(SO_SNDBUF, send);
}

void NySocket::Initialize() {
    mInitialized.store(true, std::memory_order_relaxed);
}

void NySocket::Cleanup() {
    mInitialized.store(false, std::memory_order_relaxed);
}

bool NySocket::IsInitialized() {
    return mInitialized.load(std::memory_order_relaxed);
}
