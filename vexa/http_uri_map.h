#pragma once

#include <functional>
#include <map>
#include <string>

#include "vexa/vexa_export.h"

/// URI prefixes and what they stand for. Filled at start, then read without a lock.
class VEXA_EXPORT HTTP_URI_Map {
public:
  HTTP_URI_Map() = default;
  HTTP_URI_Map(const HTTP_URI_Map&) = delete;
  HTTP_URI_Map& operator=(const HTTP_URI_Map&) = delete;

  /// The first of a prefix wins: -1 when it is taken, or memory runs out (ENOMEM).
  int insert(const std::string& prefix, const std::string& target);

  /// The target of the longest prefix of `uri` that ends at a '/' boundary (see vexa::find_prefix);
  /// `length` becomes that prefix's. Null, and `length` unchanged, when there is none. The text is
  /// the map's.
  const std::string* find(const std::string& uri, std::string::size_type& length) const;

private:
  std::map<std::string, std::string, std::less<>> map_;
};
