#include "vexa/exception_text.h"

#include <exception>

namespace vexa {

const char* exception_text() noexcept {
  try {
    throw;  // the very object that the caller's catch block keeps alive
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace vexa
