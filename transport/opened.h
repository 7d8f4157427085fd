#pragma once

#include <memory>

#include "transport/byte_stream.h"
#include "transport/connection_slot.h"
#include "transport/loop.h"
#include "transport/server_state.h"
#include "transport/stream_channel.h"

namespace transport {

/// A stream that was accepted or connected, and what a connection over it needs.
struct Opened {
  std::shared_ptr<Loop> loop;  ///< that the stream belongs to
  std::shared_ptr<Server_State> state;
  Connection_Slot slot;
  std::unique_ptr<Byte_Stream> stream;
  Stream_Channel::Addresses addresses;
};

}  // namespace transport
