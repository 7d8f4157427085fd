#pragma once

#include <ace/Thread_Mutex.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "vexa/http_cookies.h"
#include "vexa/http_peer.h"
#include "vexa/http_response_reader.h"
#include "vexa/http_stream.h"
#include "vexa/http_tls.h"

namespace vexa {

/// A connection that serves one exchange after the other.
struct HTTP_Link {
  HTTP_Stream stream;
  HTTP_Response_Reader reader;
  std::chrono::steady_clock::time_point expires = std::chrono::steady_clock::time_point::max();
};

/// What a session keeps. Any thread may call anything. mutex_ is a leaf.
struct HTTP_Session_Impl {
  static constexpr std::size_t max_idle = 16;  // connections; one more is closed instead

  HTTP_Peer peer;          // unchanged once the session is made
  HTTP_TLS_Context owned;  // what peer.tls belongs to, unless it was given

  /// The youngest connection that waits and is still open; null when there is none.
  std::unique_ptr<HTTP_Link> take();
  /// A new connection; null with errno and an error line.
  std::unique_ptr<HTTP_Link> connect() const;
  void give_back(std::unique_ptr<HTTP_Link> link);

  /// Throw std::bad_alloc.
  void keep_cookie(const char* set_cookie, const std::string& path);
  std::string cookies(const std::string& path);
  void clear_cookies();

private:
  ACE_Thread_Mutex mutex_;
  std::vector<std::unique_ptr<HTTP_Link>> idle_;  // guarded by mutex_
  HTTP_Cookies cookies_;                          // guarded by mutex_
};

}  // namespace vexa
