#include "tests/support/LibraryFaults.h"

#include <atomic>
#include <cstring>

namespace TestSupport {

namespace {

std::atomic<const char*> sFailing{nullptr};
std::atomic<int> sOthers{0};

} // namespace

void LibraryFaults::FailNext(const char* function, int others) {
    sFailing = nullptr; // no call of the last order counts for this one
    sOthers = others;
    sFailing = function;
}

bool LibraryFaults::HasFailed() {
    return sFailing == nullptr;
}

void LibraryFaults::FailNone() {
    sFailing = nullptr;
}

bool LibraryFaults::MustFail(const char* function) {
    const char* failing = sFailing.load();
    return failing != nullptr && std::strcmp(failing, function) == 0 && sOthers.fetch_sub(1) <= 0 &&
           sFailing.compare_exchange_strong(failing, nullptr);
}

} // namespace TestSupport
