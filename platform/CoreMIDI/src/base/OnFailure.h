#pragma once

#include <exception>
#include <utility>

namespace CoreMIDI {

// Undoes something when an exception leaves the scope. `undo` must not throw.
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
