#include "runtime/thread/NyAtStartFunctions.h"

#include <algorithm>

bool NyAtStartFunctions::Append(Function function) {
    if (function == nullptr) {
        return false;
    }
    return std::any_of(mFunctions.begin(), mFunctions.end(), [function](auto& entry) {
        Function empty = nullptr;
        return entry.compare_exchange_strong(empty, function, std::memory_order_acq_rel);
    });
}

bool NyAtStartFunctions::Contains(Function function) const {
    return function != nullptr &&
           std::any_of(mFunctions.begin(), mFunctions.end(), [function](const auto& entry) {
               return entry.load(std::memory_order_acquire) == function;
           });
}

std::size_t NyAtStartFunctions::Size() const {
    std::size_t size = 0;
    while (At(size) != nullptr) {
        ++size;
    }
    return size;
}

NyAtStartFunctions::Function NyAtStartFunctions::At(std::size_t index) const {
    return index < kCapacity ? mFunctions[index].load(std::memory_order_acquire) : nullptr;
}
