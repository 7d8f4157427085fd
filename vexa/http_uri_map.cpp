#include "vexa/http_uri_map.h"

#include <cerrno>
#include <new>

#include "vexa/find_prefix_t.h"

int HTTP_URI_Map::insert(const std::string& prefix, const std::string& target) {
  try {
    return map_.emplace(prefix, target).second ? 0 : -1;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

const std::string* HTTP_URI_Map::find(const std::string& uri,
                                      std::string::size_type& length) const {
  const auto it = vexa::find_prefix(map_, uri, '/');
  if (it == map_.end()) return nullptr;
  length = it->first.size();
  return &it->second;
}
