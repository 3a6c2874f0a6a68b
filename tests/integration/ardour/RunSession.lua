-- Loads the session in QUORVEL_TEST_SESSION on the JACK server, as client "ardour", and answers what
-- it is asked: the Nth line of its input, an expression, by a line "=N VALUE".
io.stdout:setvbuf("line")
AudioEngine:set_backend("JACK", "ardour", "")
assert(AudioEngine:start() == 0, "no JACK server")
local session = load_session(os.getenv("QUORVEL_TEST_SESSION"), "session")
local environment = setmetatable({
  session = assert(session, "no session"),
  gain = function(track)
    return session:route_by_name(track):amp():gain_control()
  end,
}, {__index = _G})
print("\nloaded")
local number = 0
for line in io.lines() do
  number = number + 1
  local done, value = pcall(assert(load("return " .. line, line, "t", environment)))
  print("\n=" .. number .. " " .. tostring(value))
end
quit()
