// What the server does in one step. Values, their revision and their entries in the log are written
// together, so that no reader ever sees one without the other. An entry of the log has the number
// of its last change as its id; whoever reads it finds a hole by counting.

#include "tools/redis/Functions.h"

namespace Redis {

const char * const functionLibrary = R"lua(#!lua name=cspf_state

local kept = 131072    -- changes that the log keeps, about
local perEntry = 300   -- changes in one entry, and in one packed text

local function revision()
  return tonumber(redis.call('GET', 'rev') or '0')
end

local function fenceOf(lease)
  return lease and string.match(lease, '^%d+')
end

-- Why the holder of the fence cannot write the key; nil where it can.
local function obstacle(key, fence)
  local path = string.match(key, '^[et]:([^/].*)$')
  if not path then
    return 'BADKEY ' .. key .. ': expected e:PATH or t:PATH'
  end
  local kind = redis.call('TYPE', key).ok
  if kind ~= 'none' and kind ~= 'hash' then
    return 'FOREIGN ' .. key .. ' ' .. kind
  end
  local paths, leases = {}, {}
  while path and #paths < 64 do
    paths[#paths + 1] = path
    leases[#leases + 1] = 'lease:' .. path
    path = string.match(path, '^(.+)/[^/]*$')
  end
  local held = redis.call('MGET', unpack(leases))
  local last = redis.call('HMGET', 'fence', unpack(paths))
  for i in ipairs(paths) do
    if fence ~= '0' and last[i] and tonumber(last[i]) > tonumber(fence) then
      return 'FENCED ' .. key
    end
    if held[i] and fenceOf(held[i]) ~= fence then
      return 'OWNED ' .. key .. ' ' .. held[i]
    end
  end
end

-- One turn of a writer in the log: an entry for each packed text, written when it is known whether
-- another one follows.
local function turnOf(writer)
  local turn, keys, rev = {}, {}, revision()
  local key, changes
  local function put(...)
    if key then
      redis.call('XADD', 'log', 'MINID', '~', string.format('%.0f', math.max(rev - kept, 0)),
                 string.format('%.0f-0', rev), '@by', writer, key, changes, ...)
    end
  end
  function turn.note(nextKey, nextChanges, count)
    put('@more', '1')
    if nextKey ~= key then
      keys[#keys + 1] = nextKey
    end
    key, changes, rev = nextKey, nextChanges, rev + count
  end
  function turn.finish()
    put()
    local last = string.format('%.0f', rev)
    redis.call('SET', 'rev', last)
    for _, one in ipairs(keys) do
      if redis.call('EXISTS', one) == 1 then
        redis.call('HSET', one, '@rev', last)
      end
    end
    return rev
  end
  return turn
end

-- Makes packed changes of one key, and notes them.
local function change(turn, key, kind, changes)
  if kind == '' then
    if redis.call('UNLINK', key) == 1 then  -- to free many fields takes long
      turn.note(key, cmsgpack.pack({}, { '@type' }), 1)
    end
    return
  end
  if redis.call('HSETNX', key, '@type', kind) == 1 then
    turn.note(key, cmsgpack.pack({ '@type', kind }, {}), 1)
  end
  local set, ended = cmsgpack.unpack(changes)
  if #set > 0 then
    redis.call('HSET', key, unpack(set))
  end
  if #ended > 0 then
    redis.call('HDEL', key, unpack(ended))
  end
  if #set + #ended > 0 then
    turn.note(key, changes, #set / 2 + #ended)
  end
end

local function write(_, args)
  if redis.call('GET', 'epoch') ~= args[1] then
    return redis.error_reply('EPOCH the database is another one than before')
  end
  for at = 4, #args, 3 do
    local why = args[at] ~= args[at - 3] and obstacle(args[at], args[3])
    if why then
      return redis.error_reply(why)
    end
  end
  local before, turn = revision(), turnOf(args[2])
  for at = 4, #args, 3 do
    change(turn, args[at], args[at + 1], args[at + 2])
    args[at + 2] = false
    collectgarbage('step', 100)  -- or a long turn piles up
  end
  return { before, turn.finish() }
end

local function slice(list, at, size)
  return { unpack(list, at, math.min(at + size - 1, #list)) }
end

-- `set` holds fields and texts in turn, `ended` fields.
local function byHand(key, kind, set, ended)
  local why = obstacle(key, '0')
  if why then
    return redis.error_reply(why)
  end
  local turn = turnOf('hand')
  change(turn, key, kind, cmsgpack.pack({}, {}))
  for at = 1, #set, 2 * perEntry do
    change(turn, key, kind, cmsgpack.pack(slice(set, at, 2 * perEntry), {}))
  end
  for at = 1, #ended, perEntry do
    change(turn, key, kind, cmsgpack.pack({}, slice(ended, at, perEntry)))
  end
  return turn.finish()
end

local function set(keys, args)
  local kind, fields = redis.call('HGET', keys[1], '@type'), {}
  if #args % 2 == 1 then
    return redis.error_reply('ERR expected FIELD TEXT pairs')
  end
  for i = 1, #args, 2 do
    if args[i] == '@type' then
      kind = args[i + 1]
    elseif args[i + 1] == '' then
      return redis.error_reply('ERR ' .. args[i] .. ': the text is empty; FCALL state_del ends a field')
    else
      fields[#fields + 1] = args[i]
      fields[#fields + 1] = args[i + 1]
    end
  end
  if not kind or kind == '' then
    return redis.error_reply('ERR ' .. keys[1] .. ' is new: give its @type as well')
  end
  return byHand(keys[1], kind, fields, {})
end

local function del(keys, args)
  local kind = redis.call('HGET', keys[1], '@type')
  if not kind then
    return revision()
  end
  return byHand(keys[1], #args == 0 and '' or kind, {}, args)
end

local function open(_, args)
  redis.call('SETNX', 'epoch', args[1])
  local rev = revision()
  if redis.call('EXISTS', 'log') == 1 then
    local info = redis.call('XINFO', 'STREAM', 'log')
    for i = 1, #info, 2 do
      if info[i] == 'last-generated-id' then
        rev = math.max(rev, tonumber(string.match(info[i + 1], '^%d+')))
      end
    end
  end
  redis.call('SET', 'rev', string.format('%.0f', rev))
  return { redis.call('GET', 'epoch'), rev }
end

-- Greater than those before it, also than those of which the database has lost every trace. In
-- milliseconds: tostring has 14 digits, and the library of an earlier version counts on by it.
local function newFence()
  local now = redis.call('TIME')
  local last = tonumber(redis.call('GET', 'fences') or '0')
  return string.format('%.0f', math.max(last + 1, now[1] * 1000 + math.floor(now[2] / 1000)))
end

local function claim(_, args)
  local fence, dead = args[1], args[3]
  for i = 5, #args do
    local held = redis.call('GET', 'lease:' .. args[i])
    local by = fenceOf(held)
    if by and by ~= fence and by ~= dead then
      return redis.error_reply('HELD ' .. args[i] .. ' ' .. held)
    end
    local last = redis.call('HGET', 'fence', args[i])
    if fence ~= '0' and last and tonumber(last) > tonumber(fence) then
      return redis.error_reply('FENCED ' .. args[i])
    end
  end
  if fence == '0' then
    fence = newFence()
  end
  if tonumber(redis.call('GET', 'fences') or '0') < tonumber(fence) then
    redis.call('SET', 'fences', fence)
  end
  for i = 5, #args do
    redis.call('SET', 'lease:' .. args[i], fence .. ' ' .. args[4], 'PX', args[2])
    redis.call('HSET', 'fence', args[i], fence)
  end
  return { fence, revision() }
end

local function release(_, args)
  for i = 2, #args do
    if fenceOf(redis.call('GET', 'lease:' .. args[i])) == args[1] then
      redis.call('DEL', 'lease:' .. args[i])
    end
  end
  return redis.status_reply('OK')
end

redis.register_function('state_open', open)
redis.register_function('state_write', write)
redis.register_function('state_set', set)
redis.register_function('state_del', del)
redis.register_function('state_claim', claim)
redis.register_function('state_release', release)
)lua";

}
