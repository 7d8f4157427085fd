#include "http/door.h"

#include <utility>

#include "http/http_connection.h"

namespace http {

Exchange::~Exchange() = default;
Site::~Site() = default;

Http_Door::Http_Door(Door_Options options)
    : options_(std::make_shared<const Door_Options>(std::move(options))) {}

void Http_Door::serve(transport::Opened opened) {
  std::make_shared<Http_Connection>(std::move(opened), options_)->start();
}

}  // namespace http
