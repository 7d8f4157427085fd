-- What wrk posts, and what it tells in the end: the answers, and all that went wrong. With the
-- argument "check" it looks into every answer, which costs it much of its speed.

wrk.method = "POST"
wrk.body = '{"jsonrpc":"2.0","id":1,"method":"sum","params":[1,2,3]}'
wrk.headers["Content-Type"] = "application/json"

wrong = 0
local threads = {}

function setup(thread) table.insert(threads, thread) end

function init(args)
  if args[1] ~= "check" then return end
  response = function(status, headers, body)
    if body ~= '{"jsonrpc":"2.0","id":1,"result":6}\n' then wrong = wrong + 1 end
  end
end

function done(summary)
  local e = summary.errors
  local errors = e.connect + e.read + e.write + e.status + e.timeout
  for _, thread in ipairs(threads) do errors = errors + thread:get("wrong") end
  print(string.format("answered %d errors %d", summary.requests, errors))
end
