#include "vexa/yajl_forward_handler.h"

#include "vexa/json_limits.h"
#include "vexa/yajl_gen.h"

namespace {

// A message stands around the value: its object, and for an error's data one more.
constexpr unsigned int max_depth = vexa::max_value_depth + 2;

}  // namespace

void YAJL_Forward_Handler::generate_handle(yajl_gen_t* gen) {
  gen_ = gen;
  failed_ = false;
  depth_ = 0;
}

template <typename Operation>
bool YAJL_Forward_Handler::emit(Operation operation) {
  if (gen_ == nullptr) return true;
  if (failed_) return false;
  YAJL_Gen writer(gen_, false);
  failed_ = !operation(writer);
  return !failed_;
}

bool YAJL_Forward_Handler::handle_null_i() {
  return emit([](YAJL_Gen& g) { return g.null(); });
}

bool YAJL_Forward_Handler::handle_boolean_i(bool value) {
  return emit([=](YAJL_Gen& g) { return g.boolean(value); });
}

bool YAJL_Forward_Handler::handle_number_i(const char* text, std::size_t length) {
  return emit([=](YAJL_Gen& g) { return g.number(text, length); });
}

bool YAJL_Forward_Handler::handle_string_i(const char* text, std::size_t length) {
  return emit([=](YAJL_Gen& g) { return g.string(text, length); });
}

bool YAJL_Forward_Handler::handle_start_map_i() {
  return emit([this](YAJL_Gen& g) { return depth_++ < max_depth && g.map_open(); });
}

bool YAJL_Forward_Handler::handle_map_key_i(const char* text, std::size_t length) {
  return emit([=](YAJL_Gen& g) { return g.string(text, length); });
}

bool YAJL_Forward_Handler::handle_end_map_i() {
  return emit([this](YAJL_Gen& g) { return depth_-- > 0 && g.map_close(); });
}

bool YAJL_Forward_Handler::handle_start_array_i() {
  return emit([this](YAJL_Gen& g) { return depth_++ < max_depth && g.array_open(); });
}

bool YAJL_Forward_Handler::handle_end_array_i() {
  return emit([this](YAJL_Gen& g) { return depth_-- > 0 && g.array_close(); });
}
