#include "hsl/LogContext.h"

#include "tests/unit/hsl/LoggingTest.h"
#include "tests/unit/hsl/record/RecordBytes.h"

#include <gmock/gmock.h>

#include <array>
#include <memory>

namespace HSL {
namespace {

using RecordBytes::Join;
using RecordBytes::Raw;
using RecordBytes::Reader;
using RecordBytes::Record;
using Bytes = std::vector<unsigned char>;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kBanner[] = "*** HSLOG DROPPED MESSAGE(S) ***";

class LogContextTest : public LoggingTest {
protected:
    static Record Only(OwnContext& context) {
        Reader reader(context.Take());
        Record record = reader.Next();
        EXPECT_TRUE(reader.IsAtEnd());
        return record;
    }
    // The sequence number that the next record gets, at the cost of one.
    static std::int32_t SequenceNow() { return CLogManager::NextSequence(); }
};

TEST_F(LogContextTest, AMessageOfDisabledCategoriesTouchesNeitherRingNorSequence) {
    OwnContext context;
    const std::int32_t before = SequenceNow();
    EXPECT_EQ(context.Log(CCat(kError), "x"), 0);
    EXPECT_EQ(context.Log(CCat(kError), short{0}, 1, 2.0, "text"), 0);
    EXPECT_EQ(context.Log(CCat{}, "no category"), 0);
    EXPECT_EQ(context.Used(), 0);
    EXPECT_EQ(SequenceNow(), before + 1);
}

TEST_F(LogContextTest, OneEnabledCategoryOfSeveralIsEnough) {
    OwnContext context;
    EXPECT_EQ(context.Log(CCat{kError, 100, kInfo}, "x"), 1);
}

TEST_F(LogContextTest, WritesARecordFieldByField) {
    OwnContext context;
    mClock.AdvanceWallTime(std::chrono::microseconds(123456));
    context.SetIndent(2);
    context.Log(CCat(kInfo, 77), short{0x1234}, 7, "ab");
    EXPECT_EQ(context.Take(),
              Join(Bytes{0}, Raw(std::int32_t{1}), Raw(std::uint32_t{1000000000}),
                   Raw(std::uint32_t{123456}), Bytes{2}, Bytes{2, 3, 77}, Bytes{3},
                   Raw(std::int16_t{0x1234}), Bytes{2}, Bytes{6}, Raw(std::int32_t{7}), Bytes{16},
                   Raw(std::uint16_t{2}), Raw("ab")));
    context.Log(kCat, "text");
    EXPECT_EQ(context.Take(), Join(Bytes{0}, Raw(std::int32_t{2}), Raw(std::uint32_t{1000000000}),
                                   Raw(std::uint32_t{123456}), Bytes{2}, Bytes{1, 3}, Bytes{1},
                                   Raw(std::uint16_t{4}), Raw("text"), Bytes{0}));
}

TEST_F(LogContextTest, AnIndependentReaderFindsEveryField) {
    OwnContext context;
    context.Log(kCat, short{-1}, 'c', short{-2}, 3, -4LL, static_cast<unsigned char>(5),
                static_cast<unsigned short>(6), 7U, 8ULL, 9.5F, 10.5);
    const Record record = Only(context);
    EXPECT_EQ(record.mMarker, 0);
    EXPECT_EQ(record.mSequence, 1);
    EXPECT_EQ(record.mSeconds, 1000000000u);
    EXPECT_EQ(record.mMicroseconds, 0u);
    EXPECT_EQ(record.mFormatTag, 3);
    EXPECT_EQ(record.mFormatID, -1);
    ASSERT_EQ(record.mArguments.size(), 10u);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(record.mArguments[static_cast<std::size_t>(i)].mKind, 4 + i);
    }
    EXPECT_EQ(record.mArguments[0].As<std::int8_t>(), 'c');
    EXPECT_EQ(record.mArguments[1].As<std::int16_t>(), -2);
    EXPECT_EQ(record.mArguments[2].As<std::int32_t>(), 3);
    EXPECT_EQ(record.mArguments[3].As<std::int64_t>(), -4);
    EXPECT_EQ(record.mArguments[4].As<std::uint8_t>(), 5);
    EXPECT_EQ(record.mArguments[5].As<std::uint16_t>(), 6);
    EXPECT_EQ(record.mArguments[6].As<std::uint32_t>(), 7u);
    EXPECT_EQ(record.mArguments[7].As<std::uint64_t>(), 8u);
    EXPECT_EQ(record.mArguments[8].As<float>(), 9.5F);
    EXPECT_EQ(record.mArguments[9].As<double>(), 10.5);
}

template <typename Format>
void LogEveryCount(OwnContext& context, const CCat& cat, Format format) {
    context.Log(cat, format);
    context.Log(cat, format, 1);
    context.Log(cat, format, 1, 2);
    context.Log(cat, format, 1, 2, 3);
    context.Log(cat, format, 1, 2, 3, 4);
    context.Log(cat, format, 1, 2, 3, 4, 5);
    context.Log(cat, format, 1, 2, 3, 4, 5, 6);
    context.Log(cat, format, 1, 2, 3, 4, 5, 6, 7);
    context.Log(cat, format, 1, 2, 3, 4, 5, 6, 7, 8);
    context.Log(cat, format, 1, 2, 3, 4, 5, 6, 7, 8, 9);
    context.Log(cat, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
}

TEST_F(LogContextTest, TakesZeroToTenArgumentsWithAnIDOrAText) {
    OwnContext context;
    LogEveryCount(context, kCat, short{300});
    LogEveryCount(context, kCat, "a format");
    Reader reader(context.Take());
    for (const bool isText : {false, true}) {
        for (std::size_t count = 0; count <= 10; ++count) {
            const Record record = reader.Next();
            EXPECT_EQ(record.mFormatTag, isText ? 1 : 3);
            EXPECT_EQ(record.mFormatID, isText ? 0 : 300);
            EXPECT_EQ(record.mFormatText, isText ? "a format" : "");
            ASSERT_EQ(record.mArguments.size(), count);
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_EQ(record.mArguments[i].As<std::int32_t>(), static_cast<int>(i) + 1);
            }
        }
    }
    EXPECT_TRUE(reader.IsAtEnd());
}

TEST_F(LogContextTest, ReturnsHowManyRecordsArePending) {
    OwnContext context;
    EXPECT_EQ(context.Log(kCat, "one"), 1);
    EXPECT_EQ(context.Log(kCat, "two"), 2);
    Manager().Collect();
    EXPECT_EQ(context.Log(kCat, "three"), 1);
}

TEST_F(LogContextTest, ANullFormatIsRecordedAsText) {
    OwnContext context;
    context.Log(kCat, static_cast<const char*>(nullptr));
    EXPECT_EQ(Only(context).mFormatText, "<NULL>");
}

TEST_F(LogContextTest, ALongFormatIsCutToItsLengthModulo65536) {
    OwnContext context;
    context.Log(kCat, std::string(65536 + 10, 'f').c_str());
    EXPECT_EQ(Only(context).mFormatText, std::string(10, 'f'));
    context.Log(kCat, std::string(65535, 'f').c_str());
    EXPECT_EQ(Only(context).mFormatText, std::string(65535, 'f'));
}

TEST_F(LogContextTest, ATextOf70000BytesIsRecordedWithItsFirst4464) {
    OwnContext context;
    std::string text(70000, 'x');
    text[4463] = 'y';
    context.Log(kCat, "%s", text);
    const Record record = Only(context);
    ASSERT_EQ(record.mArguments.size(), 1u);
    EXPECT_EQ(record.mArguments[0].Text(), text.substr(0, 4464));
}

TEST_F(LogContextTest, ANullWideTextHasACountOf24And24Bytes) {
    OwnContext context;
    context.Log(kCat, short{0}, static_cast<const wchar_t*>(nullptr));
    const Bytes bytes = context.Take();
    // Head 14, one category 2 with its count, format 3, count 1: the argument is what follows.
    ASSERT_EQ(bytes.size(), 14u + 2 + 3 + 1 + 1 + 2 + 24);
    EXPECT_EQ(bytes[20], 17);
    EXPECT_EQ(Bytes(bytes.begin() + 21, bytes.begin() + 23), Raw(std::uint16_t{24}));
    EXPECT_EQ(Bytes(bytes.begin() + 23, bytes.begin() + 27), Raw(std::uint32_t{'<'}));
    EXPECT_EQ(Bytes(bytes.end() - 4, bytes.end()), Raw(std::uint32_t{'>'}));
}

TEST_F(LogContextTest, TheRecordedIndentIsClampedToAByte) {
    OwnContext context;
    for (const auto& [indent, recorded] : std::initializer_list<std::pair<int, int>>{
             {-1, 0}, {0, 0}, {1, 1}, {255, 255}, {256, 255}, {100000, 255}}) {
        context.SetIndent(indent);
        context.Log(kCat, "x");
        EXPECT_EQ(Only(context).mIndent, recorded) << indent;
    }
}

TEST_F(LogContextTest, SequenceNumbersStartAtOneAndGrowAcrossContexts) {
    OwnContext one;
    OwnContext two;
    one.Log(kCat, "x");
    two.Log(kCat, "x");
    one.Log(kCat, "x");
    Reader first(one.Take());
    EXPECT_EQ(first.Next().mSequence, 1);
    EXPECT_EQ(first.Next().mSequence, 3);
    EXPECT_EQ(Only(two).mSequence, 2);
}

TEST_F(LogContextTest, DroppingStartsWithin4096BytesOfTheEnd) {
    OwnContext context("Own", 262144);
    context.FillUpTo(258047);
    EXPECT_EQ(context.Log(kCat, "fits"), 1);
    context.Take();
    context.FillUpTo(258048);
    EXPECT_EQ(context.Log(kCat, "dropped"), 0);
    context.Take(258048);
    const Record banner = Only(context);
    EXPECT_EQ(banner.mFormatText, kBanner);
}

TEST_F(LogContextTest, TheBannerCarriesTheDroppedMessagesCategoriesAndIsPending) {
    OwnContext context;
    context.FillUpTo(258048);
    Manager().SetFilterValue(77, true);
    EXPECT_EQ(context.Log(CCat(kError, 77), "dropped %d", 5), 0);
    context.Take(258048);
    const Record banner = Only(context);
    EXPECT_EQ(banner.mFormatTag, 1);
    EXPECT_EQ(banner.mFormatText, kBanner);
    EXPECT_EQ(banner.mFormatText.size(), 32u);
    EXPECT_EQ(banner.mCategories, (Bytes{kError, 77}));
    EXPECT_THAT(banner.mArguments, IsEmpty());
    // One more than the banner.
    EXPECT_EQ(context.Log(kCat, "next"), 2);
}

TEST_F(LogContextTest, AfterOneBannerIsSilentUntilThreeQuarters) {
    OwnContext context("Own", 262144);
    context.FillUpTo(258048);
    context.Log(kCat, "becomes the banner");
    const int withBanner = context.Used();
    context.Log(kCat, "lost");
    EXPECT_EQ(context.Used(), withBanner);
    context.Take(withBanner - 196608);
    ASSERT_EQ(context.Used(), 196608);
    EXPECT_EQ(context.Log(kCat, "still lost"), 0);
    EXPECT_EQ(context.Used(), 196608);
    context.Take(1);
    EXPECT_EQ(context.Log(kCat, "heard again"), 2);
    EXPECT_GT(context.Used(), 196607);
}

TEST_F(LogContextTest, GapsInTheSequenceCountTheLostMessages) {
    OwnContext context;
    context.Log(kCat, "before");
    const int record = context.Used();
    context.FillUpTo(258048);
    context.Log(kCat, "becomes the banner");
    for (int i = 0; i < 5; ++i) {
        context.Log(kCat, "lost");
    }
    context.Log(CCat(kError), "filtered out, which is no loss");
    Reader before(context.Take(record));
    EXPECT_EQ(before.Next().mSequence, 1);
    context.Take(258048 - record);
    EXPECT_EQ(Only(context).mSequence, 2);
    context.Log(kCat, "after");
    EXPECT_EQ(Only(context).mSequence, 8);
}

TEST_F(LogContextTest, ASecondOverloadHasABannerOfItsOwn) {
    OwnContext context;
    for (int round = 0; round < 2; ++round) {
        context.FillUpTo(258048);
        context.Log(kCat, "becomes the banner");
        context.Take(258048);
        EXPECT_EQ(Only(context).mFormatText, kBanner);
        context.Log(kCat, "heard");
        EXPECT_EQ(Only(context).mFormatText, "heard");
    }
}

TEST_F(LogContextTest, TheThresholdOfThreeQuartersIsTruncated) {
    OwnContext context("Own", 10001); // of which 7500.75
    context.FillUpTo(10001 - 4096);
    context.Log(kCat, "becomes the banner");
    context.FillUpTo(7500);
    EXPECT_EQ(context.Log(kCat, "lost"), 0);
    context.Take(1);
    EXPECT_EQ(context.Log(kCat, "heard"), 2);
}

TEST_F(LogContextTest, ARingSmallerThanItsHeadroomLosesEverySecondMessage) {
    OwnContext context("Own", 1000);
    for (int i = 0; i < 2; ++i) {
        context.Log(kCat, "lost");
        context.Log(kCat, "heard");
    }
    Reader reader(context.Take());
    EXPECT_EQ(reader.Next().mFormatText, kBanner);
    EXPECT_EQ(reader.Next().mFormatText, "heard");
    EXPECT_EQ(reader.Next().mFormatText, kBanner);
    EXPECT_EQ(reader.Next().mFormatText, "heard");
}

TEST_F(LogContextTest, ARecordLargerThanTheHeadroomIsStoredAsFarAsItFits) {
    OwnContext context("Own", 10000);
    context.FillUpTo(10000 - 4097);
    EXPECT_EQ(context.Log(kCat, "%s", std::string(5000, 'x')), 1);
    EXPECT_EQ(context.Used(), 10000);
}

TEST_F(LogContextTest, RecordsThatWrapAroundTheRingsEndReadTheSame) {
    OwnContext context("Own", 4500);
    for (int i = 0; i < 2000; ++i) {
        context.Log(kCat, "%d %s", i, "text");
        const Record record = Only(context);
        ASSERT_EQ(record.mFormatText, "%d %s");
        ASSERT_EQ(record.mArguments.at(0).As<std::int32_t>(), i);
        ASSERT_EQ(record.mArguments.at(1).Text(), "text");
    }
}

TEST_F(LogContextTest, NumbersThatWrapAroundTheRingsEndReadTheSame) {
    OwnContext context("Own", 4500);
    CCat cat{kInfo};
    for (int i = 0; i < 4600; ++i) {
        if (i == 2300) {
            cat = CCat{1, 2, kInfo, 4, 5, 6, 7, 8, 9, 10, 11};
        }
        // From every offset, with nothing else in the ring.
        context.FillUpTo(1);
        context.Take();
        context.SetIndent(i % 256);
        context.Log(cat, short{77}, i, -1LL, 2.5, 'c', 0.5F, short{-3}, true, 1ULL << 63);
        const Record record = Only(context);
        ASSERT_EQ(record.mMarker, 0);
        ASSERT_EQ(record.mSequence, i + 1);
        ASSERT_EQ(record.mSeconds, 1000000000u);
        ASSERT_EQ(record.mIndent, i % 256);
        ASSERT_EQ(record.mCategories, Bytes(cat.IDs(), cat.IDs() + cat.Count()));
        ASSERT_EQ(record.mFormatID, 77);
        ASSERT_EQ(record.mArguments.size(), 8u);
        ASSERT_EQ(record.mArguments[0].As<std::int32_t>(), i);
        ASSERT_EQ(record.mArguments[1].As<std::int64_t>(), -1);
        ASSERT_EQ(record.mArguments[2].As<double>(), 2.5);
        ASSERT_EQ(record.mArguments[3].As<char>(), 'c');
        ASSERT_EQ(record.mArguments[4].As<float>(), 0.5F);
        ASSERT_EQ(record.mArguments[5].As<std::int16_t>(), -3);
        ASSERT_EQ(record.mArguments[6].As<std::uint8_t>(), 1);
        ASSERT_EQ(record.mArguments[7].As<std::uint64_t>(), 1ULL << 63);
    }
}

TEST_F(LogContextTest, RecordsWrittenByHandAreRead) {
    OwnContext context;
    context.LogPre(kCat);
    EXPECT_EQ(context.Used(), 14 + 1 + 1);
    EXPECT_THAT(CollectTexts(), IsEmpty()) << "not before LogPost";
    const Bytes fields =
        Join(Bytes{1}, Raw(std::uint16_t{8}), Raw("by %s %d"), Bytes{2}, Bytes{16},
             Raw(std::uint16_t{4}), Raw("hand"), Bytes{9}, Raw(std::uint16_t{60000}));
    int count = static_cast<int>(fields.size());
    context.GetBuffer().Write(fields.data(), count);
    EXPECT_EQ(context.LogPost(), 1);
    EXPECT_THAT(CollectTexts(), ElementsAre("by hand 60000"));
}

struct Asked {
    static void* Malloc(int size) {
        msSize = size;
        return CLogContext::MallocFunc(size);
    }
    static void Free(void* block, int size) {
        msFreed = size;
        CLogContext::FreeFunc(block, size);
    }
    static void* None(int) { return nullptr; }
    static inline int msSize = 0;
    static inline int msFreed = 0;
};

TEST_F(LogContextTest, TakesItsRingFromTheGivenAllocator) {
    {
        CLogContext context("Own", 5000, Asked::Malloc, Asked::Free);
        EXPECT_EQ(Asked::msSize, static_cast<int>(cb_calc_buffer_size(1, 5000)));
    }
    EXPECT_EQ(Asked::msFreed, Asked::msSize);
}

TEST_F(LogContextTest, ASizeOfZeroIsTheManagersDefault) {
    EXPECT_EQ(Manager().GetBufferSize(), 262144);
    CLogContext context("Own", 0, Asked::Malloc, Asked::Free);
    EXPECT_EQ(Asked::msSize, static_cast<int>(cb_calc_buffer_size(1, 262144)));
    EXPECT_EQ(context.GetBuffer().GetRing()->numElems, 262144u);
}

TEST_F(LogContextTest, WithoutMemoryLosesItsMessagesAndNoOthers) {
    OwnContext sound;
    CLogContext context("Empty", 5000, Asked::None, Asked::Free);
    EXPECT_EQ(context.Log(kCat, "lost"), 1);
    sound.Log(kCat, "heard");
    EXPECT_EQ(context.Log(kCat, "lost"), 2);
    EXPECT_THAT(CollectTexts(), ElementsAre("heard"));
    EXPECT_EQ(context.Log(kCat, "lost"), 1);
}

TEST_F(LogContextTest, RecordsInARingThatGoesAreLost) {
    auto context = std::make_unique<OwnContext>();
    context->Log(kCat, "lost");
    context.reset();
    EXPECT_THAT(CollectTexts(), IsEmpty());
}

TEST_F(LogContextTest, SetNameCountsFromTheNextPassOn) {
    OwnContext context("First");
    context.Log(kCat, "x");
    EXPECT_EQ(NameIn(CollectLines().at(0)), "First");
    context.Log(kCat, "x");
    context.SetName("Second");
    EXPECT_EQ(context.GetName(), "Second");
    EXPECT_EQ(NameIn(CollectLines().at(0)), "Second");
}

TEST_F(LogContextTest, CopiesItsName) {
    std::string name = "Copied";
    OwnContext context(name.c_str());
    name = "Changed";
    EXPECT_EQ(context.GetName(), "Copied");
}

} // namespace
} // namespace HSL
