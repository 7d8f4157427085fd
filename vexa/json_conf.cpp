#include <cerrno>
#include <cstring>

#include "vexa/json_conf_t.h"

namespace vexa {

bool can_split(const char* text) {
  constexpr std::size_t longest_name = 4095;  // ACE's buffer holds 4096 bytes with the terminator
  for (const char* dollar = std::strchr(text, '$'); dollar != nullptr;
       dollar = std::strchr(dollar + 1, '$')) {
    std::size_t length = 0;
    // Quotes are gone before the name is read, so they neither end it nor count.
    for (const char* p = dollar + 1;
         std::strchr("$~!#%^&*()-+=\\|/?,.;:`[]{} \t\n\r", *p) == nullptr; ++p) {
      if (*p != '"' && *p != '\'') ++length;
    }
    if (length > longest_name) {
      errno = E2BIG;
      return false;
    }
  }
  return true;
}

}  // namespace vexa
