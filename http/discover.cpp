#include "http/discover.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <utility>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_request_map.h"
#include "vexa/adopt.h"
#include "vexa/json_reader.h"
#include "vexa/log.h"

namespace http {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

const char* const method_name = "rpc.discover";
const char* const openrpc_version = "1.2.6";
constexpr std::size_t max_file = 1u << 20;  // bytes

typedef std::map<std::string, std::set<std::string>> Libraries;  // path -> names of its methods

/// A member of that type; null when there is none.
const Value* member(const Value& object, const char* name, json_spirit::Value_type type) {
  if (object.type() != json_spirit::obj_type) return nullptr;
  const auto it = object.get_obj().find(name);
  const bool found = it != object.get_obj().end() && it->second.type() == type;
  return found ? &it->second : nullptr;
}

/// What can be said of a method of which only the name is known: `schema` is that of its result.
Value bare_method(const std::string& name, Object schema = {}) {
  Object result;
  result["name"] = "result";
  result["schema"] = std::move(schema);
  Object method;
  method["name"] = name;
  method["params"] = Array();
  method["result"] = std::move(result);
  return method;
}

/// What "rpc.discover" says of itself.
Value own_method() {
  Object schema;
  schema["type"] = "object";
  return bare_method(method_name, std::move(schema));
}

/// What is wrong with a description; null when it is good.
const char* fault_of(const Value& description) {
  const Value* const methods = member(description, "methods", json_spirit::array_type);
  if (methods == nullptr) return "it is no object with an array 'methods'";
  for (const Value& method : methods->get_array()) {
    if (member(method, "name", json_spirit::str_type) == nullptr) {
      return "a method is no object with a text 'name'";
    }
    if (member(method, "params", json_spirit::array_type) == nullptr) {
      return "a method has no array 'params'";
    }
    if (member(method, "result", json_spirit::obj_type) == nullptr) {
      return "a method has no object 'result'";
    }
  }
  const Value* const components = member(description, "components", json_spirit::obj_type);
  if (components == nullptr) return nullptr;
  for (const auto& kind : components->get_obj()) {
    if (kind.second.type() != json_spirit::obj_type) return "of 'components' one is no object";
  }
  return nullptr;
}

/// Reads a file whole. False with a reason in `fault`, which is null when there is no file.
bool read_file(const std::string& path, Value& value, const char*& fault) {
  fault = nullptr;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file == nullptr) {
    if (errno != ENOENT && errno != ENOTDIR) fault = "it cannot be opened";
    return false;
  }
  std::string text(max_file + 1, '\0');
  text.resize(std::fread(&text[0], 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0) {
    fault = "it cannot be read";
  } else if (text.size() > max_file) {
    fault = "it is larger than 1 MiB";
  } else if (!json_read(text.data(), text.size(), value)) {
    fault = "it is no JSON";
  }
  return fault == nullptr;
}

/// A good description; false without one, and logged when it is a bad one.
bool read_description(const std::string& path, Value& description) {
  if (path.empty()) return false;
  const char* fault;
  const bool read = read_file(path, description, fault);
  if (read) fault = fault_of(description);
  if (fault == nullptr) return read;
  VEXA_WARNING("The description '%C' is bad: %C. Its methods stay without one.\n", path.c_str(),
               fault);
  return false;
}

/// The document as it comes together.
class Document {
public:
  Document() {
    JSON_RPC_Request_Map::instance()->for_each_library(
        [this](const std::string& name, const std::string& library) {
          methods_[name] = bare_method(name);
          if (!library.empty()) libraries_[library].insert(name);
        });
    methods_[method_name] = own_method();
  }

  void describe() {
    for (const auto& library : libraries_) {
      const std::string path = description_file(library.first);
      Value description;
      if (read_description(path, description)) add(path, description, library.second);
    }
  }

  Value value(const std::string& title, const std::string& version) {
    Object document;
    document["openrpc"] = openrpc_version;
    Object info;
    info["title"] = title;
    info["version"] = version;
    document["info"] = std::move(info);
    Array methods;
    for (auto& method : methods_) methods.push_back(std::move(method.second));
    document["methods"] = std::move(methods);
    if (!components_.empty()) document["components"] = std::move(components_);
    return document;
  }

private:
  void add(const std::string& path, const Value& description, const std::set<std::string>& names) {
    for (const Value& method : description.get_obj().at("methods").get_array()) {
      const std::string& name = method.get_obj().at("name").get_str();
      if (names.count(name) > 0) methods_[name] = method;
    }
    const Value* const components = member(description, "components", json_spirit::obj_type);
    if (components == nullptr) return;
    for (const auto& kind : components->get_obj()) add_components(path, kind.first, kind.second);
  }

  void add_components(const std::string& path, const std::string& kind, const Value& components) {
    Value& all = components_[kind];
    if (all.is_null()) all = Object();
    for (const auto& component : components.get_obj()) {
      const auto inserted = all.get_obj().insert(component);
      if (inserted.second || inserted.first->second == component.second) continue;
      VEXA_WARNING("'%C' of the %C in '%C' is left out: another one has its name.\n",
                   component.first.c_str(), kind.c_str(), path.c_str());
    }
  }

  Libraries libraries_;
  std::map<std::string, Value> methods_;  // by name
  Object components_;                     // kind -> name -> component
};

class Discover_Handler final : public JSON_RPC_Handler {
public:
  explicit Discover_Handler(Value document) : document_(std::move(document)) {}

  int handle_object(JSON_RPC_Channel_ptr weak, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(weak);
    if (channel.null() || object->type != JSON_RPC_Object::TYPE_REQUEST) return 0;
    JSON_RPC_Response* const response =
        new (std::nothrow) JSON_RPC_Response(static_cast<const JSON_RPC_Request*>(object.get()));
    JSON_RPC_Object_var answer;
    if (!vexa::adopt(answer, static_cast<JSON_RPC_Object*>(response))) return -1;
    response->result = document_;
    return channel->send(answer);
  }

private:
  const Value document_;
};

}  // namespace

std::string description_file(const std::string& library) {
  const std::size_t slash = library.rfind('/');
  if (slash == std::string::npos) return "";
  std::string name = library.substr(slash + 1);
  if (name.rfind("lib", 0) == 0) name.erase(0, 3);
  name.erase(std::min(name.find(".so"), name.size()));
  return library.substr(0, slash + 1) + name + ".openrpc.json";
}

Value openrpc_document(const std::string& title, const std::string& version) {
  Document document;
  document.describe();
  return document.value(title, version);
}

int serve_discovery(const std::string& title, const std::string& version) {
  try {
    std::unique_ptr<JSON_RPC_Handler> handler =
        std::make_unique<Discover_Handler>(openrpc_document(title, version));
    const int result = JSON_RPC_Request_Map::instance()->insert(
        method_name, std::string(), handler.get(),
        [](void* object) { delete static_cast<JSON_RPC_Handler*>(object); });
    if (result == 0) static_cast<void>(handler.release());  // the map owns it
    return result;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

}  // namespace http
