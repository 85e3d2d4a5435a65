-- The 90/10 read/write mix of tools/run-web-bench.sh: nine GETs of one element, then one PATCH
-- renaming a track, per connection in turn. Every rename names the thread and a counter, so
-- each one changes the track and makes exactly one feed event.
--
--   wrk ... -s tools/web-mix.lua <base URL> -- <element path> <track path>

local threads = {}
local next_id = 0

function setup(thread)
    next_id = next_id + 1
    thread:set("id", next_id)
    table.insert(threads, thread)
end

function init(args)
    element = args[1]
    track = args[2]
    counter = 0
    writes = 0
    headers = {["Content-Type"] = "application/json"}
end

function request()
    counter = counter + 1
    if counter % 10 == 0 then
        writes = writes + 1
        return wrk.format("PATCH", track, headers,
            string.format('{"name": "mix %d.%d"}', id, writes))
    end
    return wrk.format("GET", element)
end

function done(summary, latency, requests)
    local total = 0
    for _, thread in ipairs(threads) do
        total = total + thread:get("writes")
    end
    io.write(string.format("writes sent %d\n", total))
end
