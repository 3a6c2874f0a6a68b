#pragma once

#include <dlfcn.h>

namespace TestSupport {

// Makes calls of this program into a library fail, one at a time. For each function that can fail,
// the program has one of its own in front of the library's (QUORVEL_FALLIBLE).
//
//     LibraryFaults::FailNext("jack_port_register");
//     ...
//     EXPECT_TRUE(LibraryFaults::HasFailed());
//
// Any thread may call, and any may be the one whose call fails.
class LibraryFaults {
public:
    // The next call of this function fails, once, or the one after so many others. Replaces what
    // was ordered before. The text must last until then.
    static void FailNext(const char* function, int others = 0);
    // Whether it has been called since.
    static bool HasFailed();
    static void FailNone();

    // Asked by the functions themselves: true once for each order.
    static bool MustFail(const char* function);
};

// The library's function of this name, behind the program's.
template <typename Function>
Function* OriginalOf(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace TestSupport

// Defines a function that stands in front of a library's and returns `failure` when it is to fail,
// at the outermost level of a source. Under another name in C++: the libraries' declarations have
// attributes of their own. The original is looked up before any call, because JACK ends a thread
// wherever it is, and the search is no place for that.
#define QUORVEL_FALLIBLE(result, name, parameters, arguments, failure)                             \
    static result(*const sOriginal_##name) parameters =                                            \
        TestSupport::OriginalOf<result parameters>(#name);                                         \
    extern "C" __attribute__((visibility("default")))                                              \
    result Replaced_##name parameters asm(#name);                                                  \
    extern "C" result Replaced_##name parameters {                                                 \
        return TestSupport::LibraryFaults::MustFail(#name) ? failure : sOriginal_##name arguments; \
    }
