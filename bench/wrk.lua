-- Run by wrk. With the argument "set" it posts two values in turn, so that each request changes the variable; without
-- arguments it repeats the same GET. The last line of output holds the figures for bench/throughput.py.

function init(arguments)
    if arguments[1] ~= "set" then
        return
    end
    local posts, turn = {}, 0
    for place, value in ipairs({3, 7}) do
        local body = '{"MemPersistent": {"DisplayBrightness": ' .. value .. '}}'
        posts[place] = wrk.format("POST", nil, {["Content-Type"] = "application/json"}, body)
    end
    function request()
        turn = turn % 2 + 1
        return posts[turn]
    end
end

function done(summary, latency)
    local errors = summary.errors
    io.write(string.format("figures %d %d %d %d %d %d\n", summary.requests, summary.duration, latency:percentile(50),
        latency:percentile(99), errors.connect + errors.read + errors.write + errors.status, errors.timeout))
end
