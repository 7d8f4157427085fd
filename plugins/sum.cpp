// "sum": adds an array of numbers. Integers stay an integer while the sum fits one.

#include <cstdint>
#include <limits>

#include "plugins/plugin.h"

using json_spirit::Value;

namespace {

__extension__ typedef __int128 Wide;  // no array in memory has enough integers to overflow it

/// The sum so far: exact until a real comes.
class Sum {
public:
  bool add(const Value& number) {
    if (number.type() == json_spirit::int_type) {
      integer_ += number.is_uint64() ? Wide(number.get_uint64()) : Wide(number.get_int64());
      return true;
    }
    if (number.type() != json_spirit::real_type) return false;
    exact_ = false;
    real_ += number.get_real();
    return true;
  }

  /// An integer where all terms were and one of 64 bits holds the sum.
  Value value() const {
    if (exact_ && integer_ >= std::numeric_limits<std::int64_t>::min()) {
      if (integer_ <= std::numeric_limits<std::int64_t>::max()) {
        return static_cast<std::int64_t>(integer_);
      }
      if (integer_ <= std::numeric_limits<std::uint64_t>::max()) {
        return static_cast<std::uint64_t>(integer_);
      }
    }
    return real_ + static_cast<double>(integer_);
  }

private:
  bool exact_ = true;
  Wide integer_ = 0;
  double real_ = 0;
};

class Sum_Handler final : public plugin::Answering_Handler {
  int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) override {
    if (request.params.type() != json_spirit::array_type) return refuse(channel, request);
    const json_spirit::Array& terms = request.params.get_array();
    Sum sum;
    for (const Value& term : terms) {
      if (!sum.add(term)) return refuse(channel, request);
    }
    return plugin::answer(channel, request, sum.value());
  }

  static int refuse(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
    return plugin::refuse(channel, request, "an array of numbers is expected");
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_sum(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Sum_Handler>(gobbler);
}
