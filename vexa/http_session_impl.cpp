#include "vexa/http_session_impl.h"

#include <ace/Guard_T.h>

#include <cerrno>
#include <ctime>
#include <new>
#include <utility>

#include "vexa/http_session_factory.h"

namespace vexa {

std::unique_ptr<HTTP_Link> HTTP_Session_Impl::take() {
  for (;;) {
    std::unique_ptr<HTTP_Link> link;
    {
      ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, mutex_, nullptr);
      if (idle_.empty()) return nullptr;
      link = std::move(idle_.back());
      idle_.pop_back();
    }
    // A server that says when it will close may do so while the request is on its way.
    const bool expired = link->expires != std::chrono::steady_clock::time_point::max() &&
                         link->expires <= std::chrono::steady_clock::now();
    if (!expired && link->stream.quiet()) return link;
  }
}

std::unique_ptr<HTTP_Link> HTTP_Session_Impl::connect() const {
  std::unique_ptr<HTTP_Link> link(new (std::nothrow) HTTP_Link);
  if (!link || !link->reader.ok()) {
    errno = ENOMEM;
    return nullptr;
  }
  if (link->stream.connect(peer) == 0) return link;
  const int error = errno;
  link.reset();
  errno = error;
  return nullptr;
}

void HTTP_Session_Impl::give_back(std::unique_ptr<HTTP_Link> link) {
  // One that is not kept is closed after the unlock, with the parameter.
  ACE_GUARD(ACE_Thread_Mutex, guard, mutex_);
  if (idle_.size() >= max_idle) return;
  try {
    idle_.push_back(std::move(link));
  } catch (const std::bad_alloc&) {
  }
}

void HTTP_Session_Impl::keep_cookie(const char* set_cookie, const std::string& path) {
  if ((peer.flags & HTTP_SESSION_NO_COOKIES) != 0) return;
  ACE_GUARD(ACE_Thread_Mutex, guard, mutex_);
  cookies_.set(set_cookie, peer.host, path, std::time(nullptr));
}

std::string HTTP_Session_Impl::cookies(const std::string& path) {
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, mutex_, std::string());
  if (cookies_.empty()) return {};
  return cookies_.get(path, peer.tls != nullptr, std::time(nullptr));
}

void HTTP_Session_Impl::clear_cookies() {
  ACE_GUARD(ACE_Thread_Mutex, guard, mutex_);
  cookies_.clear();
}

}  // namespace vexa
