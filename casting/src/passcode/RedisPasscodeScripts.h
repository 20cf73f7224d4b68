// The Lua scripts RedisPasscodeStore runs in Redis; each is one atomic step
// of the registry's rules (passcode/PasscodeRegistry.h) and the limiters'
// (transport/RateLimiter.h, passcode/SourceBudget.h). ARGV[1] is always the
// caller's clock (ms since 1970).
#pragma once

namespace zv::redis_scripts {

// The wrong-try limiter of RateLimiter: ARGV[2] kind ("r" resolve, "p"
// panel requests), ARGV[3] source, ARGV[4..7] free tries, first lock-out,
// longest lock-out, forget-after (ms). Shared by the scripts below.
inline constexpr const char* kLimiter = R"lua(
local P = 'zv:pc:'
local now = tonumber(ARGV[1])
local lk = P .. 'lim:' .. ARGV[2] .. ':' .. ARGV[3]
local free, firstLock, maxLock, forget = tonumber(ARGV[4]), tonumber(ARGV[5]), tonumber(ARGV[6]), tonumber(ARGV[7])
local l = redis.call('HMGET', lk, 'failures', 'lock', 'until')
local failures, lock, untilMs = tonumber(l[1]) or 0, tonumber(l[2]) or 0, tonumber(l[3]) or 0
local function locked() return now < untilMs end
local function fail()
  if locked() then return failures end
  failures = failures + 1
  if failures >= free then
    if lock == 0 then lock = firstLock else lock = math.min(lock * 2, maxLock) end
    untilMs = now + lock
  end
  redis.call('HSET', lk, 'failures', failures, 'lock', lock, 'until', untilMs)
  redis.call('PEXPIRE', lk, forget + lock)
  return failures
end
)lua";

// Limiter ARGV, then ARGV[8] "check" or "fail" -> {allowed 0/1, retry-after ms}.
inline constexpr const char* kPanelLimit = R"lua(
if ARGV[8] == 'fail' then fail() return {1, 0} end
if locked() then return {0, untilMs - now} end
return {1, 0}
)lua";

// Limiter ARGV (kind "r"), then ARGV[8] passcode ('' when malformed) ->
// {0, address, port, name, key, exp, ttl, stamp, cert, sig} found,
// {1, failures} unknown, {2, retry-after ms} locked, {3, failures} invalid.
inline constexpr const char* kResolve = R"lua(
if locked() then return {2, untilMs - now} end
local code = ARGV[8]
if code == '' then return {3, fail()} end
local e = redis.call('HMGET', P .. 'e:' .. code, 'address', 'port', 'name', 'key', 'exp', 'ttl', 'stamp', 'cert', 'sig')
if not e[5] or tonumber(e[5]) <= now then return {1, fail()} end
return {0, e[1], e[2], e[3], e[4], e[5], e[6], e[7], e[8], e[9]}
)lua";

// ARGV: 1 now, 2 passcode held or '', 3 address, 4 port, 5 name, 6 ttl s,
// 7 rotate 0/1, 8 key id, 9 stamp, 10 source, 11 certificate, 12 signature,
// 13 most per key, 14 most entries, 15 budget burst, 16 budget refill ms,
// 17.. candidates ->
// {0, passcode, released passcode or '', released address} assigned,
// {1, passcode, exp} renewed, {2} replayed, {3, budget left 0/1, held} full.
inline constexpr const char* kRegister = R"lua(
local P = 'zv:pc:'
local now = tonumber(ARGV[1])
local code, addr, port, name, ttl = ARGV[2], ARGV[3], ARGV[4], ARGV[5], tonumber(ARGV[6])
local rotate, key, stamp, source = ARGV[7] == '1', ARGV[8], tonumber(ARGV[9]), ARGV[10]
local maxPerKey, maxEntries = tonumber(ARGV[13]), tonumber(ARGV[14])
local burst, refill = tonumber(ARGV[15]), tonumber(ARGV[16])
local keySet = P .. 'k:' .. key
local setLife = 660000
local function live(c)
  local e = redis.call('HMGET', P .. 'e:' .. c, 'key', 'exp', 'address', 'port')
  if e[1] == key and e[2] and tonumber(e[2]) > now then return e end
  return nil
end
local held, count = nil, 0
if code ~= '' and live(code) then held = code end
for _, c in ipairs(redis.call('SMEMBERS', keySet)) do
  local e = live(c)
  if e then
    count = count + 1
    if not held and e[3] == addr and e[4] == port then held = c end
  else
    redis.call('SREM', keySet, c)
  end
end
local exp = now + ttl * 1000
local entryLife = ttl * 1000 + 60000
local released, releasedAddr = nil, ''
if held then
  local ek = P .. 'e:' .. held
  if stamp <= tonumber(redis.call('HGET', ek, 'stamp')) then return {2} end
  if not rotate then
    redis.call('HSET', ek, 'address', addr, 'port', port, 'name', name, 'ttl', ARGV[6], 'exp', exp,
               'stamp', ARGV[9], 'cert', ARGV[11], 'sig', ARGV[12])
    redis.call('PEXPIRE', ek, entryLife)
    redis.call('PEXPIRE', keySet, setLife)
    redis.call('ZADD', P .. 'live', exp, held)
    return {1, held, exp}
  end
  released = held
  releasedAddr = redis.call('HGET', ek, 'address')
end
local bk = P .. 'b:' .. source
local b = redis.call('HMGET', bk, 'used', 'since')
local used, since = tonumber(b[1]) or 0, tonumber(b[2]) or now
local back = math.floor((now - since) / refill)
if back > 0 then
  if back >= used then used = 0; since = now else used = used - back; since = since + back * refill end
end
local budgetLeft = used < burst
redis.call('ZREMRANGEBYSCORE', P .. 'live', '-inf', now)
local total = redis.call('ZCARD', P .. 'live')
local after = count
if released then after = count - 1 end
local picked = nil
if budgetLeft and after < maxPerKey and total < maxEntries then
  for i = 17, #ARGV do
    local c = ARGV[i]
    if c ~= released then
      local e = redis.call('HGET', P .. 'e:' .. c, 'exp')
      if not e or tonumber(e) <= now then picked = c; break end
    end
  end
end
if not picked then
  if budgetLeft then return {3, 1, count} end
  return {3, 0, count}
end
if released then
  redis.call('DEL', P .. 'e:' .. released)
  redis.call('SREM', keySet, released)
  redis.call('ZREM', P .. 'live', released)
end
local ek = P .. 'e:' .. picked
redis.call('DEL', ek)
redis.call('HSET', ek, 'address', addr, 'port', port, 'name', name, 'ttl', ARGV[6], 'exp', exp, 'key', key,
           'stamp', ARGV[9], 'cert', ARGV[11], 'sig', ARGV[12])
redis.call('PEXPIRE', ek, entryLife)
redis.call('SADD', keySet, picked)
redis.call('PEXPIRE', keySet, setLife)
redis.call('ZADD', P .. 'live', exp, picked)
if used == 0 then since = now end
redis.call('HSET', bk, 'used', used + 1, 'since', since)
redis.call('PEXPIRE', bk, (burst + 1) * refill)
return {0, picked, released or '', releasedAddr}
)lua";

// ARGV: 1 now, 2 passcode, 3 key id, 4 stamp ->
// {0, address, port, name, ttl, exp} removed, {1} not held, {2} replayed.
inline constexpr const char* kRemove = R"lua(
local P = 'zv:pc:'
local now = tonumber(ARGV[1])
local code, key, stamp = ARGV[2], ARGV[3], tonumber(ARGV[4])
local ek = P .. 'e:' .. code
local e = redis.call('HMGET', ek, 'key', 'exp', 'stamp', 'address', 'port', 'name', 'ttl')
if e[1] ~= key or not e[2] or tonumber(e[2]) <= now then return {1} end
if stamp <= tonumber(e[3]) then return {2} end
redis.call('DEL', ek)
redis.call('SREM', P .. 'k:' .. key, code)
redis.call('ZREM', P .. 'live', code)
return {0, e[4], e[5], e[6], e[7], e[2]}
)lua";

// ARGV: 1 now -> live entries.
inline constexpr const char* kCount = R"lua(
return redis.call('ZCOUNT', 'zv:pc:live', '(' .. ARGV[1], '+inf')
)lua";

}  // namespace zv::redis_scripts
