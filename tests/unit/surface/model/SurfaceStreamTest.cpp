// Random messages through a port, against plain arrays that are filled byte by byte.
#include "surface/hui/HuiButtons.h"
#include "surface/mackie/MackieButtons.h"
#include "surface/model/SurfacePort.h"
#include "tests/support/TestSeed.h"

#include <gmock/gmock.h>

#include <map>
#include <random>

namespace Surface {
namespace {

using Bytes = std::vector<std::uint8_t>;
using MidiServer::Protocol;
using Time = SurfaceModel::Time;

constexpr int kRounds = 20;
constexpr int kMessages = 2000;

class RandomBytes {
public:
    explicit RandomBytes(std::uint64_t seed) : mRandom(seed) {}

    unsigned Below(unsigned limit) { return static_cast<unsigned>(mRandom() % limit); }
    std::uint8_t Byte(unsigned first, unsigned count) {
        return static_cast<std::uint8_t>(first + Below(count));
    }
    Bytes Data(std::size_t count) {
        Bytes data;
        while (data.size() < count) {
            data.push_back(Byte(0, 128));
        }
        return data;
    }

    // A message of any kind and any data, most of which nobody understands.
    Bytes Any() {
        const std::uint8_t status = Byte(0x80, 0x80);
        if (status >= 0xF0) {
            return Exclusive({}, Below(20));
        }
        Bytes message = {status, Byte(0, 128)};
        if ((status & 0xE0U) != 0xC0) {
            message.push_back(Byte(0, 128));
        }
        return message;
    }
    Bytes Exclusive(const Bytes& begin, std::size_t count) {
        Bytes message = {0xF0};
        message.insert(message.end(), begin.begin(), begin.end());
        const Bytes data = Data(count);
        message.insert(message.end(), data.begin(), data.end());
        message.push_back(0xF7);
        return message;
    }

private:
    std::mt19937_64 mRandom;
};

char Shown(std::uint8_t byte) {
    return byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : ' ';
}

// What both protocols have, without any of the model's code.
struct Plain {
    std::string upper = std::string(56, ' ');
    std::string lower = std::string(56, ' ');
    std::array<unsigned, 9> faders{};
    std::array<unsigned, 12> rings{}; // their bytes
    struct Meter {
        unsigned peak = 0;
        bool overload = false;
        Time since{0};
    };
    std::array<std::array<Meter, 2>, 8> meters{};

    void Compare(const SurfaceModel& model) const {
        ASSERT_EQ(model.Line(0), upper);
        ASSERT_EQ(model.Line(1), lower);
        for (std::size_t fader = 0; fader < faders.size(); ++fader) {
            ASSERT_EQ(model.Fader(fader), faders[fader]);
        }
        for (std::size_t pot = 0; pot < rings.size(); ++pot) {
            const PotRing& ring = model.Ring(pot);
            ASSERT_EQ(ring.value + static_cast<unsigned>(ring.mode) * 16 + (ring.centre ? 64 : 0),
                      rings[pot]);
        }
    }
};

struct PlainMackie : Plain {
    std::array<unsigned, 128> lights{}; // velocities
    std::array<unsigned, 12> digits{};

    PlainMackie() { digits.fill(0x20); }

    void Take(const Bytes& m, Time now) {
        const auto is = [&m](std::size_t at, unsigned first, unsigned last) {
            return m[at] >= first && m[at] <= last;
        };
        if (m.size() == 3 && is(0, 0xE0, 0xE8)) {
            faders[m[0] - 0xE0U] = m[1] + 128U * m[2];
        } else if (m.size() == 3 && m[0] == 0x90) {
            lights[m[1]] = m[2];
        } else if (m.size() == 3 && m[0] == 0x80) {
            lights[m[1]] = 0;
        } else if (m.size() == 3 && m[0] == 0xB0 && is(1, 0x30, 0x37) && m[2] % 16 <= 11) {
            rings[m[1] - 0x30U] = m[2];
        } else if (m.size() == 3 && m[0] == 0xB0 && is(1, 0x40, 0x4B)) {
            digits[m[1] - 0x40U] = m[2];
        } else if (m.size() == 2 && m[0] == 0xD0) {
            Meter& meter = meters[m[1] / 16U][0];
            const unsigned value = m[1] % 16;
            if (value <= 12) {
                meter.peak = value;
                meter.since = now;
            } else if (value != 13) {
                meter.overload = value == 14;
            }
        } else if (m.size() >= 7 && m[0] == 0xF0 && m[1] == 0 && m[2] == 0 && m[3] == 0x66 &&
                   (m[4] == 5 || is(4, 0x10, 0x11) || is(4, 0x14, 0x15))) {
            TakeExclusive(m);
        }
    }
    void TakeExclusive(const Bytes& m) {
        const Bytes data(m.begin() + 6, m.end() - 1);
        switch (m[5]) {
        case 0x12:
            for (std::size_t i = 1; i < data.size() && data[0] + i - 1 < 112; ++i) {
                const std::size_t cell = data[0] + i - 1;
                (cell < 56 ? upper : lower)[cell % 56] = Shown(data[i]);
            }
            break;
        case 0x10:
            for (std::size_t i = 0; i < data.size() && i < 10; ++i) {
                digits[i] = data[i];
            }
            break;
        case 0x11:
            for (std::size_t i = 0; i < data.size() && i < 2; ++i) {
                digits[10 + i] = data[i];
            }
            break;
        case 0x61:
            faders = {};
            break;
        case 0x62:
            lights = {};
            break;
        case 0x08:
        case 0x0F:
        case 0x63:
            *this = {};
            break;
        default:
            break;
        }
    }
    static std::string TextOf(unsigned digit) {
        const unsigned code = digit % 64;
        std::string text(1, code == 0 ? ' ' : static_cast<char>(code < 32 ? code + 64 : code));
        return digit >= 64 ? text + "." : text;
    }
    void CompareAll(const SurfaceModel& model, Time now) const {
        Compare(model);
        std::string timecode;
        for (std::size_t digit = 10; digit-- > 0;) {
            timecode += TextOf(digits[digit]);
        }
        ASSERT_EQ(model.TimecodeText(), timecode);
        ASSERT_EQ(model.AssignmentText(), TextOf(digits[11]) + TextOf(digits[10]));
        for (std::uint8_t note = 0; note < 128; ++note) {
            if (const auto button = Mackie::ButtonOfNote(note)) {
                ASSERT_EQ(model.Light(*button), lights[note] == 0   ? LightState::kOff
                                                : lights[note] == 1 ? LightState::kFlashing
                                                                    : LightState::kOn);
            }
        }
        for (std::size_t strip = 0; strip < 8; ++strip) {
            const Meter& meter = meters[strip][0];
            const auto fallen = static_cast<unsigned>(
                std::min<Time::rep>((now - meter.since).count() / 150000, 12));
            const SurfaceModel::Meter& shown = model.MeterOf(strip, MeterSide::kLeft);
            ASSERT_EQ(shown.level, meter.peak > fallen ? meter.peak - fallen : 0);
            ASSERT_EQ(shown.overload, meter.overload);
        }
    }
};

Bytes RandomMackie(RandomBytes& random) {
    static constexpr std::array<std::uint8_t, 5> kIdentities = {0x05, 0x10, 0x11, 0x14, 0x15};
    const std::uint8_t identity = kIdentities[random.Below(5)];
    switch (random.Below(12)) {
    case 0:
        return {random.Byte(0xE0, 10), random.Byte(0, 128), random.Byte(0, 128)};
    case 1:
    case 2:
        return {0x90, random.Byte(0, 128), random.Byte(0, random.Below(2) == 0 ? 2 : 128)};
    case 3:
        return {0xB0, random.Byte(0x2F, 10), random.Byte(0, 128)};
    case 4:
        return {0xB0, random.Byte(0x3F, 14), random.Byte(0, 128)};
    case 5:
    case 6:
        return {0xD0, random.Byte(0, 128)};
    case 7:
    case 8:
        return random.Exclusive({0x00, 0x00, 0x66, identity, 0x12, random.Byte(0, 118)},
                                random.Below(60));
    case 9:
        return random.Exclusive({0x00, 0x00, 0x66, identity, random.Byte(0x10, 2)},
                                random.Below(12));
    case 10:
        // Now and then any command, resets among them.
        return random.Exclusive({0x00, 0x00, 0x66, identity, random.Byte(0, 128)}, random.Below(4));
    default:
        return random.Any();
    }
}

struct PlainHui : Plain {
    std::string main = std::string(80, ' ');
    std::string assignment; // empty: none was written
    std::string digits = std::string(10, ' ');
    std::string points = std::string(10, ' ');
    std::map<std::pair<unsigned, unsigned>, bool> lights;
    unsigned zone = 128;
    std::array<unsigned, 9> highs{};

    void Take(const Bytes& m, Time /*now*/) {
        if (m == Bytes{0xFF}) {
            *this = {};
        } else if (m.size() == 3 && m[0] == 0xA0 && m[1] < 8 && m[2] < 32 && m[2] % 16 <= 12) {
            meters[m[1]][m[2] / 16U] = {m[2] % 16U, m[2] % 16 == 12, {}};
        } else if (m.size() == 3 && m[0] == 0xB0) {
            if (m[1] <= 8) {
                highs[m[1]] = m[2];
            } else if (m[1] == 0x0C) {
                zone = m[2];
            } else if (m[1] >= 0x10 && m[1] <= 0x1B && m[2] % 16 <= 11) {
                rings[m[1] - 0x10U] = m[2];
            } else if (m[1] >= 0x20 && m[1] <= 0x28) {
                faders[m[1] - 0x20U] = highs[m[1] - 0x20U] * 128 + m[2];
            } else if (m[1] == 0x2C) {
                lights[{zone, m[2] % 64}] = m[2] >= 64;
            }
        } else if (m.size() >= 8 && m[0] == 0xF0 && m[1] == 0 && m[2] == 0 && m[3] == 0x66 &&
                   m[4] == 5 && m[5] == 0) {
            TakeExclusive(m[6], Bytes(m.begin() + 7, m.end() - 1));
        }
    }
    void TakeExclusive(unsigned display, const Bytes& data) {
        if (display == 0x10 && data.size() == 5 && data[0] < 8) {
            for (std::size_t i = 0; i < 4; ++i) {
                upper[data[0] * 7U + i] = Shown(data[1 + i]);
            }
        } else if (display == 0x10 && data.size() == 5 && data[0] == 8) {
            assignment = {Shown(data[1]), Shown(data[2]), Shown(data[3]), Shown(data[4])};
        } else if (display == 0x11 && !data.empty() && data.size() <= 8) {
            for (std::size_t i = 0; i < data.size(); ++i) {
                digits[9 - i] = data[i] < 32 ? "0123456789AbCdEF"[data[i] % 16] : ' ';
                points[9 - i] = data[i] >= 16 && data[i] < 32 ? '.' : ' ';
            }
        } else if (display == 0x12 && data.size() % 11 == 0) {
            for (std::size_t at = 0; at < data.size(); at += 11) {
                if (data[at] > 7) {
                    return;
                }
            }
            for (std::size_t i = 0; i < data.size(); ++i) {
                if (i % 11 != 0) {
                    main[data[i - i % 11] * 10U + i % 11 - 1] = Shown(data[i]);
                }
            }
        }
    }
    void CompareAll(const SurfaceModel& model, Time /*now*/) const {
        Compare(model);
        ASSERT_EQ(std::string(model.MainLine(0)) + std::string(model.MainLine(1)), main);
        ASSERT_EQ(model.AssignmentText(), assignment.empty() ? "  " : assignment);
        std::string timecode;
        for (std::size_t i = 0; i < 10; ++i) {
            timecode += digits[i];
            timecode += points[i] == '.' ? "." : "";
        }
        ASSERT_EQ(model.TimecodeText(), timecode);
        for (const auto& [place, on] : lights) {
            const auto button = Hui::ButtonAt(
                {static_cast<std::uint8_t>(place.first), static_cast<std::uint8_t>(place.second)});
            if (button) {
                ASSERT_EQ(model.Light(*button), on ? LightState::kOn : LightState::kOff);
            }
        }
        for (std::size_t strip = 0; strip < 8; ++strip) {
            for (const MeterSide side : {MeterSide::kLeft, MeterSide::kRight}) {
                const Meter& meter = meters[strip][static_cast<std::size_t>(side)];
                ASSERT_EQ(model.MeterOf(strip, side).level, meter.peak);
                ASSERT_EQ(model.MeterOf(strip, side).overload, meter.overload);
            }
        }
    }
};

// Messages of HUI, and of others that mean nothing to Mackie Control either: a HUI port understands
// that too.
Bytes RandomHui(RandomBytes& random) {
    switch (random.Below(14)) {
    case 0:
    case 1:
        return {0xB0, random.Byte(0, 9), random.Byte(0, 128)};
    case 2:
    case 3:
        return {0xB0, random.Byte(0x20, 9), random.Byte(0, 128)};
    case 4:
        return {0xB0, random.Byte(0x10, 12), random.Byte(0, 128)};
    case 5:
        return {0xB0, 0x0C, random.Byte(0, 0x20)};
    case 6:
    case 7:
        return {0xB0, 0x2C, random.Byte(random.Below(2) * 0x40, 8)};
    case 8:
        return {0xA0, random.Byte(0, 9), random.Byte(0, 48)};
    case 9:
        return random.Exclusive({0x00, 0x00, 0x66, 0x05, 0x00, 0x10, random.Byte(0, 10)},
                                3 + random.Below(3));
    case 10:
        return random.Exclusive({0x00, 0x00, 0x66, 0x05, 0x00, 0x11, random.Byte(0, 40)},
                                random.Below(9));
    case 11: {
        Bytes zones = {0x00, 0x00, 0x66, 0x05, 0x00, 0x12};
        for (unsigned count = random.Below(4); count > 0; --count) {
            zones.push_back(random.Byte(0, random.Below(4) == 0 ? 9 : 8));
            const Bytes characters = random.Data(10);
            zones.insert(zones.end(), characters.begin(), characters.end());
        }
        return random.Exclusive(zones, random.Below(8) == 0 ? 1 : 0);
    }
    case 12:
        if (random.Below(50) == 0) {
            return {0xFF};
        }
        return {0x90, 0x00, random.Byte(0, 2)};
    default:
        return random.Exclusive({0x00, 0x00, 0x67}, random.Below(10));
    }
}

template <class Model>
void Compare(Protocol protocol, Bytes (*make)(RandomBytes&)) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomBytes random(seed);
    for (int round = 0; round < kRounds; ++round) {
        SurfacePort port(protocol);
        Model plain;
        Time now{0};
        Bytes message;
        std::uint64_t repeated = 0;
        for (int i = 0; i < kMessages; ++i) {
            const bool again = i > 0 && random.Below(20) == 0;
            const Bytes last = message;
            message = again ? message : make(random);
            repeated += i > 0 && message == last ? 1 : 0;
            now += Time(random.Below(100000));
            port.Receive(message, now);
            plain.Take(message, now);
            now += Time(random.Below(100000));
            port.Model().Advance(now);
            plain.CompareAll(port.Model(), now);
            if (testing::Test::HasFatalFailure()) {
                FAIL() << "after " << testing::PrintToString(message);
            }
        }
        ASSERT_EQ(port.Counts().messages, static_cast<std::uint64_t>(kMessages));
        ASSERT_EQ(port.Counts().repeated, repeated);
    }
}

TEST(SurfaceStreamTest, ShowsWhatMackieControlsMessagesSay) {
    Compare<PlainMackie>(Protocol::kMackieControl, RandomMackie);
}

TEST(SurfaceStreamTest, ShowsWhatHuisMessagesSay) {
    Compare<PlainHui>(Protocol::kHui, RandomHui);
}

} // namespace
} // namespace Surface
