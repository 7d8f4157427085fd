// A message through the reader, whole and in pieces, beside yajl with callbacks that do nothing.
// `filter/...` is with the params handed to a filter as events, `rapidjson/...` what a faster
// parser would give.

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
      if (piece == 0 || piece == 4096) {
        pairs::add("filter", name, [&text, piece] { return reader_path::filtered(text, piece); });
      }
      if (piece == 0) {
        pairs::add("rapidjson", name, [&text] { return reader_path::rapidjson(text); });
      }
    }
  }
  return pairs::run(argc, argv);
}
