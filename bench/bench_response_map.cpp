// What a call does to the response map: its id goes in, is found by the answer and taken out, while
// others are pending. The floor is a hash table of texts with a mutex.

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/give_up.h"
#include "bench/pairs.h"
#include "json_rpc/json_rpc_object.h"
#include "json_rpc/json_rpc_response_map.h"

namespace {

using benchmark::State;

constexpr std::size_t calls = 1000;

struct Nobody final : JSON_RPC_Handler {
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
};

std::vector<std::string> new_ids(std::size_t count) {
  std::vector<std::string> ids;
  while (ids.size() < count) ids.push_back(JSON_RPC_Id_Generator::get());
  return ids;
}

class Hash_Table {
public:
  typedef std::string Id;
  typedef std::shared_ptr<JSON_RPC_Handler> Handler;
  static Handler new_handler() { return std::make_shared<Nobody>(); }

  bool insert(const Id& id, const Handler& handler) {
    const std::lock_guard<std::mutex> guard(lock_);
    return map_.emplace(id, handler).second;
  }
  Handler find(const Id& id) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto it = map_.find(id);
    return it == map_.end() ? nullptr : it->second;
  }
  bool remove(const Id& id) {
    Handler dropped;
    const std::lock_guard<std::mutex> guard(lock_);
    const auto it = map_.find(id);
    if (it == map_.end()) return false;
    dropped = std::move(it->second);
    map_.erase(it);
    return true;
  }

private:
  std::mutex lock_;
  std::unordered_map<Id, Handler> map_;  // guarded by lock_
};

class Response_Map {
public:
  typedef json_spirit::Value Id;
  typedef JSON_RPC_Handler_var Handler;
  static Handler new_handler() { return Handler(new Nobody); }

  bool insert(const Id& id, const Handler& handler) { return map_.insert(id, handler) == 0; }
  Handler find(const Id& id) { return map_.find(id); }
  bool remove(const Id& id) { return map_.remove(id) == 0; }

private:
  JSON_RPC_Response_Map map_;
};

template <typename Map>
void call(State& state, std::size_t pending) {
  Map map;
  const typename Map::Handler handler = Map::new_handler();
  for (const std::string& id : new_ids(pending)) map.insert(typename Map::Id(id), handler);
  std::vector<typename Map::Id> ids;
  for (const std::string& id : new_ids(calls)) ids.emplace_back(id);
  for (auto _ : state) {
    for (const typename Map::Id& id : ids) {
      if (!map.insert(id, handler) || map.find(id).get() == nullptr || !map.remove(id)) {
        give_up("the map loses an id");
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (const std::size_t pending : {1, 100, 10'000}) {
    const std::string name = "1000 calls with " + std::to_string(pending) + " pending";
    benchmark::RegisterBenchmark(("floor/" + name).c_str(), call<Hash_Table>, pending);
    benchmark::RegisterBenchmark(("ours/" + name).c_str(), call<Response_Map>, pending);
  }
  return pairs::run(argc, argv);
}
