#include "tests/support/TestSeed.h"
#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <CoreFoundation/CFPropertyList.h>
#include <CoreFoundation/CFRuntimeHost.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>

namespace {

using Value = CFOwned<CFTypeRef>;

constexpr CFPropertyListFormat kFormats[] = {kCFPropertyListXMLFormat_v1_0,
                                             kCFPropertyListBinaryFormat_v1_0};

Value Parse(const std::string& bytes, std::string* reason = nullptr) {
    CFErrorRef error = nullptr;
    Value value(CFPropertyListCreateWithData(nullptr, Bytes(bytes).Get(), kCFPropertyListImmutable,
                                             nullptr, &error));
    // Exactly one of the two comes out.
    EXPECT_NE(static_cast<bool>(value), error != nullptr);
    const CFOwned<CFErrorRef> owner(error);
    if (reason != nullptr && error != nullptr) {
        *reason = ReadOwned(CFErrorCopyDescription(error));
    }
    return value;
}

std::string Write(CFTypeRef value, CFPropertyListFormat format) {
    CFErrorRef error = nullptr;
    const CFOwned<CFDataRef> data(CFPropertyListCreateData(nullptr, value, format, 0, &error));
    EXPECT_NE(static_cast<bool>(data), error != nullptr);
    const CFOwned<CFErrorRef> owner(error);
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.Get())),
            static_cast<std::size_t>(CFDataGetLength(data.Get()))};
}

std::string XML(const std::string& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC "
           "\"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
           value + "</plist>\n";
}

std::string Repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (; times > 0; --times) {
        result += text;
    }
    return result;
}

std::string BigEndian(std::uint64_t value, std::size_t size) {
    std::string bytes;
    for (std::size_t i = size; i > 0; --i) {
        bytes += static_cast<char>(value >> (8 * (i - 1)));
    }
    return bytes;
}

std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

// A binary property list of objects as they are given; object 0 is the root.
std::string Binary(const std::vector<std::string>& objects) {
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += BigEndian(bytes.size(), 4);
        bytes += object;
    }
    const std::size_t start = bytes.size();
    return bytes + table + std::string(6, '\0') + "\x04\x02" + BigEndian(objects.size(), 8) +
           BigEndian(0, 8) + BigEndian(start, 8);
}

std::size_t Below(std::size_t end, std::mt19937_64& random) {
    return static_cast<std::size_t>(random() % end);
}

// Any property list, at most `depth` deep.
Value Random(std::mt19937_64& random, unsigned depth) {
    switch (random() % (depth == 0 ? 6 : 8)) {
    case 0:
        return Value(CFRetain(random() % 2 == 0 ? kCFBooleanTrue : kCFBooleanFalse));
    case 1:
        return Value(CFRetain(Integer(static_cast<SInt64>(random()) >> (random() % 64)).Get()));
    case 2:
        return Value(CFRetain(
            Real(static_cast<double>(static_cast<SInt64>(random())) / 1024.0 + 0.03125).Get()));
    case 3: {
        std::string text;
        const char* const parts[] = {"a",  "<",  "&", "\"", "'", ">",     "]]>", " ",
                                     "\n", "\t", "ä", "€",  "😀", "&amp;", "Z"};
        for (std::size_t length = Below(8, random); length > 0; --length) {
            text += parts[Below(std::size(parts), random)];
        }
        return Value(CFRetain(Text(text).Get()));
    }
    case 4: {
        std::string bytes;
        for (std::size_t length = Below(100, random); length > 0; --length) {
            bytes += static_cast<char>(random());
        }
        return Value(CFRetain(Bytes(bytes).Get()));
    }
    case 5:
        return Value(CFDateCreate(nullptr, static_cast<double>(static_cast<SInt32>(random()) / 2)));
    case 6: {
        const auto array = Array();
        for (std::size_t count = Below(5, random); count > 0; --count) {
            CFArrayAppendValue(array.Get(), Random(random, depth - 1).Get());
        }
        return Value(CFRetain(array.Get()));
    }
    default: {
        const auto dictionary = Dictionary();
        for (std::size_t count = Below(5, random); count > 0; --count) {
            CFDictionarySetValue(dictionary.Get(),
                                 Text("<key> & " + std::to_string(random() % 20)).Get(),
                                 Random(random, depth - 1).Get());
        }
        return Value(CFRetain(dictionary.Get()));
    }
    }
}

TEST(CFPropertyList, ReadsXML) {
    const Value value = Parse(XML("<!-- c --><dict><key>MIDI Ports</key><string>5-8</string>"
                                  "<key>&lt;n&gt;</key><array><integer>-5</integer><true/>"
                                  "<real>0.5</real><data>AQL/</data><false/>"
                                  "<date>2001-01-01T00:01:00Z</date><string/>"
                                  "<string>&#228;&#x20AC;</string><array/><dict></dict>"
                                  "</array></dict>"));
    ASSERT_TRUE(value);
    EXPECT_EQ(ReadOwned(CFCopyDescription(value.Get())),
              "{<n> = (-5, true, 0.5, <0102ff>, false, 2001-01-01 00:01:00 +0000, , ä€, (), {}), "
              "MIDI Ports = 5-8}");
}

// The bytes are those of an independent implementation of the formats.
TEST(CFPropertyList, WritesBothFormatsAsOthersDo) {
    const std::string xml = "<dict>\n\t<key>App Name</key>\n\t<string>Mixer</string>\n"
                            "\t<key>n</key>\n\t<array>\n\t\t<integer>-5</integer>\n"
                            "\t\t<real>0.5</real>\n\t\t<true/>\n\t\t<false/>\n"
                            "\t\t<data>AQL/</data>\n\t\t<string>ä€</string>\n"
                            "\t\t<integer>300</integer>\n"
                            "\t\t<date>2001-01-01T00:01:00Z</date>\n\t</array>\n"
                            "\t<key>x</key>\n\t<string>Mixer</string>\n</dict>\n";
    const std::string binary =
        FromHex("62706c6973743030d301020304050458417070204e616d65516e5178554d69786572a8060708090a"
                "0b0c0d13fffffffffffffffb233fe00000000000000908430102ff6200e420ac11012c33404e0000"
                "00000000080f181a1c222b343d3e3f43484b0000000000000101000000000000000e000000000000"
                "00000000000000000054");
    const Value value = Parse(binary);
    ASSERT_TRUE(value);
    EXPECT_EQ(Write(value.Get(), kCFPropertyListBinaryFormat_v1_0), binary);
    const std::string written = Write(value.Get(), kCFPropertyListXMLFormat_v1_0);
    EXPECT_EQ(written.substr(written.find("<dict>")), xml + "</plist>\n");
    EXPECT_TRUE(CFEqual(Parse(written).Get(), value.Get()));
}

TEST(CFPropertyList, KeepsTheFirstOfEntriesWithTheSameKey) {
    const Value fromXML = Parse(XML("<dict><key>a</key><string>1</string><key>a</key>"
                                    "<string>2</string></dict>"));
    EXPECT_EQ(ReadOwned(CFCopyDescription(fromXML.Get())), "{a = 1}");
    const Value fromBinary =
        Parse(Binary({"\xD2" + BigEndian(0x00010001, 4) + BigEndian(0x00020003, 4),
                      "\x51"
                      "a",
                      "\x51"
                      "1",
                      "\x51"
                      "2"}));
    EXPECT_EQ(ReadOwned(CFCopyDescription(fromBinary.Get())), "{a = 1}");
}

TEST(CFPropertyList, ReadsNumbersThatAreNoneOrInfinite) {
    const Value value = Parse(XML("<array><real>nan</real><real>-infinity</real><real>+inf</real>"
                                  "<integer>-0x10</integer><real>+.5e1</real></array>"));
    EXPECT_EQ(ReadOwned(CFCopyDescription(value.Get())), "(nan, -inf, inf, -16, 5)");
    for (const CFPropertyListFormat format : kFormats) {
        EXPECT_TRUE(CFEqual(Parse(Write(value.Get(), format)).Get(), value.Get()));
    }
}

TEST(CFPropertyList, ReadsWhatItWrote) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    for (int round = 0; round < 300; ++round) {
        const Value value = Random(random, 5);
        for (const CFPropertyListFormat format : kFormats) {
            const std::string bytes = Write(value.Get(), format);
            const Value back = Parse(bytes);
            ASSERT_TRUE(CFEqual(value.Get(), back.Get()))
                << ReadOwned(CFCopyDescription(value.Get())) << "\nwas read as\n"
                << ReadOwned(CFCopyDescription(back.Get()));
            ASSERT_EQ(Write(back.Get(), format), bytes);
        }
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

TEST(CFPropertyList, KeepsTheEdgesOfNumbersAndDates) {
    const auto array = Array();
    for (const SInt64 value : {SInt64{0}, SInt64{-1}, std::numeric_limits<SInt64>::max(),
                               std::numeric_limits<SInt64>::min(), SInt64{255}, SInt64{-128},
                               SInt64{65536}, SInt64{4294967295}}) {
        CFArrayAppendValue(array.Get(), Integer(value).Get());
    }
    for (const double value : {0.1, 1.0 / 3, 1e300, 1e-300, -2.5, 123456789.123456789}) {
        CFArrayAppendValue(array.Get(), Real(value).Get());
    }
    for (const double at : {-63113904000.0, 252423993599.0, -1.0, 0.0}) {
        CFArrayAppendValue(array.Get(), CFOwned<CFDateRef>(CFDateCreate(nullptr, at)).Get());
    }
    for (const CFPropertyListFormat format : kFormats) {
        const Value back = Parse(Write(array.Get(), format));
        EXPECT_TRUE(CFEqual(array.Get(), back.Get())) << ReadOwned(CFCopyDescription(back.Get()));
    }
}

TEST(CFPropertyList, RefusesToWriteWhatIsNoPropertyList) {
    const auto holder = Array();
    const auto refuses = [&](CFTypeRef value) {
        CFArrayRemoveValueAtIndex(holder.Get(), 0);
        CFArrayAppendValue(holder.Get(), value);
        for (const CFPropertyListFormat format : kFormats) {
            EXPECT_EQ(Write(holder.Get(), format), "");
            EXPECT_FALSE(CFPropertyListIsValid(holder.Get(), format));
        }
        EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, holder.Get(), 0), nullptr);
    };
    refuses(nullptr);
    refuses(ZeroUuid());
    refuses(Text(std::string("a\0b", 3)).Get());
    refuses(CFOwned<CFStringRef>(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%C"), 0xD83D))
                .Get());
    for (const double at : {1e12, -63113904001.0, 252423993600.0, std::nan("")}) {
        refuses(CFOwned<CFDateRef>(CFDateCreate(nullptr, at)).Get());
    }
    const auto wrongKey = Dictionary();
    CFDictionarySetValue(wrongKey.Get(), Integer(1).Get(), CFSTR("x"));
    refuses(wrongKey.Get());
    refuses(holder.Get()); // an array within itself
    CFArrayRemoveValueAtIndex(holder.Get(), 0);
    EXPECT_FALSE(CFPropertyListIsValid(nullptr, kCFPropertyListXMLFormat_v1_0));
    EXPECT_FALSE(CFPropertyListIsValid(CFSTR("x"), 1));
    EXPECT_EQ(Write(CFSTR("x"), 1), "");
}

TEST(CFPropertyList, RefusesMalformedXML) {
    for (const char* value : {"",
                              "<dict>",
                              "</dict>",
                              "<dict></array>",
                              "<dict><string>a</string></dict>",
                              "<dict><key>a</key></dict>",
                              "<string>a",
                              "<string>&unknown;</string>",
                              "<string>&#0;</string>",
                              "<string>&#xD800;</string>",
                              "<string>&amp</string>",
                              "<string><b>a</b></string>",
                              "<integer>abc</integer>",
                              "<integer></integer>",
                              "<integer>9223372036854775808</integer>",
                              "<integer>-9223372036854775809</integer>",
                              "<integer>1 2</integer>",
                              "<integer/>",
                              "<real>x</real>",
                              "<real>1e9999</real>",
                              "<date>junk</date>",
                              "<date>2020-02-30T00:00:00Z</date>",
                              "<date>0000-12-31T23:59:59Z</date>",
                              "<date>2100-02-29T00:00:00Z</date>",
                              "<date>2020-01-01T24:00:00Z</date>",
                              "<data>!!!!</data>",
                              "<data>A</data>",
                              "<data>A===</data>",
                              "<unknown/>",
                              "<data>AQ==AQ==</data>",
                              "<real>0x1p3</real>",
                              "<real>--1</real>",
                              "<true>a</true>",
                              "<array/ >",
                              "<true/><true/>",
                              "<string a=\"b\">x</string>",
                              "<!-- <true/>",
                              "text",
                              "<![CDATA[x]]>"}) {
        std::string reason;
        EXPECT_FALSE(Parse(XML(value), &reason)) << value;
        EXPECT_NE(reason, "") << value;
    }
    EXPECT_FALSE(Parse(""));
    EXPECT_FALSE(Parse("not a property list"));
    EXPECT_FALSE(Parse("{ old = style; }"));
    EXPECT_FALSE(Parse(XML("<true/>") + "more"));
    EXPECT_FALSE(Parse(XML("<string>\xFF</string>")));
    EXPECT_FALSE(Parse(XML(std::string("<string>a\0b</string>", 20))));
    EXPECT_FALSE(Parse("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>"));
    EXPECT_FALSE(Parse("<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><true/></plist>"));
}

TEST(CFPropertyList, LimitsTheDepthOfXML) {
    const auto nested = [](std::size_t levels) {
        return XML(Repeated("<array>", levels) + Repeated("</array>", levels));
    };
    EXPECT_TRUE(Parse(nested(128)));
    EXPECT_FALSE(Parse(nested(129)));
    EXPECT_FALSE(Parse(nested(500000)));
    EXPECT_FALSE(Parse(XML(Repeated("<dict><key>a</key>", 200000))));
    // Ends that are only apparent.
    EXPECT_FALSE(Parse(XML(Repeated("<array><!-- </array> -->", 100000))));
}

TEST(CFPropertyList, WritesNoDeeperThanItReads) {
    auto inner = Array();
    for (int level = 1; level < 128; ++level) {
        auto outer = Array();
        CFArrayAppendValue(outer.Get(), inner.Get());
        inner = std::move(outer);
    }
    for (const CFPropertyListFormat format : kFormats) {
        EXPECT_TRUE(CFEqual(Parse(Write(inner.Get(), format)).Get(), inner.Get()));
    }
    const auto tooDeep = Array();
    CFArrayAppendValue(tooDeep.Get(), inner.Get());
    EXPECT_EQ(Write(tooDeep.Get(), kCFPropertyListXMLFormat_v1_0), "");
}

TEST(CFPropertyList, LimitsTheSize) {
    std::string reason;
    EXPECT_FALSE(Parse(XML("<string>" + std::string(17U << 20U, 'a') + "</string>"), &reason));
    EXPECT_EQ(reason, "too large");
    EXPECT_FALSE(Parse(XML("<array>" + Repeated("<true/>", 1100000) + "</array>")));
}

TEST(CFPropertyList, ReadsBinaryObjects) {
    EXPECT_TRUE(CFEqual(Parse(Binary({"\x53"
                                      "abc"}))
                            .Get(),
                        CFSTR("abc")));
    EXPECT_TRUE(CFEqual(Parse(Binary({"\x62" + BigEndian(0xD83DDE00, 4)})).Get(), CFSTR("😀")));
    EXPECT_TRUE(
        CFEqual(Parse(Binary({"\x13" + BigEndian(UINT64_MAX - 4, 8)})).Get(), Integer(-5).Get()));
    EXPECT_TRUE(CFEqual(Parse(Binary({"\x10\xFF"})).Get(), Integer(255).Get()));
    // An object that is referred to twice.
    EXPECT_EQ(ReadOwned(CFCopyDescription(Parse(Binary({"\xA2" + BigEndian(0x00010001, 4), "\x51"
                                                                                           "x"}))
                                              .Get())),
              "(x, x)");
}

TEST(CFPropertyList, RefusesHostileBinaries) {
    const std::string refersTo1 = "\xA1" + BigEndian(1, 2);
    const std::string good = Binary({refersTo1, "\x51"
                                                "x"});
    ASSERT_TRUE(Parse(good));
    const auto refuses = [](const std::string& bytes) {
        std::string reason;
        EXPECT_FALSE(Parse(bytes, &reason));
        EXPECT_NE(reason, "");
    };
    refuses("bplist00");
    refuses("bplist01" + good.substr(8));
    refuses(Binary({"\xA1" + BigEndian(0, 2)}));                    // itself
    refuses(Binary({refersTo1, "\xA1" + BigEndian(0, 2)}));         // through another
    refuses(Binary({"\xA1" + BigEndian(7, 2)}));                    // no such object
    refuses(Binary({"\xAF\x13" + BigEndian(UINT64_MAX, 8)}));       // count
    refuses(Binary({"\x4F\x12" + BigEndian(0x7FFFFFFF, 4) + "x"})); // length
    refuses(Binary({"\x5F\xFF"}));                                  // no count
    refuses(
        Binary({"\xD1" + BigEndian(0x00010001, 4), std::string("\x10\x01", 2)})); // number as key
    refuses(Binary({std::string("\x00", 1)}));                                    // null
    refuses(Binary({std::string("\x80\x01", 2)}));                                // UID
    refuses(Binary({"\x51\xFF"}));                                                // not ASCII
    refuses(Binary({"\x61" + BigEndian(0xD800, 2)}));              // half a character
    refuses(Binary({"\x14" + BigEndian(1, 8) + BigEndian(0, 8)})); // 65 bits
    refuses(Binary({"\x33" + BigEndian(0x7FF8000000000000, 8)}));  // date of NaN
    for (const std::size_t place : {6U, 7U, 15U, 23U, 31U}) {
        for (const int byte : {0, 9, 200, 255}) {
            std::string bytes = good;
            char& changed = bytes[bytes.size() - 32 + place];
            if (changed != static_cast<char>(byte)) {
                changed = static_cast<char>(byte);
                Parse(bytes); // whatever comes out, it comes out
            }
        }
    }
    std::string bytes = good;
    bytes.replace(bytes.size() - 24, 8, BigEndian(UINT64_MAX, 8)); // objects
    refuses(bytes);
    bytes = good;
    bytes.replace(bytes.size() - 8, 8, BigEndian(UINT64_MAX - 3, 8)); // table
    refuses(bytes);
    bytes = good;
    bytes.replace(bytes.size() - 40, 4, BigEndian(0xFFFFFFF0, 4)); // an object's place
    refuses(bytes);
}

TEST(CFPropertyList, RefusesSharingThatWouldFillTheMemory) {
    std::vector<std::string> objects;
    for (std::uint64_t i = 1; i <= 40; ++i) { // two to the fortieth values
        objects.push_back("\xA2" + BigEndian(i, 2) + BigEndian(i, 2));
    }
    objects.push_back("\x51"
                      "x");
    EXPECT_FALSE(Parse(Binary(objects)));
    // Keys without end, by a dictionary that is its own first member, and by its last.
    for (const bool first : {true, false}) {
        std::string keys = "\xDF\x12" + BigEndian(60000, 4);
        for (int i = 0; i < 60000; ++i) {
            keys += BigEndian(1, 2);
        }
        std::string members;
        for (int i = 0; i < 60000; ++i) {
            members += BigEndian(i == (first ? 0 : 59999) ? 0 : 1, 2);
        }
        EXPECT_FALSE(Parse(Binary({keys + members, "\x50"})));
    }
    std::string root = "\xAF\x11" + BigEndian(1000, 2); // a thousand times 100 KB
    for (int i = 0; i < 1000; ++i) {
        root += BigEndian(1, 2);
    }
    EXPECT_FALSE(
        Parse(Binary({root, "\x4F\x12" + BigEndian(100000, 4) + std::string(100000, 'x')})));
}

TEST(CFPropertyList, RefusesDeepBinaries) {
    const auto nested = [](std::uint64_t levels) {
        std::vector<std::string> objects;
        for (std::uint64_t i = 1; i < levels; ++i) {
            objects.push_back("\xA1" + BigEndian(i, 2));
        }
        objects.push_back("\xA0");
        return Binary(objects);
    };
    EXPECT_TRUE(Parse(nested(128)));
    EXPECT_FALSE(Parse(nested(129)));
    EXPECT_FALSE(Parse(nested(60000)));
}

TEST(CFPropertyList, SurvivesMutations) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    for (int round = 0; round < 300; ++round) {
        const Value value = Random(random, 4);
        for (const CFPropertyListFormat format : kFormats) {
            const std::string original = Write(value.Get(), format);
            for (int mutation = 0; mutation < 20; ++mutation) {
                std::string bytes = original;
                for (std::size_t changes = 1 + Below(4, random); changes > 0 && !bytes.empty();
                     --changes) {
                    const std::size_t place = Below(bytes.size(), random);
                    switch (random() % 5) {
                    case 0:
                        bytes[place] = static_cast<char>(random());
                        break;
                    case 1:
                        bytes[place] = static_cast<char>(bytes[place] ^ (1 << (random() % 8)));
                        break;
                    case 2:
                        bytes.resize(place);
                        break;
                    case 3:
                        bytes.erase(place, 1 + Below(8, random));
                        break;
                    default:
                        bytes.insert(place,
                                     bytes.substr(Below(bytes.size(), random), Below(30, random)));
                    }
                }
                const Value read = Parse(bytes);
                // What is accepted is a property list, which can be written and read again.
                if (read) {
                    ASSERT_TRUE(CFPropertyListIsValid(read.Get(), format));
                    ASSERT_TRUE(Parse(Write(read.Get(), format)));
                }
            }
        }
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

TEST(CFPropertyList, RefusesEveryCutOffFile) {
    const auto dictionary = Dictionary();
    CFDictionarySetValue(dictionary.Get(), CFSTR("ports"), CFSTR("1-4"));
    CFDictionarySetValue(dictionary.Get(), CFSTR("count"), Integer(1000).Get());
    for (const CFPropertyListFormat format : kFormats) {
        const std::string whole = Write(dictionary.Get(), format);
        const std::size_t end =
            format == kCFPropertyListXMLFormat_v1_0 ? whole.rfind('>') : whole.size();
        for (std::size_t size = 0; size < end; ++size) {
            EXPECT_FALSE(Parse(whole.substr(0, size))) << size;
        }
    }
}

TEST(CFPropertyList, ReadsMutableContainersOnRequest) {
    CFPropertyListFormat format = 0;
    const Value value(
        CFPropertyListCreateWithData(nullptr, Bytes(XML("<array><dict/></array>")).Get(),
                                     kCFPropertyListMutableContainers, &format, nullptr));
    EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0);
    auto* dictionary = const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(
        CFArrayGetValueAtIndex(static_cast<CFArrayRef>(value.Get()), 0)));
    CFDictionarySetValue(dictionary, CFSTR("a"), CFSTR("b"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
    const Value copy(CFPropertyListCreateDeepCopy(nullptr, value.Get(), kCFPropertyListImmutable));
    EXPECT_TRUE(CFEqual(copy.Get(), value.Get()));
    CFDictionarySetValue(dictionary, CFSTR("c"), CFSTR("d"));
    EXPECT_FALSE(CFEqual(copy.Get(), value.Get()));
    EXPECT_EQ(CFPropertyListCreateWithData(nullptr, static_cast<CFDataRef>(CFTypeRef{CFSTR("x")}),
                                           0, nullptr, nullptr),
              nullptr);
}

} // namespace
