// These functions find a message port's socket, open it and connect to it.
//
//     std::string error;
//     const auto path = MessagePort::SocketPath("a port", error);
//     MessagePort::SocketIdentity identity;
//     const FileDescriptor listener = MessagePort::Listen(*path, identity, error);
//
// A function that fails sets `error` to one line that names the path concerned, what is wrong with
// it and what to do. Any thread may call.
#pragma once

#include "platform/support/FileDescriptor.h"

#include <sys/types.h>

#include <optional>
#include <string>

namespace MessagePort {

inline constexpr std::size_t kMaximumName = 128; // bytes

// A SocketIdentity tells one port from a later one of the same name. The file system may give a
// socket the number of one that is gone; so the moment at which it was made counts too.
struct SocketIdentity {
    dev_t device = 0;
    ino_t number = 0;
    time_t seconds = 0;
    long nanoseconds = 0;

    bool operator==(const SocketIdentity&) const = default;
};

// Returns the user's runtime directory and makes it if it is missing. Refuses one that others may
// write to.
std::optional<std::string> Folder(std::string& error);

// Returns the path of a port's socket in the user's runtime directory, which it makes if it is
// missing.
std::optional<std::string> SocketPath(const std::string& name, std::string& error);

// Returns the identity of the socket at a path, or nothing if there is no socket.
std::optional<SocketIdentity> IdentityOf(const std::string& path);

// Makes a listening, non-blocking socket at the path and removes one there that nobody listens on.
// Waits for up to two seconds for other processes that open ports in the same directory.
FileDescriptor Listen(const std::string& path, SocketIdentity& identity, std::string& error);

enum class ConnectResult {
    kConnected,
    kBusy,    // a port listens there, but too many connections wait for it
    kAbsent,  // nobody listens there
    kRefused, // another user listens there, or the system has no descriptor left
};

// Makes a non-blocking connection to the socket at the path. Does not wait.
ConnectResult Connect(const std::string& path, FileDescriptor& connection);

// Returns whether the process at the other end of a connection runs as this user.
bool PeerIsThisUser(int connection);

} // namespace MessagePort
