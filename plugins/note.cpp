// "/notes": keeps JSON values in memory, each under a number. As a RESTful resource:
//
//   GET /notes         the numbers: [1, 2]
//   POST /notes        201, {"id": 1} and its Location
//   GET /notes/1       the value
//   PUT /notes/1       puts another one in its place
//   DELETE /notes/1    204
//
// Notes are lost with the process. The record's params may say how many there can be (1000); one
// has at most 64 KiB. Beyond that, 503 and 413.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "json_rpc/json_restful_channel.h"
#include "json_rpc/json_restful_handler.h"
#include "plugins/plugin.h"
#include "vexa/cgi_request.h"
#include "vexa/cgi_response.h"
#include "vexa/json_dump.h"
#include "vexa/natoi.h"
#include "vexa/object_creator_t.h"

using json_spirit::Value;

namespace {

/// The notes, called by all loop threads; none of it takes long.
class Note_Handler final : public JSON_RESTful_Handler {
public:
  int init(int argc, char** argv) override {
    if (argc == 0) return 0;
    const char* stop = nullptr;
    most_ = natoi<std::size_t>(static_cast<const char*>(argv[0]), nullptr, &stop);
    return errno == 0 && *stop == '\0' ? 0 : -1;
  }
  CONCURRENCY concurrency() const override { return REACTIVE; }

  int handle_request(JSON_RESTful_Channel* channel, Value& body) override {
    std::string part = channel->request()->uri_text().substr(channel->uri_off());
    part.erase(std::min(part.find('?'), part.size()));
    if (part.compare(0, 1, "/") == 0) part.erase(0, 1);
    if (part.empty()) return handle_all(*channel, body);
    const char* stop = nullptr;
    const std::uint64_t id = natoi<std::uint64_t>(part.c_str(), nullptr, &stop);
    if (errno != 0 || *stop != '\0') return channel->send_error(404);
    return handle_one(*channel, id, body);
  }

private:
  int handle_all(JSON_RESTful_Channel& channel, Value& body) {
    switch (channel.request()->method()) {
      case HTTP_METHOD_GET:
      case HTTP_METHOD_HEAD:
        return channel.send(list());
      case HTTP_METHOD_POST:
        return post(channel, body);
      default:
        return refuse_method(channel, "GET, HEAD, POST");
    }
  }

  int handle_one(JSON_RESTful_Channel& channel, std::uint64_t id, Value& body) {
    switch (channel.request()->method()) {
      case HTTP_METHOD_GET:
      case HTTP_METHOD_HEAD:
        return get(channel, id);
      case HTTP_METHOD_PUT:
        if (is_long(body)) return channel.send_error(413);
        return replace(id, body) ? no_content(channel) : channel.send_error(404);
      case HTTP_METHOD_DELETE:
        return erase(id) ? no_content(channel) : channel.send_error(404);
      default:
        return refuse_method(channel, "GET, HEAD, PUT, DELETE");
    }
  }

  Value list() const {
    json_spirit::Array numbers;
    const std::lock_guard<std::mutex> guard(lock_);
    numbers.reserve(notes_.size());
    for (const auto& note : notes_) numbers.emplace_back(note.first);
    return numbers;
  }

  int post(JSON_RESTful_Channel& channel, Value& body) {
    if (is_long(body)) return channel.send_error(413);
    const std::uint64_t id = insert(body);
    if (id == 0) return channel.send_error(503, 503, "There is no room for another note.");
    const std::string name = std::to_string(id);
    const std::string uri = channel.request()->uri_text().substr(0, channel.uri_off());
    channel.response()->status(201);
    channel.response()->headers().put(HTTP_HEAD_LOCATION, uri + "/" + name);
    json_spirit::Object answer;
    answer["id"] = id;
    return channel.send(Value(std::move(answer)));
  }

  int get(JSON_RESTful_Channel& channel, std::uint64_t id) const {
    Value note;
    {
      const std::lock_guard<std::mutex> guard(lock_);
      const auto it = notes_.find(id);
      if (it == notes_.end()) return channel.send_error(404);
      note = it->second;
    }
    return channel.send(note);
  }

  /// The id of the new note; 0 when there is no room.
  std::uint64_t insert(Value& note) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (notes_.size() >= most_) return 0;
    notes_.emplace(last_id_ + 1, std::move(note));
    return ++last_id_;
  }
  bool replace(std::uint64_t id, Value& note) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto it = notes_.find(id);
    if (it == notes_.end()) return false;
    std::swap(it->second, note);  // the old one goes with the request, after the unlock
    return true;
  }
  bool erase(std::uint64_t id) {
    std::map<std::uint64_t, Value>::node_type dropped;  // destroyed after the unlock
    const std::lock_guard<std::mutex> guard(lock_);
    dropped = notes_.extract(id);
    return !dropped.empty();
  }

  static bool is_long(const Value& note) { return JSON_Dump(note).str().size() > 64u << 10; }

  static int no_content(JSON_RESTful_Channel& channel) {
    channel.response()->status(204);
    return 0;
  }
  static int refuse_method(JSON_RESTful_Channel& channel, const char* allowed) {
    channel.response()->headers().put(HTTP_HEAD_ALLOW, allowed);
    return channel.send_error(405);
  }

  std::size_t most_ = 1000;  // notes
  mutable std::mutex lock_;
  std::map<std::uint64_t, Value> notes_;  // guarded by lock_
  std::uint64_t last_id_ = 0;             // guarded by lock_; ids are never used again
};

class Note_Creator final : public Object_Creator_T<JSON_RESTful_Handler> {
public:
  JSON_RESTful_Handler* create() override {
    Note_Handler* const handler = new (std::nothrow) Note_Handler;
    if (handler == nullptr || handler->init(argc_, argv_) == 0) return handler;
    delete handler;
    return nullptr;
  }
  void destroy(JSON_RESTful_Handler* handler) override { delete handler; }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT Object_Creator_T<JSON_RESTful_Handler>* make_notes(
    void (**gobbler)(void*)) {
  return plugin::make<Object_Creator_T<JSON_RESTful_Handler>, Note_Creator>(gobbler);
}
