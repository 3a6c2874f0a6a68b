#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace HSL {

// Text that is built up and then handed out, record after record in the same memory. It grows as
// needed and never shrinks. What is about to be appended may also be written in place: Room, then
// SetEnd. One thread at a time.
class CTextBuffer {
public:
    CTextBuffer() = default;
    CTextBuffer(const CTextBuffer&) = delete;
    CTextBuffer& operator=(const CTextBuffer&) = delete;

    void Clear() { mEnd = mStart.get(); }
    std::size_t Size() const { return static_cast<std::size_t>(mEnd - mStart.get()); }
    std::string_view View() const { return {mStart.get(), Size()}; }
    // With a terminator; valid until the next change.
    const char* CString() {
        *Room(1) = '\0';
        return mStart.get();
    }

    // The end of the text, with room for `size` characters.
    char* Room(std::size_t size) {
        if (static_cast<std::size_t>(mLimit - mEnd) < size) {
            Grow(size);
        }
        return mEnd;
    }
    // Appends what was written to the room.
    void SetEnd(char* end) { mEnd = end; }

    void Append(char character) {
        *Room(1) = character;
        ++mEnd;
    }
    void Append(std::string_view text) {
        if (!text.empty()) {
            std::memcpy(Room(text.size()), text.data(), text.size());
            mEnd += text.size();
        }
    }
    void Append(std::size_t count, char character) {
        std::memset(Room(count), character, count);
        mEnd += count;
    }
    // Keeps the first `size` characters, of which there are as many.
    void CutTo(std::size_t size) { mEnd = mStart.get() + size; }

private:
    void Grow(std::size_t size) {
        constexpr std::size_t kSmallest = 1024;
        const std::size_t used = Size();
        const auto capacity = static_cast<std::size_t>(mLimit - mStart.get());
        const std::size_t wanted = std::max({kSmallest, 2 * capacity, used + size});
        auto grown = std::make_unique<char[]>(wanted);
        std::copy(mStart.get(), mEnd, grown.get());
        mStart = std::move(grown);
        mEnd = mStart.get() + used;
        mLimit = mStart.get() + wanted;
    }

    std::unique_ptr<char[]> mStart;
    char* mEnd = nullptr;
    char* mLimit = nullptr;
};

} // namespace HSL
