#include "vexa/yajl_handler.h"

#include <cerrno>
#include <exception>
#include <new>

#include "vexa/log.h"

namespace {

/// Logs the exception that is being handled, which leaves errno ENOMEM where that is the cause;
/// yajl stops at what it gives.
[[gnu::cold, gnu::noinline]] int failed() {
  try {
    throw;
  } catch (const std::bad_alloc& e) {
    VEXA_ERROR("A handler of parse events failed: %C\n", e.what());
    errno = ENOMEM;
  } catch (const std::exception& e) {
    VEXA_ERROR("A handler of parse events failed: %C\n", e.what());
  } catch (...) {
    VEXA_ERROR("A handler of parse events failed with an unknown exception.\n");
  }
  return 0;
}

/// Runs one event. An exception would leave yajl half-way in a text that may go on, so it ends here
/// and stops the parse like a refusal.
template <typename Event>
int deliver(void* context, YAJL_Handler::Callback_Type type, Event event) {
  YAJL_Handler* const handler = static_cast<YAJL_Handler*>(context);
  handler->callback_type(type);
  try {
    return event(*handler) ? 1 : 0;
  } catch (...) {
    return failed();  // apart, so that an event that does not fail saves no registers for it
  }
}

const char* chars(const unsigned char* text) { return reinterpret_cast<const char*>(text); }

int on_null(void* context) {
  return deliver(context, YAJL_Handler::CB_NULL,
                 [](YAJL_Handler& h) { return h.innermost().handle_null_i(); });
}
int on_boolean(void* context, int value) {
  return deliver(context, YAJL_Handler::CB_BOOLEAN,
                 [=](YAJL_Handler& h) { return h.innermost().handle_boolean_i(value != 0); });
}
int on_number(void* context, const char* text, size_t length) {
  return deliver(context, YAJL_Handler::CB_NUMBER,
                 [=](YAJL_Handler& h) { return h.innermost().handle_number_i(text, length); });
}
int on_string(void* context, const unsigned char* text, size_t length) {
  return deliver(context, YAJL_Handler::CB_STRING, [=](YAJL_Handler& h) {
    return h.innermost().handle_string_i(chars(text), length);
  });
}
int on_start_map(void* context) {
  return deliver(context, YAJL_Handler::CB_START_MAP,
                 [](YAJL_Handler& h) { return h.handle_start_map_i(); });
}
int on_map_key(void* context, const unsigned char* text, size_t length) {
  return deliver(context, YAJL_Handler::CB_MAP_KEY, [=](YAJL_Handler& h) {
    return h.innermost().handle_map_key_i(chars(text), length);
  });
}
int on_end_map(void* context) {
  return deliver(context, YAJL_Handler::CB_END_MAP,
                 [](YAJL_Handler& h) { return h.handle_end_map_i(); });
}
int on_start_array(void* context) {
  return deliver(context, YAJL_Handler::CB_START_ARRAY,
                 [](YAJL_Handler& h) { return h.handle_start_array_i(); });
}
int on_end_array(void* context) {
  return deliver(context, YAJL_Handler::CB_END_ARRAY,
                 [](YAJL_Handler& h) { return h.handle_end_array_i(); });
}

}  // namespace

const yajl_callbacks* get_yajl_default_callbacks() {
  // With a callback for the number's text yajl calls neither of the two for its value.
  static const yajl_callbacks table = {on_null,    on_boolean,     nullptr,      nullptr,
                                       on_number,  on_string,      on_start_map, on_map_key,
                                       on_end_map, on_start_array, on_end_array};
  return &table;
}
