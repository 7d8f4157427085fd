#include "vexa/addr_string.h"

#include <ace/INET_Addr.h>
#include <ace/UNIX_Addr.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

void inet_text(const ACE_INET_Addr& addr, bool with_port, char* buf, std::size_t size) {
  if (addr.is_any() && addr.get_port_number() == 0) return;
  const bool written = with_port ? addr.addr_to_string(buf, size, 1) == 0
                                 : addr.get_host_addr(buf, static_cast<int>(size)) != nullptr;
  if (!written) buf[0] = '\0';
}

/// The name goes to the first zero byte or to the end of the address, but an abstract one begins
/// with a zero byte.
void unix_text(const ACE_UNIX_Addr& addr, char* buf, std::size_t size) {
  const std::ptrdiff_t length =
      addr.get_size() - static_cast<std::ptrdiff_t>(offsetof(sockaddr_un, sun_path));
  if (length <= 0) return;
  const char* const path = static_cast<const sockaddr_un*>(addr.get_addr())->sun_path;
  const std::size_t room = std::min(static_cast<std::size_t>(length), size - 1);
  std::memcpy(buf, path, room);
  buf[room] = '\0';
  if (buf[0] == '\0' && room > 1 && buf[1] != '\0') buf[0] = '@';
}

}  // namespace

ACE_Addr_String::ACE_Addr_String(const ACE_Addr& addr, bool with_port) {
  buf_[0] = '\0';
  // By its class: the family that a default-constructed address names need not be that of its
  // class.
  if (const auto* const inet = dynamic_cast<const ACE_INET_Addr*>(&addr)) {
    inet_text(*inet, with_port, buf_, sizeof buf_);
  } else if (const auto* const local = dynamic_cast<const ACE_UNIX_Addr*>(&addr)) {
    unix_text(*local, buf_, sizeof buf_);
  }
}
