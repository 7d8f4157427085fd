// Messages as text: objects through the writer and params of a generator, beside yajl's generator
// with the same events. yajl writes numbers by sprintf, which ours goes past.

#include "bench/bare_yajl.h"
#include "bench/messages.h"
#include "bench/pairs.h"
#include "bench/writer_path.h"

int main(int argc, char** argv) {
  for (const messages::Named& message : messages::all()) {
    const JSON_RPC_Object_var object = writer_path::message_of(message.text);
    pairs::add_pair(
        std::string(message.name) + " object",
        [events = bare_yajl::events_of(message.text), sink = std::string()]() mutable {
          sink.clear();
          return bare_yajl::generate(events, sink);
        },
        [object] { return writer_path::ours(*object); });
  }
  for (const unsigned int records : {1, 15, 15'000}) {
    pairs::add_pair(
        "generator of " + std::to_string(records),
        [records] { return writer_path::generated_floor(records); },
        [records] { return writer_path::generated(records); });
  }
  return pairs::run(argc, argv);
}
