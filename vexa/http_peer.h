#pragma once

#include <ace/INET_Addr.h>

#include <string>

struct ssl_ctx_st;

namespace vexa {

/// Which server a session talks to, and how.
struct HTTP_Peer {
  std::string host;       // without brackets
  std::string authority;  // as in a URL
  unsigned short port = 0;
  int families = 0;           // HTTP_Session_Family
  int flags = 0;              // HTTP_Session_Flag
  bool has_local = false;     // whether `local` is to be bound
  ACE_INET_Addr local;        // port 0
  ssl_ctx_st* tls = nullptr;  // null: plain HTTP; outlives every connection
  // Milliseconds, 0 none.
  int send_timeout = 0;
  int recv_timeout = 0;
  int conn_timeout = 0;
};

}  // namespace vexa
