#pragma once

#include <exception>
#include <utility>

namespace CoreMIDI {

// An OnFailure calls `undo` if an exception leaves the scope that it is declared in. `undo` must
// not throw.
//
//     list.push_back(object);
//     const OnFailure remove([&] { list.pop_back(); });
//     UpdateRoutes(*object); // may throw
template <typename Undo>
class OnFailure {
public:
    explicit OnFailure(Undo undo) : mUndo(std::move(undo)) {}
    ~OnFailure() {
        if (std::uncaught_exceptions() > mExceptions) {
            mUndo();
        }
    }
    OnFailure(const OnFailure&) = delete;
    OnFailure& operator=(const OnFailure&) = delete;

private:
    const int mExceptions = std::uncaught_exceptions();
    Undo mUndo;
};

} // namespace CoreMIDI
