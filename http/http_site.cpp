#include "http/http_site.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "http/file_in_root.h"
#include "http/target.h"
#include "vexa/json_reader.h"
#include "vexa/log.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

constexpr std::size_t longest = 1u << 20;  // bytes of a configuration; more is another file's name

/// Reads the whole file; false with a log line.
bool read_file(const char* path, std::string& text) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "re"), &std::fclose);
  text.resize(longest + 1);
  const std::size_t size = file != nullptr ? std::fread(&text[0], 1, text.size(), file.get()) : 0;
  if (file == nullptr || std::ferror(file.get()) != 0) {
    VEXA_ERROR("%C: Failed to read the site: %m\n", path);
    return false;
  }
  if (size > longest) {
    VEXA_ERROR("%C: A site has at most %B bytes.\n", path, longest);
    return false;
  }
  text.resize(size);
  return true;
}

/// Whether a redirect can lead there: a path or URL that fits a Location field, and to which the
/// rest of a path can be appended.
bool is_destination(const std::string& uri) {
  http::Target target;
  if (uri == "*" || http::parse_target(uri, target) != 0) return false;
  // To a browser, "//host" is another host.
  return uri.find('?') == std::string::npos && uri.compare(0, 2, "//") != 0;
}

/// Whether following the redirect of `prefix` to `uri` ends at the same redirect.
bool leads_back(const std::string& prefix, const std::string& uri) {
  http::Target target;
  HTTP_URI_Map alone;
  std::string::size_type length = 0;
  return uri.front() == '/' && http::parse_target(uri, target) == 0 &&
         alone.insert(prefix, uri) == 0 && alone.find(target.path, length) != nullptr;
}

/// Puts what one file says into the maps, and counts what it cannot.
class Loader {
public:
  Loader(const char* path, HTTP_URI_Map& files, HTTP_URI_Map& redirects)
      : path_(path), files_(files), redirects_(redirects) {}

  void load(const Object& site) {
    for (const auto& member : site) {
      if (member.first == "files") {
        load_map(member, &Loader::add_folder);
      } else if (member.first == "redirects") {
        load_map(member, &Loader::add_redirect);
      } else {
        bad("\"" + member.first + "\" is unknown");
      }
    }
  }
  std::size_t failures() const { return failures_; }

private:
  typedef void (Loader::*Add)(const std::string& prefix, const std::string& target);

  void load_map(const Object::value_type& member, Add add) {
    if (member.second.type() != json_spirit::obj_type) {
      return bad("\"" + member.first + "\" is not an object");
    }
    for (const auto& entry : member.second.get_obj()) {
      if (entry.second.type() != json_spirit::str_type) {
        bad("what \"" + entry.first + "\" leads to is not a text");
      } else if (entry.first != http::normal_path(entry.first)) {
        bad("no request has the prefix \"" + entry.first + "\", but \"" +
            http::normal_path(entry.first) + "\"");
      } else {
        (this->*add)(entry.first, entry.second.get_str());
      }
    }
  }

  void add_folder(const std::string& prefix, const std::string& folder) {
    if (!http::Descriptor(http::open_root(folder.c_str())).is_open()) {
      return bad("the folder \"" + folder + "\" of \"" + prefix + "\" cannot be opened, " +
                 std::strerror(errno));
    }
    insert(files_, redirects_, prefix, folder);
  }

  void add_redirect(const std::string& prefix, const std::string& uri) {
    if (!is_destination(uri)) {
      return bad("\"" + prefix + "\" cannot lead to \"" + uri +
                 "\": a path or a http(s) URL without query is expected");
    }
    if (leads_back(prefix, uri)) return bad("\"" + prefix + "\" leads back to itself");
    insert(redirects_, files_, prefix, uri);
  }

  void insert(HTTP_URI_Map& map, const HTTP_URI_Map& other, const std::string& prefix,
              const std::string& target) {
    std::string::size_type length = 0;
    const bool elsewhere = other.find(prefix, length) != nullptr && length == prefix.size();
    if (elsewhere || map.insert(prefix, target) != 0) bad("\"" + prefix + "\" is taken");
  }

  void bad(const std::string& why) {
    ++failures_;
    VEXA_ERROR("%C: Skipped a part of the site: %C.\n", path_, why.c_str());
  }

  const char* const path_;
  HTTP_URI_Map& files_;
  HTTP_URI_Map& redirects_;
  std::size_t failures_ = 0;
};

/// The object that a file holds; false with a log line.
bool read_site(const char* path, Value& site) {
  std::string text;
  if (!read_file(path, text)) return false;
  JSON_Reader reader;
  reader.result(&site);
  if (!reader.read(text.data(), text.size()) || !reader.end()) {
    VEXA_ERROR("%C: Failed to parse the site: %C\n", path, reader.error().c_str());
    return false;
  }
  if (site.type() == json_spirit::obj_type) return true;
  VEXA_ERROR("%C: The site is not an object.\n", path);
  return false;
}

}  // namespace

std::size_t http::load_site(const char* path, HTTP_URI_Map& files, HTTP_URI_Map& redirects) {
  try {
    Value site;
    if (!read_site(path, site)) return 1;
    Loader loader(path, files, redirects);
    loader.load(site.get_obj());
    return loader.failures();
  } catch (const std::bad_alloc&) {
    VEXA_ERROR("%C: No memory to read the site.\n", path);
    return 1;
  }
}
