#pragma once

#include <boost/system/error_code.hpp>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "transport/byte_stream.h"
#include "transport/outbox.h"

namespace transport {

/// Pieces that were taken out of the line and are being written.
class Output_Batch {
public:
  /// What has left: bytes, and how many bytes of answers the pieces had of which the last one did.
  struct Sent {
    std::size_t bytes = 0;
    std::size_t answers = 0;
  };

  bool empty() const { return piece_ == pieces_.size(); }
  /// Where pieces are put when it is empty.
  std::vector<Output_Piece>& refill();
  /// A buffer that small pieces have left behind: empty, or without room.
  std::string&& buffer() { return std::move(buffer_); }
  /// Hands bytes to the stream: a system call's worth.
  Sent write(Byte_Stream& stream, boost::system::error_code& error);

private:
  std::size_t write_pieces(Byte_Stream& stream, boost::system::error_code& error) const;
  Sent write_bytes(Byte_Stream& stream, boost::system::error_code& error);
  Sent write_messages(Byte_Stream& stream, boost::system::error_code& error);
  std::size_t pass();

  std::vector<Output_Piece> pieces_;
  std::size_t piece_ = 0;  // the first that is not written whole
  std::size_t byte_ = 0;   // and how much of it is
  std::string buffer_;
};

}  // namespace transport
