// Why a bundle or plug-in call failed, kept for the calling thread.
//
//     return AnswerPlugInCall([&]() -> CFBundleRef {
//         if (!IsFolder(path)) {
//             throw PlugInFault{path + ": expected a bundle's folder"};
//         }
//         return MakeBundle(path);
//     });
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include <string>
#include <utility>

// Thrown inside the library alone. Its text names the file and what was expected there.
struct PlugInFault {
    std::string text;
};

// Keeps the reason of a failure as the thread's last one, in one line.
void KeepPlugInError(std::string text) noexcept;
// Returns the thread's last one. It is empty if no call has failed on this thread.
const std::string& LastPlugInError();

// Calls `body` and returns its result. If it throws a PlugInFault, keeps its text and returns null;
// also returns null if there is no memory.
template <typename Body>
auto AnswerPlugInCall(const Body& body) noexcept {
    using Result = decltype(body());
    return CFRuntimeGuard(Result{}, [&]() -> Result {
        try {
            return body();
        } catch (PlugInFault& fault) {
            KeepPlugInError(std::move(fault.text));
            return Result{};
        }
    });
}
