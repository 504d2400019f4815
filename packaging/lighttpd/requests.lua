-- Decides for each request whether it goes on (0) or which status it gets, and logs changes of variables. The settings are
-- those of limits.conf, hosts.conf and folders.conf.
local r = lighty.r
local path, method = r.req_attr["uri.path"], r.req_attr["request.method"]
local address = r.req_attr["request.remote-addr"]
local from = r.req_header

local function setting(name)
    local value = r.req_env[name]
    return tonumber(value) or value or ""
end

local function is_api()
    return path:find("^/api/v[12]/") or path:find("^/qorapp/v1/") or path == "/qorapp/v1"
end

-- A request for the update status starts a valid update.
local function is_change()
    return method ~= "GET" and method ~= "HEAD" or path:find("^/qorapp/v1/device/update")
        or path:find("^/qorapp/v1/device/status")
end

-- A page of another site can point its own name to the controller's address (DNS rebinding) and then read and change
-- everything.
local function is_other_host()
    local host = (from["Host"] or "localhost"):lower():gsub(":%d+$", ""):gsub("%.$", "")
    local is_known = host == "localhost" or host:find("%.local$") or host:find("^%d+%.%d+%.%d+%.%d+$")
        or host:find("^%[[%x:.]+%]$") or (" " .. setting("HOSTS") .. " "):find(" " .. host .. " ", 1, true)
    return not is_known
end

-- Browsers send Origin with every cross-site change. They send Sec-Fetch-Site for encrypted connections and localhost
-- only, but then with every request.
local function is_foreign()
    local site, origin = from["Sec-Fetch-Site"], from["Origin"]
    local own = r.req_attr["uri.scheme"] .. "://" .. (from["Host"] or "")
    return is_api() and (site == "cross-site" or site == "same-site")
        or is_change() and origin and origin:lower() ~= own:lower()
end

-- The name of the rate that the request counts for, if any.
local function rate()
    if path == "/api/v1/all.cgi" then return "TREE" end
    if path == "/api/v1/set.cgi" then return "SET" end
    if path:find("^/api/v2/") then return method == "PATCH" and "LIVE_CHANGES" or "LIVE" end
    if path:find("^/qorapp/v1/device/") then return "DEVICE" end
    local script = path:match("^/api/v1/(.*)$")
    local is_known = script == "update.cgi" or script == "log.cgi" or script == "screen.cgi"
    return script and not is_known and "UNKNOWN"
end

-- Each address has a bucket for each rate: a request puts 1 in, and the rate drains it. Returns whether it is full.
local buckets = _G.buckets or { count = 0 }
_G.buckets = buckets
local function is_too_often(name)
    local now, key = lighty.c.time(), name .. address
    if buckets.count > 10000 then
        buckets = { count = 0 }
        _G.buckets = buckets
    end
    local bucket = buckets[key]
    if not bucket then
        bucket = { level = 0, time = now }
        buckets[key], buckets.count = bucket, buckets.count + 1
    end
    bucket.level = math.max(0, bucket.level - (now - bucket.time) * setting("RATE_" .. name) / 60)
    bucket.time = now
    if bucket.level >= setting("BURST_" .. name) then return true end
    bucket.level = bucket.level + 1
    return false
end

-- The kind of a request that the numbers of limits.conf count.
local function kind(headers, script)
    if script == "/api/v1/update.cgi" or script == "/api/v1/log.cgi" then return "WAITING" end
    if script == "/api/v2/events" then return "STREAMS" end
    local length = tonumber(headers["Content-Length"])
    if headers["Transfer-Encoding"] or length and length >= 1000000 then return "UPLOADS" end
    return nil
end

-- Whether more requests are in progress than allowed, this one included. A connection without a request keeps the
-- attributes of its last one.
local STAGES = { ["readpost"] = true, ["handle-req"] = true, ["write"] = true }
local function are_too_many()
    local own, all, of_address, of_kind = kind(from, path), 0, 0, 0
    for request in lighty.server.irequests() do
        local attributes = request.req_attr
        if STAGES[attributes["request.stage"]] then
            local is_same = attributes["request.remote-addr"] == address
            if is_same then of_address = of_address + 1 end
            if own and kind(request.req_header, attributes["uri.path"]) == own then
                all = all + 1
                if is_same then of_kind = of_kind + 1 end
            end
        end
    end
    return of_address > setting("REQUESTS_OF_ADDRESS")
        or own and (all > setting(own) or of_kind > setting(own .. "_OF_ADDRESS"))
end

-- Appends a line to the log of changes.
local function log_change()
    -- "get" of lighttpd 1.4.69 returns the header, too, if both arrived together.
    local body = (r.req_body.get or ""):sub(-r.req_body.len):sub(1, 16384)
    local function quoted(text)
        return '"' .. text:gsub('[%c"\\]', function(c) return string.format("\\u%04x", c:byte()) end) .. '"'
    end
    local file = io.open(setting("CHANGES"), "a")
    if file then
        file:write('{"time": "', os.date("!%Y-%m-%dT%H:%M:%SZ"), '", "address": "', address, '", "user": ',
                   quoted(r.req_env["REMOTE_USER"] or ""), ', "length": ', r.req_body.len, ', "body": ', quoted(body), "}\n")
        file:close()
    end
end

local is_set = path == "/api/v1/set.cgi"
local is_logged = is_set or path == "/api/v2/values" and method == "PATCH"
if is_other_host() then return 421 end
if is_foreign() then return 403 end
if is_set and method ~= "POST" then return 405 end
if are_too_many() then return 503 end
-- lighttpd runs the script again when the body is complete.
if is_logged and not r.req_body.collect then return 0 end
if rate() and is_too_often(rate()) then return 429 end
if is_logged then log_change() end
-- The service keeps its log in memory. A header value that it logs is truncated.
from["User-Agent"] = from["User-Agent"] and from["User-Agent"]:sub(1, 150)
return 0
