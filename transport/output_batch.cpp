#include "transport/output_batch.h"

#include <array>
#include <string_view>

namespace transport {

using boost::asio::const_buffer;
using boost::system::error_code;

namespace {

constexpr std::size_t pieces_a_write = 64;
constexpr std::size_t kept_pieces = 16;  // room that an idle connection may keep
constexpr std::size_t kept_buffer = 512;

std::string_view without_line_feed(std::string_view text) {
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  return text;
}

}  // namespace

std::vector<Output_Piece>& Output_Batch::refill() {
  pieces_.clear();
  if (pieces_.capacity() > kept_pieces) std::vector<Output_Piece>().swap(pieces_);
  piece_ = byte_ = 0;
  return pieces_;
}

Output_Batch::Sent Output_Batch::write(Byte_Stream& stream, error_code& error) {
  return stream.keeps_messages() ? write_messages(stream, error) : write_bytes(stream, error);
}

/// The first piece has left; how many bytes of answers it had.
std::size_t Output_Batch::pass() {
  const std::size_t answers = pieces_[piece_].answers;
  std::string& text = pieces_[piece_].own;
  if (text.capacity() > buffer_.capacity() && text.capacity() <= kept_buffer) {
    text.clear();
    buffer_.swap(text);
  }
  pieces_[piece_] = Output_Piece();
  ++piece_;
  byte_ = 0;
  return answers;
}

/// Mostly there is one piece, which needs no vector.
std::size_t Output_Batch::write_pieces(Byte_Stream& stream, error_code& error) const {
  const std::string_view first = pieces_[piece_].text().substr(byte_);
  const const_buffer first_buffer(first.data(), first.size());
  if (piece_ + 1 == pieces_.size()) return stream.write_some(&first_buffer, 1, error);
  std::array<const_buffer, pieces_a_write> buffers;
  buffers[0] = first_buffer;
  std::size_t count = 1;
  for (std::size_t i = piece_ + 1; i < pieces_.size() && count < buffers.size(); ++i) {
    const std::string_view text = pieces_[i].text();
    buffers[count++] = const_buffer(text.data(), text.size());
  }
  return stream.write_some(buffers.data(), count, error);
}

Output_Batch::Sent Output_Batch::write_bytes(Byte_Stream& stream, error_code& error) {
  Sent sent;
  sent.bytes = write_pieces(stream, error);
  if (error) return sent;
  std::size_t left = byte_ + sent.bytes;  // bytes in whole pieces, and then of the next
  while (!empty() && left >= pieces_[piece_].text().size()) {
    left -= pieces_[piece_].text().size();
    sent.answers += pass();
  }
  byte_ = left;
  return sent;
}

Output_Batch::Sent Output_Batch::write_messages(Byte_Stream& stream, error_code& error) {
  Sent sent;
  while (!empty()) {
    const std::string_view text = pieces_[piece_].text();
    const bool last = pieces_[piece_].last;
    stream.write_part(last ? without_line_feed(text) : text, last, error);
    if (error) break;
    sent.bytes += text.size();
    sent.answers += pass();
  }
  if (sent.bytes == 0 && error) return sent;
  error = error_code();  // comes again, if anything is left
  stream.push(error);
  return sent;
}

}  // namespace transport
