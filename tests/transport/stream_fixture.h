#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "json_rpc/json_rpc_params_handler_map.h"
#include "tests/support/json_rpc_fixture.h"
#include "transport/stream_channel.h"

using namespace transport;

/// Notes what a channel asks of its connection.
class Fake_Wire final : public Wire {
public:
  void wake() override { ++wakes; }
  void resume() override { ++resumes; }
  void close_soon(const char* reason) override {
    reason_ = reason;
    ++closes;
  }
  /// Why the connection was asked to close; "" when it was not.
  std::string reason() const { return reason_.load(); }

  std::atomic<int> wakes{0};
  std::atomic<int> resumes{0};
  std::atomic<int> closes{0};

private:
  std::atomic<const char*> reason_{""};
};

/// Takes all that may be written now out of `outbox` and counts it as sent.
inline std::string drain(Outbox& outbox) {
  std::vector<Output_Piece> batch;
  while (outbox.take(batch)) {
  }
  std::string text;
  std::size_t answers = 0;
  for (const Output_Piece& piece : batch) {
    text += piece.text();
    answers += piece.answers;
  }
  outbox.sent(text.size(), answers);
  return text;
}

/// A channel on a fake wire; `limits` of the test.
struct Wired_Channel {
  explicit Wired_Channel(const Limits& limits)
      : wire(std::make_shared<Fake_Wire>()),
        stream(new Stream_Channel(limits, Stream_Channel::Addresses(), wire)),
        channel(stream) {
    stream->self(channel);
    stream->type(Stream_Channel::STREAM);
    stream->id("9");
  }
  std::string output() { return drain(stream->outbox()); }

  const std::shared_ptr<Fake_Wire> wire;
  Stream_Channel* const stream;
  const JSON_RPC_Channel_var channel;
};

class Stream_Fixture : public JSON_RPC_Fixture {
protected:
  ~Stream_Fixture() override { JSON_RPC_Params_Handler_Map::close_instance(); }

  Limits limits_;
};

/// The answer that the channel itself makes under `id` (its JSON text).
inline std::string error_line(const std::string& id, int code) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"error":{"code":)" + std::to_string(code) +
         R"(,"message":")" + json_rpc_error_message(code) + "\"}}\n";
}

inline JSON_RPC_Object_var make_response(const json_spirit::Value& id, json_spirit::Value result) {
  JSON_RPC_Response* const response = new JSON_RPC_Response(nullptr);
  response->id = id;
  response->result = std::move(result);
  return JSON_RPC_Object_var(response);
}

/// Notes the answers that it gets: an error response as its code.
class Noting_Handler final : public JSON_RPC_Handler {
public:
  explicit Noting_Handler(std::string& got) : got_(got) {}
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var object) override {
    got_ += object->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR
                ? std::to_string(static_cast<JSON_RPC_Response_Error&>(*object).code) + " "
                : "result ";
    return 0;
  }

private:
  std::string& got_;
};
