#include "transport/door.h"

#include <utility>

#include "transport/stream_connection.h"

namespace transport {

Door::~Door() = default;

Stream_Door::Stream_Door(std::shared_ptr<const Method_Filter> filter)
    : filter_(std::move(filter)) {}

void Stream_Door::serve(Opened opened) {
  std::make_shared<Stream_Connection>(std::move(opened))
      ->start(Stream_Channel::STREAM, Framing::LINES, filter_);
}

}  // namespace transport
