#include "surface/model/SurfaceModel.h"

#include <gmock/gmock.h>

namespace Surface {
namespace {

using namespace std::chrono_literals;
using Time = SurfaceModel::Time;

constexpr Time kStart = 1h;

MeterSet Peak(std::uint8_t strip, std::uint8_t level) {
    return {strip, MeterSide::kLeft, level, {}, true};
}
MeterSet Overload(std::uint8_t strip, bool on) {
    return {strip, MeterSide::kLeft, {}, on, true};
}

class SurfaceModelTest : public testing::Test {
protected:
    SurfaceModelTest() { mModel.TakeChanges(); }

    void Apply(const SurfaceEvent& event, Time now = kStart) { mModel.Apply(event, now); }
    unsigned Level(std::size_t strip, MeterSide side = MeterSide::kLeft) const {
        return mModel.MeterOf(strip, side).level;
    }

    SurfaceModel mModel;
};

TEST_F(SurfaceModelTest, BeginsDarkAndIsToBeDrawnWhole) {
    SurfaceModel model;
    EXPECT_EQ(model.Line(0), std::string(56, ' '));
    EXPECT_EQ(model.Line(1), std::string(56, ' '));
    EXPECT_EQ(model.MainLine(1), std::string(40, ' '));
    EXPECT_EQ(model.TimecodeText(), std::string(10, ' '));
    EXPECT_EQ(model.AssignmentText(), "  ");
    EXPECT_EQ(model.Fader(kMasterFader), 0);
    EXPECT_EQ(model.Light({Button::kPlay}), LightState::kOff);
    const SurfaceChanges changes = model.TakeChanges();
    for (std::size_t strip = 0; strip < kStripCount; ++strip) {
        EXPECT_TRUE(changes.Has(StripPart::kText, strip) && changes.Has(StripPart::kFader, strip));
    }
    EXPECT_TRUE(changes.Has(SharedPart::kTimecode));
    EXPECT_FALSE(model.TakeChanges().Any());
}

TEST_F(SurfaceModelTest, WrapsTextFromTheUpperLineToTheLower) {
    Apply(TextWritten{TextDisplay::kStrips, 54, "abcd"});
    EXPECT_EQ(mModel.StripText(7, 0), "     ab");
    EXPECT_EQ(mModel.StripText(0, 1), "cd     ");
    const SurfaceChanges changes = mModel.TakeChanges();
    EXPECT_TRUE(changes.Has(StripPart::kText, 7) && changes.Has(StripPart::kText, 0));
    EXPECT_FALSE(changes.Has(StripPart::kText, 1) || changes.Has(StripPart::kText, 6));
}

TEST_F(SurfaceModelTest, ShowsABlankForWhatIsNoPrintableCharacter) {
    Apply(TextWritten{TextDisplay::kStrips, 0, "a\x1B[\x7F"});
    EXPECT_EQ(mModel.StripText(0, 0), "a [    ");
}

TEST_F(SurfaceModelTest, PutsHuisNamesAboveTheirStrips) {
    Apply(TextWritten{TextDisplay::kStripNames, 12, "Bass"});
    EXPECT_EQ(mModel.StripText(3, 0), "Bass   ");
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kText, 3));
    EXPECT_EQ(mModel.Line(0).find_first_not_of(' '), 21U);
    EXPECT_EQ(mModel.Line(0).find_last_not_of(' '), 24U);
}

TEST_F(SurfaceModelTest, PutsZonesIntoTheMainDisplay) {
    EXPECT_FALSE(mModel.HasMainDisplay());
    std::vector<std::uint8_t> zones = {3};
    zones.resize(11, 'a');
    zones.push_back(4);
    zones.resize(22, 'b');
    Apply(ZonesWritten{zones});
    EXPECT_TRUE(mModel.HasMainDisplay());
    EXPECT_EQ(mModel.MainLine(0), std::string(30, ' ') + std::string(10, 'a'));
    EXPECT_EQ(mModel.MainLine(1), std::string(10, 'b') + std::string(30, ' '));
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kMainDisplay));
}

TEST_F(SurfaceModelTest, ShowsDigitsFromLeftToRightWithTheirPoints) {
    DigitsSet digits{DigitDisplay::kTimecode, 0, 10, {}};
    const std::string wanted = "1090201126";
    for (std::size_t i = 0; i < 10; ++i) {
        digits.digits[i] = {wanted[9 - i], i == 3 || i == 5 || i == 7};
    }
    Apply(digits);
    EXPECT_EQ(mModel.TimecodeText(), "109.02.01.126");
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kTimecode));
    Apply(DigitsSet{DigitDisplay::kAssignment, 1, 1, {Digit{'P', false}}});
    Apply(DigitsSet{DigitDisplay::kAssignment, 0, 1, {Digit{'N', true}}});
    EXPECT_EQ(mModel.AssignmentText(), "PN.");
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kAssignment));
    Apply(TextWritten{TextDisplay::kAssignment, 0, "Pan "});
    EXPECT_EQ(mModel.AssignmentText(), "Pan ");
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kAssignment));
}

TEST_F(SurfaceModelTest, LetsAMeterFallOneStepInEach150Milliseconds) {
    Apply(Peak(2, 12));
    for (unsigned step = 0; step <= 12; ++step) {
        mModel.Advance(kStart + step * 150ms);
        EXPECT_EQ(Level(2), 12 - step);
        mModel.Advance(kStart + step * 150ms + 149999us);
        EXPECT_EQ(Level(2), 12 - step);
    }
    mModel.Advance(kStart + 24h);
    EXPECT_EQ(Level(2), 0U);
}

TEST_F(SurfaceModelTest, LetsAMeterFallSeveralStepsAtOnce) {
    Apply(Peak(0, 12));
    mModel.Advance(kStart + 460ms);
    EXPECT_EQ(Level(0), 9U);
    mModel.Advance(kStart + 600ms);
    EXPECT_EQ(Level(0), 8U) << "counted from the peak, not from the call";
    mModel.Advance(Time::max());
    EXPECT_EQ(Level(0), 0U);
}

TEST_F(SurfaceModelTest, StartsTheFallAnewWithEachPeak) {
    Apply(Peak(0, 12));
    Apply(Peak(0, 3), kStart + 140ms);
    EXPECT_EQ(Level(0), 3U) << "a lower one counts at once";
    mModel.Advance(kStart + 289ms);
    EXPECT_EQ(Level(0), 3U);
    mModel.Advance(kStart + 290ms);
    EXPECT_EQ(Level(0), 2U);
}

TEST_F(SurfaceModelTest, KeepsOverloadUntilItIsCleared) {
    Apply(Overload(5, true));
    Apply(Peak(5, 4));
    mModel.Advance(kStart + 1h);
    EXPECT_EQ(mModel.MeterOf(5, MeterSide::kLeft), (SurfaceModel::Meter{0, true}));
    Apply(Peak(5, 4), kStart + 1h);
    Apply(Overload(5, false), kStart + 1h);
    EXPECT_EQ(mModel.MeterOf(5, MeterSide::kLeft), (SurfaceModel::Meter{4, false}));
}

TEST_F(SurfaceModelTest, LetsHuisMetersStand) {
    Apply(MeterSet{1, MeterSide::kLeft, 12, true, false});
    Apply(MeterSet{1, MeterSide::kRight, 7, false, false});
    mModel.Advance(kStart + 1h);
    EXPECT_EQ(mModel.MeterOf(1, MeterSide::kLeft), (SurfaceModel::Meter{12, true}));
    EXPECT_EQ(mModel.MeterOf(1, MeterSide::kRight), (SurfaceModel::Meter{7, false}));
}

TEST_F(SurfaceModelTest, IgnoresATimeBeforeAnEarlierOne) {
    Apply(Peak(0, 12));
    mModel.Advance(kStart + 150ms);
    mModel.Advance(0s);
    Apply(Peak(1, 12), 0s);
    EXPECT_EQ(Level(0), 11U);
    mModel.Advance(kStart + 300ms);
    EXPECT_EQ(Level(0), 10U);
    EXPECT_EQ(Level(1), 11U);
}

TEST_F(SurfaceModelTest, NotesTheMeterThatFellAndNoOther) {
    Apply(Peak(3, 2));
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kMeter, 3));
    mModel.Advance(kStart + 149ms);
    EXPECT_FALSE(mModel.TakeChanges().Any());
    mModel.Advance(kStart + 150ms);
    const SurfaceChanges changes = mModel.TakeChanges();
    EXPECT_TRUE(changes.Has(StripPart::kMeter, 3));
    EXPECT_FALSE(changes.Has(StripPart::kMeter, 2) || changes.Has(StripPart::kFader, 3));
}

TEST_F(SurfaceModelTest, NotesWhereEachEventShows) {
    Apply(FaderMoved{4, 100});
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kFader, 4));
    Apply(FaderMoved{kMasterFader, 100});
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kMaster));
    Apply(PotRingSet{6, {RingMode::kWrap, 3, true}});
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kRing, 6));
    Apply(PotRingSet{9, {RingMode::kWrap, 3, true}});
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kMainDisplay));
    Apply(LightSet{{Button::kSolo, 1}, LightState::kOn});
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kLights, 1));
    Apply(LightSet{{Button::kFaderTouch, kMasterFader}, LightState::kOn});
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kMaster));
    Apply(LightSet{{Button::kPlay}, LightState::kFlashing});
    EXPECT_TRUE(mModel.TakeChanges().Has(SharedPart::kLights));
    Apply(MeterModeSet{7, true, false, true});
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kMeter, 7));
    EXPECT_TRUE(mModel.MeterModeOf(7).signalLight && mModel.MeterModeOf(7).onDisplay);
    Apply(MeterDirectionSet{true});
    EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kMeter, 0));
    EXPECT_TRUE(mModel.MetersVertical());
}

TEST_F(SurfaceModelTest, NotesNothingThatShowsTheSameAsBefore) {
    const std::vector<SurfaceEvent> events = {
        TextWritten{TextDisplay::kStrips, 0, "a"},
        TextWritten{TextDisplay::kAssignment, 0, "b"},
        FaderMoved{1, 5},
        PotRingSet{1, {RingMode::kSpread, 3, true}},
        MeterSet{0, MeterSide::kLeft, 4, false, false},
        LightSet{{Button::kPlay}, LightState::kOn},
        DigitsSet{DigitDisplay::kTimecode, 3, 1, {Digit{'4', true}}},
        MeterModeSet{1, true, true, true},
        MeterDirectionSet{true}};
    for (const SurfaceEvent& event : events) {
        Apply(event);
        EXPECT_TRUE(mModel.TakeChanges().Any());
    }
    for (const SurfaceEvent& event : events) {
        Apply(event);
        EXPECT_FALSE(mModel.TakeChanges().Any()) << event.index();
    }
    for (const SurfaceEvent& event : std::vector<SurfaceEvent>{
             PingReceived{}, UnknownMessage{}, ForeignExclusive{9}, ZoneSelected{1},
             FaderHalfReceived{1}, DeviceQueried{0x14, false}, VersionRequested{0x14},
             SettingChanged{Setting::kBacklight, 1, 0}}) {
        Apply(event);
        EXPECT_FALSE(mModel.TakeChanges().Any()) << event.index();
    }
}

TEST_F(SurfaceModelTest, TakesBackWhatAResetTakesBack) {
    const auto fill = [this] {
        Apply(TextWritten{TextDisplay::kStrips, 0, "a"});
        Apply(FaderMoved{1, 5});
        Apply(LightSet{{Button::kMute, 3}, LightState::kOn});
        Apply(PotRingSet{1, {RingMode::kSpread, 3, true}});
        Apply(Peak(0, 4));
        Apply(DigitsSet{DigitDisplay::kTimecode, 0, 1, {Digit{'4', true}}});
    };
    fill();
    Apply(ResetReceived{ResetKind::kFadersDown});
    EXPECT_EQ(mModel.Fader(1), 0);
    EXPECT_EQ(mModel.Light({Button::kMute, 3}), LightState::kOn);
    EXPECT_EQ(mModel.StripText(0, 0), "a      ");
    fill();
    Apply(ResetReceived{ResetKind::kLightsOff});
    EXPECT_EQ(mModel.Fader(1), 5);
    EXPECT_EQ(mModel.Light({Button::kMute, 3}), LightState::kOff);
    EXPECT_EQ(mModel.Ring(1).value, 3);
    for (const ResetKind kind : {ResetKind::kAll, ResetKind::kOffline}) {
        fill();
        mModel.TakeChanges();
        Apply(ResetReceived{kind});
        EXPECT_EQ(mModel.Line(0), std::string(56, ' '));
        EXPECT_EQ(mModel.Fader(1), 0);
        EXPECT_EQ(mModel.Light({Button::kMute, 3}), LightState::kOff);
        EXPECT_EQ(mModel.Ring(1), PotRing());
        EXPECT_EQ(Level(0), 0U);
        EXPECT_EQ(mModel.TimecodeText(), std::string(10, ' '));
        EXPECT_TRUE(mModel.TakeChanges().Has(StripPart::kText, 5));
    }
}

} // namespace
} // namespace Surface
