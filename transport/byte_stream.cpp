#include "transport/byte_stream.h"

namespace transport {

Byte_Stream::~Byte_Stream() = default;

bool Byte_Stream::keeps_messages() const { return false; }

void Byte_Stream::write_part(std::string_view, bool, boost::system::error_code&) {}

void Byte_Stream::push(boost::system::error_code&) {}

bool Byte_Stream::take_message_end() { return false; }

bool Byte_Stream::holds_output() const { return false; }

void Byte_Stream::tick() {}

bool Byte_Stream::is_tls() const { return false; }

}  // namespace transport
