-- Makes a session: "ardour7-lua MakeSession.lua" with QUORVEL_TEST_SESSION naming its folder and
-- QUORVEL_TEST_DEVICE what Ardour is to take the surface for. While it rolls, the first track's fader
-- moves.
local kRate = 48000
local kSeconds = 600
local folder = os.getenv("QUORVEL_TEST_SESSION")

local backend = AudioEngine:set_backend("None (Dummy)", "", "")
backend:set_sample_rate(kRate)
AudioEngine:start()
local session = assert(create_session(folder, "session", kRate))

local function addTrack(name)
  local tracks = session:new_audio_track(1, 2, nil, 1, name, ARDOUR.PresentationInfo.max_order,
                                         ARDOUR.TrackMode.Normal, true)
  for track in tracks:iter() do
    return track
  end
  error("no track " .. name)
end

local fader = addTrack("Moving"):amp():gain_control()
for second = 0, kSeconds do
  local position = Temporal.timepos_t(second * kRate)
  fader:alist():add(position, second % 4 < 2 and 0.2 or 0.9, false, true)
end
fader:set_automation_state(ARDOUR.AutoState.Play)
for number = 2, 6 do
  addTrack("Still " .. number)
end

session:save_state("")
close_session()

-- Ardour's scripts cannot switch surfaces on, but its file does.
local path = folder .. "/session.ardour"
local file = assert(io.open(path))
local text, changes = file:read("a"):gsub('<Protocol name="Mackie" active="0"/>',
  '<Protocol name="Mackie" feedback="0" active="1" bank="0" ipmidi-base="21928"' ..
  ' device-profile="User" device-name="' .. os.getenv("QUORVEL_TEST_DEVICE") .. '"/>')
assert(changes == 1, "the session knows no Mackie surface")
file:close()
file = assert(io.open(path, "w"))
file:write(text)
file:close()
quit()
