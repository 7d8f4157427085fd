#pragma once

#include <yajl/yajl_gen.h>

#include "vexa/vexa_export.h"
#include "vexa/yajl_handler.h"

/// Re-emits every event into a yajl generator, numbers as they were written; drops them while none
/// is set. Stops at the generator's first status that is not zero and before its depth is exceeded.
class VEXA_EXPORT YAJL_Forward_Handler : public YAJL_Handler {
public:
  /// Sets the generator, borrowed, or with null removes it; what comes starts a new text.
  void generate_handle(yajl_gen_t* gen);
  yajl_gen_t* generate_handle() const { return gen_; }

  bool handle_null_i() override;
  bool handle_boolean_i(bool value) override;
  bool handle_number_i(const char* text, std::size_t length) override;
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  bool handle_start_array_i() override;
  bool handle_end_array_i() override;

private:
  template <typename Operation>
  bool emit(Operation operation);

  yajl_gen_t* gen_ = nullptr;
  bool failed_ = false;
  unsigned int depth_ = 0;
};
