-- Run by wrk: sets that change a variable, sets of the same value, whole trees, in a fixed mix. The last lines of the output
-- hold the figures for bench/soak/load.py: requests by kind, those that the end cut off, failed answers by second.

local CHANGES_ONE_OF, TREE_ONE_OF = 8, 400
local KINDS = {"set.cgi, changing", "set.cgi, same value", "all.cgi"}
local threads = {}

function setup(thread)
    table.insert(threads, thread)
end

function init()
    sent = {0, 0, 0}
    failed = {}
    turn = 0
    local headers = {["Content-Type"] = "application/json"}
    values = {}
    for place, value in ipairs({3, 7}) do
        values[place] = wrk.format("POST", "/api/v1/set.cgi", headers, '{"MemPersistent": {"DisplayBrightness": ' .. value .. '}}')
    end
    tree = wrk.format("GET", "/api/v1/all.cgi")
end

function request()
    turn = turn + 1
    local kind = 2
    if turn % TREE_ONE_OF == 0 then
        kind = 3
    elseif turn % CHANGES_ONE_OF == 0 then
        kind = 1
    end
    sent[kind] = sent[kind] + 1
    return kind == 3 and tree or values[math.floor(turn / CHANGES_ONE_OF) % 2 + 1]
end

function response(status, headers, body)
    if status ~= 200 or (body ~= '{"result": 1 }' and #body < 1000) then
        local second = os.time()
        failed[second] = (failed[second] or 0) + 1
    end
end

function done(summary, latency)
    local errors, all = summary.errors, 0
    for place, kind in ipairs(KINDS) do
        all = all + threads[1]:get("sent")[place]
        io.write(string.format("sent %d %s\n", threads[1]:get("sent")[place], kind))
    end
    for second, count in pairs(threads[1]:get("failed")) do
        io.write(string.format("failed %d %d\n", second, count))
    end
    io.write(string.format("unanswered %d %s\n", all - summary.requests, KINDS[2]))
    io.write(string.format("broken %d\n", errors.connect + errors.read + errors.write + errors.timeout))
end
