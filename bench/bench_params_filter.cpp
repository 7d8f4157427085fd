// Params handed to a filter as events while they are read, beside yajl with callbacks that do
// nothing.

#include "bench/bare_yajl.h"
#include "bench/messages.h"
#include "bench/pairs.h"
#include "bench/reader_path.h"

int main(int argc, char** argv) {
  for (const messages::Named& message : messages::all()) {
    const std::string& text = message.text;
    for (const std::size_t piece : {0, 4096}) {
      if (piece >= text.size()) continue;
      const std::string name =
          std::string(message.name) + (piece == 0 ? " whole" : " by " + std::to_string(piece));
      pairs::add_pair(
          name, [&text, piece] { return bare_yajl::parse(text, piece); },
          [&text, piece] { return reader_path::filtered(text, piece); });
    }
  }
  return pairs::run(argc, argv);
}
