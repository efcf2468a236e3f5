// What the server does in one step. Values, their revision and their entries in the log are written
// together, so that no reader ever sees one without the other. An entry of the log has the number
// of its last change as its id; whoever reads it finds a hole by counting.

#include "tools/redis/Functions.h"

namespace Redis {

const char * const functionLibrary = R"lua(#!lua name=cspf_state

local kept = 131072    -- changes that the log keeps, about
local perEntry = 500   -- changes in one entry

local function revision()
  return tonumber(redis.call('GET', 'rev') or '0')
end

local function fenceOf(lease)
  return lease and string.match(lease, '^%d+')
end

-- Why the holder of the fence may not write the key; nil where it may.
local function obstacle(key, fence)
  local path = string.match(key, '^[et]:([^/].*)$')
  if not path then
    return 'BADKEY ' .. key .. ': expected e:PATH or t:PATH'
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

-- Sets and ends fields of one key, and notes each change: key, field, text.
local function change(changes, key, kind, fields)
  local function note(field, text)
    changes[#changes + 1] = { key, field, text }
  end
  if kind == '' then
    if redis.call('DEL', key) == 1 then
      note('@type', '')
    end
    return
  end
  if redis.call('HSETNX', key, '@type', kind) == 1 then
    note('@type', kind)
  end
  local set, ended = {}, {}
  local function flush()
    if #set > 0 then
      redis.call('HSET', key, unpack(set))
    end
    if #ended > 0 then
      redis.call('HDEL', key, unpack(ended))
    end
    set, ended = {}, {}
  end
  for i = 1, #fields, 2 do
    local field, text = fields[i], fields[i + 1]
    note(field, text)
    if text == '' then
      ended[#ended + 1] = field
    else
      set[#set + 1] = field
      set[#set + 1] = text
    end
    if #set + #ended >= 1000 then
      flush()
    end
  end
  flush()
end

local function log(changes, writer)
  local rev, at = revision(), 1
  while at <= #changes do
    local last = math.min(at + perEntry - 1, #changes)
    rev = rev + last - at + 1
    local entry = { '@by', writer }
    if last < #changes then
      entry[#entry + 1] = '@more'
      entry[#entry + 1] = '1'
    end
    local key
    for i = at, last do
      local one = changes[i]
      if one[1] ~= key then
        key = one[1]
        entry[#entry + 1] = '@'
        entry[#entry + 1] = key
      end
      entry[#entry + 1] = one[2]
      entry[#entry + 1] = one[3]
    end
    redis.call('XADD', 'log', 'MINID', '~', string.format('%.0f', math.max(rev - kept, 0)),
               string.format('%.0f-0', rev), unpack(entry))
    at = last + 1
  end
  rev = string.format('%.0f', rev)
  redis.call('SET', 'rev', rev)
  local key
  for _, one in ipairs(changes) do
    if one[1] ~= key then
      key = one[1]
      if redis.call('EXISTS', key) == 1 then
        redis.call('HSET', key, '@rev', rev)
      end
    end
  end
  return tonumber(rev)
end

local function write(_, args)
  if redis.call('GET', 'epoch') ~= args[1] then
    return redis.error_reply('EPOCH the database is another one than before')
  end
  local at = 4
  while at <= #args do
    local why = obstacle(args[at], args[3])
    if why then
      return redis.error_reply(why)
    end
    at = at + 3 + 2 * tonumber(args[at + 2])
  end
  local changes = {}
  at = 4
  while at <= #args do
    local fields, count = {}, 2 * tonumber(args[at + 2])
    for i = 1, count do
      fields[i] = args[at + 2 + i]
    end
    change(changes, args[at], args[at + 1], fields)
    at = at + 3 + count
  end
  return log(changes, args[2])
end

local function byHand(key, kind, fields)
  local why = obstacle(key, '0')
  if why then
    return redis.error_reply(why)
  end
  local changes = {}
  change(changes, key, kind, fields)
  return log(changes, 'hand')
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
  return byHand(keys[1], kind, fields)
end

local function del(keys, args)
  local fields = {}
  for _, field in ipairs(args) do
    fields[#fields + 1] = field
    fields[#fields + 1] = ''
  end
  local kind = redis.call('HGET', keys[1], '@type')
  if not kind then
    return revision()
  end
  return byHand(keys[1], #args == 0 and '' or kind, fields)
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
    fence = tostring(redis.call('INCR', 'fences'))
  elseif tonumber(redis.call('GET', 'fences') or '0') < tonumber(fence) then
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
