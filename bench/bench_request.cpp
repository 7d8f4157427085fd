// The request path by CPU time: floor and ours, each on the same input.

#include "bench/messages.h"
#include "bench/pairs.h"
#include "bench/request_path.h"

int main(int argc, char** argv) {
  request_path::set_up();
  for (const messages::Named& message : messages::all()) {
    const std::string& text = message.text;
    pairs::add_pair(
        message.name, [&text] { return request_path::floor(text); },
        [&text] { return request_path::ours(text); });
  }
  return pairs::run(argc, argv);
}
