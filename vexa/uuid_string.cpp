#include "vexa/uuid_string.h"

#include <algorithm>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cctype>

std::string uuid_string(bool upper) {
  boost::uuids::random_generator generate;
  std::string text = boost::uuids::to_string(generate());
  if (upper) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  }
  return text;
}
