#pragma once

#include "platform/support/FileDescriptor.h"

namespace MidiServer {

// While a ServiceLock exists, no other process of this user makes one in the same runtime folder
// (the folder of the message ports, see CFMessagePort.h). The lock ends with its process, however
// that ends. A process has one at a time.
//
//     const ServiceLock lock; // first thing in the service
class ServiceLock {
public:
    // Does not wait. Throws a ServiceStateError with the other process's ID if there is another
    // service, and a HostError if the folder or the lock's file cannot be used.
    ServiceLock();

private:
    FileDescriptor mFile;
};

} // namespace MidiServer
