// A notification to its subscribers, in process: each takes the text, which is made once, into a
// line of its own. The floor writes the same text with yajl's generator and sends it to as many
// objects by a virtual call that copies it.

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bench/bare_yajl.h"
#include "bench/bench_channel.h"
#include "bench/give_up.h"
#include "bench/pairs.h"
#include "bench/writer_path.h"
#include "json_rpc/json_rpc_fan_out.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_writer.h"

namespace {

const char* const subject = "prices.changed";
const std::string text =
    R"({"jsonrpc":"2.0","method":"prices.changed","params":{"id":12345,"price":99.25,"at":"noon"}})";

std::shared_ptr<const std::string> written(const JSON_RPC_Object& message) {
  auto made = std::make_shared<std::string>();
  YAJL_String_Printer printer(*made);
  JSON_RPC_Writer writer;
  if (!writer.write(message, printer)) give_up("the notification cannot be written");
  return made;
}

/// Uses the text of a fan-out as the transport's channels do.
class Subscriber final : public Bench_Channel {
public:
  using Bench_Channel::send;
  int send(JSON_RPC_Object_var message) override {
    JSON_RPC_Fan_Out* const fan_out = JSON_RPC_Fan_Out::current();
    if (fan_out == nullptr || fan_out->object() != message.get()) give_up("no fan-out");
    if (fan_out->prepared == nullptr) fan_out->prepared = written(*message);
    line_ = *static_cast<const std::string*>(fan_out->prepared.get());
    return 0;
  }

private:
  std::string line_;
};

class Fan_Out {
public:
  explicit Fan_Out(std::size_t subscribers) : message_(writer_path::message_of(text)) {
    for (std::size_t i = 0; i < subscribers; ++i) {
      channels_.emplace_back(new Subscriber);
      manager_.subscribe(channels_.back(), {subject});
    }
  }
  int run() { return manager_.notify(subject, message_); }

private:
  const JSON_RPC_Object_var message_;
  std::vector<JSON_RPC_Channel_var> channels_;
  JSON_RPC_Notify_Manager manager_;
};

struct Receiver {
  virtual ~Receiver() = default;
  virtual int send(const std::string& sent) = 0;
};
struct Copying_Receiver final : Receiver {
  int send(const std::string& sent) override {
    line = sent;
    return 0;
  }
  std::string line;
};

class Loop {
public:
  explicit Loop(std::size_t receivers) : events_(bare_yajl::events_of(text)) {
    for (std::size_t i = 0; i < receivers; ++i) {
      receivers_.push_back(std::make_unique<Copying_Receiver>());
    }
  }
  int run() {
    std::string sent;
    bare_yajl::generate(events_, sent);
    for (const std::unique_ptr<Receiver>& receiver : receivers_) receiver->send(sent);
    return 0;
  }

private:
  const bare_yajl::Events events_;
  std::vector<std::unique_ptr<Receiver>> receivers_;
};

}  // namespace

int main(int argc, char** argv) {
  for (const std::size_t subscribers : {1, 100, 10'000}) {
    const auto loop = std::make_shared<Loop>(subscribers);
    const auto fan_out = std::make_shared<Fan_Out>(subscribers);
    pairs::add_pair(
        std::to_string(subscribers) + " subscribers", [loop] { return loop->run(); },
        [fan_out] { return fan_out->run(); });
  }
  return pairs::run(argc, argv);
}
