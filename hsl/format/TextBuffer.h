#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace HSL {

// A text that is built up piece by piece. It grows as needed and never shrinks, so that one object
// serves record after record in the same memory. A piece can also be written in place, where that
// saves a copy:
//
//     text.Append("channel ");
//     char* const start = text.Room(20);
//     text.SetEnd(std::to_chars(start, start + 20, channel).ptr);
//
// Only one thread at a time may use an object.
class CTextBuffer {
public:
    CTextBuffer() = default;
    CTextBuffer(const CTextBuffer&) = delete;
    CTextBuffer& operator=(const CTextBuffer&) = delete;

    void Clear() { mEnd = mStart.get(); }
    std::size_t Size() const { return static_cast<std::size_t>(mEnd - mStart.get()); }
    std::string_view View() const { return {mStart.get(), Size()}; }
    // Returns the text with a terminator. It is valid until the next change.
    const char* CString() {
        *Room(1) = '\0';
        return mStart.get();
    }

    // Returns the end of the text, behind which there is room for `size` characters.
    char* Room(std::size_t size) {
        if (static_cast<std::size_t>(mLimit - mEnd) < size) {
            Grow(size);
        }
        return mEnd;
    }
    // Appends what was written from Room up to `end`.
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
    // Keeps the first `size` characters. The text must have as many.
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
