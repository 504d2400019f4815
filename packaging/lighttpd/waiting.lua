-- Asked for each request that may wait: how many wait already, whoever they are. The one that is asked for counts, too.
--
-- Waiting requests take the service's places. It leaves the 33rd client alone for ever: so that nobody meets this, the
-- 31st gets a 503, and two places stay for requests that are answered at once.
local PLACES = 30
local SCRIPTS = { ["/api/v1/update.cgi"] = true, ["/api/v1/log.cgi"] = true }

-- On the way to an answer. A connection on which nothing is asked keeps the path of its last request.
local STAGES = { ["readpost"] = true, ["handle-req"] = true }

local waiting = 0
for request in lighty.server.irequests() do
    local attributes = request.req_attr
    if SCRIPTS[attributes["uri.path"]] and STAGES[attributes["request.stage"]] then
        waiting = waiting + 1
    end
end
return waiting > PLACES and 503 or 0
