#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "bench/load/door.h"

/// How calls and answers stand in the bytes of one connection.
class Dialect {
public:
  /// What the next bytes hold.
  struct Found {
    std::size_t used = 0;       // bytes of one whole answer; 0 while it is not complete
    std::string answer;         // its JSON
    int status = 200;           // of HTTP
    std::string reply;          // to be sent back
    bool answers_none = false;  // they ask for the reply at most, and belong to no call
    bool broken = false;  // the bytes cannot be understood: the connection is of no use any more
  };

  virtual ~Dialect() = default;
  virtual void add_call(std::string_view call, std::string& out) const = 0;
  virtual Found find_answer(std::string_view bytes) const = 0;
  /// Whether answers come in the order of their calls.
  virtual bool in_order() const = 0;
};

std::unique_ptr<Dialect> make_dialect(const Door& door);

/// The id and the error's code, 0 where there is none, of an answer whose id stands in front of its
/// result or error, as the host writes them; false for any other text.
bool read_answer(std::string_view answer, unsigned long long& id, int& code);
