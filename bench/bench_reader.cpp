// A message through the reader, whole and in pieces, beside yajl with callbacks that do nothing.
// `rapidjson/...` of the same run tells what a faster parser would give.

#include "bench/bare_yajl.h"
#include "bench/messages.h"
#include "bench/pairs.h"
#include "bench/reader_path.h"

int main(int argc, char** argv) {
  for (const messages::Named& message : messages::all()) {
    const std::string& text = message.text;
    for (const std::size_t piece : {0, 1, 64, 4096}) {
      if (piece >= text.size()) continue;
      const std::string name =
          std::string(message.name) + (piece == 0 ? " whole" : " by " + std::to_string(piece));
      pairs::add_pair(
          name, [&text, piece] { return bare_yajl::parse(text, piece); },
          [&text, piece] { return reader_path::ours(text, piece); });
      if (piece == 0) {
        pairs::add("rapidjson", name, [&text] { return reader_path::rapidjson(text); });
      }
    }
  }
  return pairs::run(argc, argv);
}
