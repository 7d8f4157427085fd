#include "http/media_type.h"

#include "vexa/http_text.h"

namespace {

struct Row {
  std::string_view ending;
  const char* type;
};

constexpr Row table[] = {
    {"html", "text/html; charset=utf-8"},
    {"htm", "text/html; charset=utf-8"},
    {"css", "text/css; charset=utf-8"},
    {"js", "text/javascript; charset=utf-8"},
    {"mjs", "text/javascript; charset=utf-8"},
    {"json", "application/json"},
    {"map", "application/json"},
    {"txt", "text/plain; charset=utf-8"},
    {"log", "text/plain; charset=utf-8"},
    {"md", "text/markdown; charset=utf-8"},
    {"csv", "text/csv; charset=utf-8"},
    {"xml", "application/xml"},
    {"svg", "image/svg+xml"},
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"gif", "image/gif"},
    {"webp", "image/webp"},
    {"ico", "image/vnd.microsoft.icon"},
    {"pdf", "application/pdf"},
    {"wasm", "application/wasm"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"ttf", "font/ttf"},
    {"otf", "font/otf"},
    {"mp3", "audio/mpeg"},
    {"ogg", "audio/ogg"},
    {"mp4", "video/mp4"},
    {"webm", "video/webm"},
    {"gz", "application/gzip"},
    {"tar", "application/x-tar"},
    {"zip", "application/zip"},
};

}  // namespace

const char* http::media_type(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot != std::string_view::npos) {
    for (const Row& row : table) {
      if (vexa::ascii_iequal(name.substr(dot + 1), row.ending)) return row.type;
    }
  }
  return "application/octet-stream";
}

bool http::is_json(const HTTP_Headers& headers, bool derived) {
  const char* const coding = headers.get(HTTP_HEAD_CONTENT_ENCODING);
  if (coding != nullptr && !vexa::ascii_iequal(vexa::trim(coding), "identity")) return false;
  const char* const field = headers.get(HTTP_HEAD_CONTENT_TYPE);
  std::string_view rest = field == nullptr ? "" : field;
  const std::string_view type = vexa::trim(vexa::take_item(rest, ';'));
  if (vexa::ascii_iequal(type, "application/json")) return true;
  constexpr std::string_view suffix = "+json";
  return derived && type.size() > suffix.size() &&
         vexa::ascii_iequal(type.substr(type.size() - suffix.size()), suffix);
}
