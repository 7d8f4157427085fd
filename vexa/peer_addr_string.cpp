#include <cerrno>

#include "vexa/log.h"
#include "vexa/peer_addr_string_t.h"

namespace vexa {

int no_peer_addr() {
  VEXA_ERROR("Failed to get socket address, errno=%d, %m\n", ACE_OS::last_error());
  return 0;
}

int peer_addr_text(const ACE_INET_Addr& addr, bool with_port, char* buf, std::size_t size) {
  const bool written = with_port ? addr.addr_to_string(buf, size, 1) == 0
                                 : addr.get_host_addr(buf, static_cast<int>(size)) != nullptr;
  if (written) return 1;
  errno = ENOSPC;  // the only cause, which ACE names for the bare host alone
  VEXA_ERROR("Failed to convert socket address to string, errno=%d, %m\n", ACE_OS::last_error());
  if (size > 0) buf[0] = '\0';
  return 0;
}

}  // namespace vexa
