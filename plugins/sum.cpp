// "sum": adds an array of numbers. Integers stay an integer while the sum fits one.

#include <cstdint>

#include "plugins/plugin.h"

using json_spirit::Value;

namespace {

/// The sum so far: an integer until a real comes, or it no longer fits.
class Sum {
 public:
  bool add(const Value& number) {
    if (number.type() == json_spirit::int_type && !number.is_uint64()) {
      add_integer(number.get_int64());
      return true;
    }
    if (number.type() != json_spirit::int_type && number.type() != json_spirit::real_type) {
      return false;
    }
    add_real(number.get_real());
    return true;
  }

  Value value() const { return exact_ ? Value(integer_) : Value(real_); }

 private:
  void add_integer(std::int64_t number) {
    if (exact_ && !__builtin_add_overflow(integer_, number, &integer_)) return;
    // On overflow the integer has wrapped: the real is made from what it was.
    if (exact_) {
      real_ = static_cast<double>(static_cast<std::int64_t>(
                  static_cast<std::uint64_t>(integer_) - static_cast<std::uint64_t>(number))) +
              static_cast<double>(number);
      exact_ = false;
    } else {
      real_ += static_cast<double>(number);
    }
  }
  void add_real(double number) {
    if (exact_) real_ = static_cast<double>(integer_);
    exact_ = false;
    real_ += number;
  }

  bool exact_ = true;
  std::int64_t integer_ = 0;
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
