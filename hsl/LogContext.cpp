#include "hsl/LogContext.h"

#include "MidiDriver/worker/circular_buffer/InPlaceRoom.h"
#include "hsl/record/RecordFormat.h"
#include "hsl/record/RecordWriter.h"
#include "runtime/sync/NyLock.h"
#include "runtime/time/NyTime.h"

#include <libkern/OSAtomic.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace HSL {

namespace {

// The room that is kept for the banner and for the message that reaches the threshold.
constexpr int kHeadroom = 4096;
constexpr char kDroppedBanner[] = "*** HSLOG DROPPED MESSAGE(S) ***";
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
// Of a record up to its categories.
constexpr std::size_t kHeadSize = 14;
// As many bytes of a set are copied at once, its count included.
constexpr std::size_t kFewCategories = 8;

int SizeOrDefault(int size) {
    return size == 0 ? CLogManager::Instance()->GetBufferSize() : size;
}

} // namespace

CLogContext::CLogContext(const char* name, int size, void* (*mallocFunc)(int),
                         void (*freeFunc)(void*, int))
    : mBuffer(1, static_cast<unsigned int>(SizeOrDefault(size)), mallocFunc, freeFunc,
              CCircularBuffer::CopyFunc),
      mName(name),
      mDropThreshold(SizeOrDefault(size) - kHeadroom),
      mResumeThreshold(static_cast<std::int32_t>(SizeOrDefault(size) * 0.75)) {
    CLogManager::AddContext(this);
}

CLogContext::~CLogContext() {
    CLogManager::RemoveContext(this);
}

void* CLogContext::MallocFunc(int size) {
    return std::malloc(static_cast<std::size_t>(size));
}

void CLogContext::FreeFunc(void* block, int /*size*/) {
    std::free(block);
}

void CLogContext::SetName(const char* name) {
    const NyLockGuard guard(CLogManager::AddRemoveContextLock(), true);
    mName = name;
}

unsigned char* CLogContext::PutHead(unsigned char* end) const {
    const std::int32_t sequence = CLogManager::NextSequence();
    NyTime now;
    now.SetToCurrentTime();
    end = CValue::PutRaw(end, kRecordMarker);
    end = CValue::PutRaw(end, sequence);
    end =
        CValue::PutRaw(end, static_cast<std::uint32_t>(now.mMicroseconds / kMicrosecondsPerSecond));
    end =
        CValue::PutRaw(end, static_cast<std::uint32_t>(now.mMicroseconds % kMicrosecondsPerSecond));
    return CValue::PutRaw(end, static_cast<unsigned char>(std::clamp(mIndent, 0, 255)));
}

void CLogContext::WriteHead(CRecordWriter& writer, const CCat& cat) const {
    writer.Advance(PutHead(writer.Room(kHeadSize)));
    writer.PutBytes(&cat, 1U + cat.Count());
}

unsigned char* CLogContext::BeginInPlace(const CCat& cat, std::uint32_t size) {
    _t_circular_buffer* const ring = mBuffer.GetRing();
    if (mDropping || ring == nullptr) {
        return nullptr;
    }
    const CInPlaceRoom room(*ring);
    if (static_cast<std::int32_t>(room.Used()) >= mDropThreshold ||
        room.Run() <= kHeadSize + kFewCategories + cat.Count() + size) {
        return nullptr;
    }
    unsigned char* const end = PutHead(room.Start());
    if (cat.Count() < kFewCategories) {
        // Of a fixed size. What is too much is written over, or is never stored.
        std::memcpy(end, &cat, kFewCategories);
    } else {
        std::memcpy(end, &cat, 1U + cat.Count());
    }
    return end + 1 + cat.Count();
}

int CLogContext::EndInPlace(const unsigned char* end) {
    CInPlaceRoom::Store(*mBuffer.GetRing(), end);
    return LogPost();
}

void CLogContext::LogPre(const CCat& cat) {
    CRecordWriter writer(mBuffer);
    WriteHead(writer, cat);
}

int CLogContext::LogPost() {
    return OSAtomicAdd32Barrier(1, &mPending);
}

int CLogContext::LogRecord(const CCat& cat, const Format& format, const CValue* values, int count) {
    const _t_circular_buffer* const ring = mBuffer.GetRing();
    const int used = ring == nullptr ? 0 : static_cast<int>(cb_get_num_elem_used(ring));
    if (mDropping) {
        if (used >= mResumeThreshold) {
            // The gap in the sequence tells of the lost message.
            CLogManager::NextSequence();
            return 0;
        }
        mDropping = false;
    } else if (used >= mDropThreshold) {
        mDropping = true;
        WriteRecord(cat, Format{kDroppedBanner, kIsText}, nullptr, 0);
        LogPost();
        return 0;
    }
    WriteRecord(cat, format, values, count);
    return LogPost();
}

void CLogContext::WriteRecord(const CCat& cat, const Format& format, const CValue* values,
                              int count) {
    CRecordWriter writer(mBuffer);
    WriteHead(writer, cat);
    if (format.mID == kIsText) {
        writer.Put(eFormatText);
        writer.PutText(format.mText);
    } else {
        writer.Put(eFormatId);
        writer.Put(static_cast<std::int16_t>(format.mID));
    }
    writer.Put(static_cast<unsigned char>(count));
    for (int i = 0; i < count; ++i) {
        writer.PutValue(values[i]);
    }
}

} // namespace HSL
