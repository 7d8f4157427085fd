#include "vexa/http_session_url.h"

#include <algorithm>
#include <new>

HTTP_Session_URL::HTTP_Session_URL(const HTTP_Session_var& session, const HTTP_Request& request) {
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
  try {
    if (session)
      text_.append(session->is_ssl() ? "https://" : "http://").append(session->authority());
    text_.append(request.uri_text());
    std::replace_if(text_.begin(), text_.end(), is_control, '?');
  } catch (const std::bad_alloc&) {
    text_.clear();
  }
}
