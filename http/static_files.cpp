#include "http/static_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string_view>

#include "http/byte_range.h"
#include "http/file_in_root.h"
#include "http/http_date.h"
#include "http/media_type.h"
#include "http/preconditions.h"
#include "http/redirects.h"
#include "http/target.h"
#include "vexa/http_text.h"
#include "vexa/log.h"

namespace {

using http::Byte_Range;
using http::Descriptor;
using http::respond_error;
using http::Validators;

/// Whether a segment begins with '.', or a NUL would end the path too early.
bool is_hidden(std::string_view path) {
  if (path.find('\0') != std::string_view::npos) return true;
  while (!path.empty()) {
    const std::string_view segment = vexa::take_item(path, '/');
    if (!segment.empty() && segment.front() == '.') return true;
  }
  return false;
}

void respond_errno(Http_Reply& reply, int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      return respond_error(reply, 403, "Forbidden");
    case EMFILE:
    case ENFILE:
    case ENOMEM:
      return respond_error(reply, 503, "Out of resources");
    default:
      return respond_error(reply, 404, "Not found");
  }
}

Validators validators_of(const struct stat& file, std::time_t now) {
  Validators validators;
  char tag[64];
  std::snprintf(tag, sizeof tag, "\"%llx-%llx-%llx.%lx\"",
                static_cast<unsigned long long>(file.st_ino),
                static_cast<unsigned long long>(file.st_size),
                static_cast<unsigned long long>(file.st_mtim.tv_sec),
                static_cast<unsigned long>(file.st_mtim.tv_nsec));
  validators.tag = tag;
  // The clock of the file system ticks coarsely: a file that was just written may be written again
  // within one tick.
  validators.weak = file.st_mtim.tv_sec + 1 >= now;
  validators.modified = std::min<std::time_t>(file.st_mtim.tv_sec, now);
  return validators;
}

HTTP_Headers headers_of(const Validators& validators) {
  HTTP_Headers headers;
  headers.put(HTTP_HEAD_ETAG, validators.etag());
  headers.put(HTTP_HEAD_LAST_MODIFIED, http::http_date(validators.modified));
  return headers;
}

Byte_Range asked_range(const CGI_Request& request, const Validators& validators, std::uint64_t size,
                       std::time_t now) {
  const char* const text = request.headers().get(HTTP_HEAD_RANGE);
  if (text == nullptr || request.method() != HTTP_METHOD_GET) return Byte_Range();
  if (!http::if_range_holds(request, validators, now)) return Byte_Range();
  return http::parse_byte_range(text, size);
}

void respond_unsatisfiable(Http_Reply& reply, std::uint64_t size) {
  HTTP_Headers headers;
  headers.put(HTTP_HEAD_CONTENT_RANGE, http::content_range(size));
  respond_error(reply, 416, "No such range", std::move(headers));
}

/// Answers with an open regular file, or as the request's conditions demand.
void respond_open_file(const CGI_Request& request, std::string_view name, Descriptor& descriptor,
                       const struct stat& file, Http_Reply& reply) {
  const std::time_t now = std::time(nullptr);
  const Validators validators = validators_of(file, now);
  HTTP_Headers headers = headers_of(validators);
  const int verdict = http::check_preconditions(request, validators, now);
  if (verdict == 304) return reply.respond(verdict, headers, std::string());
  if (verdict != 0) return respond_error(reply, verdict, "Precondition failed", std::move(headers));

  const std::uint64_t size = static_cast<std::uint64_t>(file.st_size);
  Byte_Range range = asked_range(request, validators, size, now);
  if (range.kind == Byte_Range::UNSATISFIABLE) return respond_unsatisfiable(reply, size);
  const bool part = range.kind == Byte_Range::PART;
  if (part) headers.put(HTTP_HEAD_CONTENT_RANGE, http::content_range(range, size));
  headers.put(HTTP_HEAD_CONTENT_TYPE, http::media_type(name));
  headers.put("X-Content-Type-Options", "nosniff");
  headers.put(HTTP_HEAD_ACCEPT_RANGES, "bytes");
  reply.respond_file(part ? 206 : 200, headers, descriptor.release(), range.offset,
                     part ? range.length : size);
}

/// Answers with what lies at `name` below the root folder; "" is the root itself.
void respond_path(const std::string& root_path, std::string name, const Http_Request_Head& head,
                  Http_Reply& reply) {
  const Descriptor root(http::open_root(root_path.c_str()));
  if (!root.is_open()) {
    const int error = errno;
    VEXA_ERROR("Cannot open the folder '%C', from which files are served: %m\n", root_path.c_str());
    if (error == EMFILE || error == ENFILE || error == ENOMEM) return respond_errno(reply, error);
    return respond_error(reply, 500, "The folder cannot be opened.");
  }
  const bool as_folder = head.path.back() == '/';
  if (as_folder) name += "index.html";
  Descriptor found(http::open_in_root(root.get(), name.empty() ? "." : name.c_str()));
  struct stat file = {};
  if (!found.is_open() || ::fstat(found.get(), &file) == -1) return respond_errno(reply, errno);
  if (S_ISREG(file.st_mode)) return respond_open_file(head.request, name, found, file, reply);
  if (S_ISDIR(file.st_mode) && !as_folder) {
    return http::respond_moved(http::encode_path(head.path) + "/", head, reply);
  }
  respond_errno(reply, ENOENT);
}

void respond_wrong_method(Http_Reply& reply) {
  HTTP_Headers headers;
  headers.put(HTTP_HEAD_ALLOW, "GET, HEAD");
  respond_error(reply, 405, "Files can be read only.", std::move(headers));
}

}  // namespace

bool http::serve_file(const HTTP_URI_Map& files, const Http_Request_Head& head, Http_Reply& reply) {
  std::string::size_type length = 0;
  const std::string* const root = files.find(head.path, length);
  if (root == nullptr) return false;
  try {
    const int method = head.request.method();
    std::string name = head.path.substr(length);
    name.erase(0, name.find_first_not_of('/'));
    if (method != HTTP_METHOD_GET && method != HTTP_METHOD_HEAD) {
      respond_wrong_method(reply);
    } else if (is_hidden(name)) {
      respond_errno(reply, ENOENT);
    } else {
      respond_path(*root, std::move(name), head, reply);
    }
  } catch (const std::bad_alloc&) {
    reply.respond(503, HTTP_Headers(), std::string());
  }
  return true;
}
