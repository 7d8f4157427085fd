#include "bench/bare_yajl.h"

#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <algorithm>

#include "bench/messages.h"

namespace bare_yajl {
namespace {

int ignore(void*) { return 1; }
int ignore_boolean(void*, int) { return 1; }
int ignore_number(void*, const char*, size_t) { return 1; }
int ignore_text(void*, const unsigned char*, size_t) { return 1; }
const yajl_callbacks nothing = {ignore,        ignore_boolean, nullptr, nullptr,
                                ignore_number, ignore_text,    ignore,  ignore_text,
                                ignore,        ignore,         ignore};

int put(void* events, Event event) {
  static_cast<Events*>(events)->push_back(std::move(event));
  return 1;
}
template <Event::Kind kind>
int put_kind(void* events) {
  return put(events, {kind, 0, 0, {}});
}
int put_boolean(void* events, int value) { return put(events, {Event::BOOLEAN, value, 0, {}}); }
int put_integer(void* events, long long value) {
  return put(events, {Event::INTEGER, value, 0, {}});
}
int put_real(void* events, double value) { return put(events, {Event::REAL, 0, value, {}}); }
int put_string(void* events, const unsigned char* text, size_t length) {
  return put(events,
             {Event::STRING, 0, 0, std::string(reinterpret_cast<const char*>(text), length)});
}
const yajl_callbacks recorder = {put_kind<Event::NULL_VALUE>,
                                 put_boolean,
                                 put_integer,
                                 put_real,
                                 nullptr,
                                 put_string,
                                 put_kind<Event::MAP_OPEN>,
                                 put_string,
                                 put_kind<Event::MAP_CLOSE>,
                                 put_kind<Event::ARRAY_OPEN>,
                                 put_kind<Event::ARRAY_CLOSE>};

void feed(const yajl_callbacks& callbacks, void* context, const std::string& text,
          std::size_t piece) {
  if (piece == 0) piece = text.size();
  const yajl_handle parser = yajl_alloc(&callbacks, nullptr, context);
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t at = 0; at < text.size(); at += piece) {
    if (yajl_parse(parser, bytes + at, std::min(piece, text.size() - at)) != yajl_status_ok) {
      give_up("the floor cannot parse the text");
    }
  }
  yajl_free(parser);
}

yajl_gen_status write(yajl_gen gen, const Event& event) {
  switch (event.kind) {
    case Event::NULL_VALUE:
      return yajl_gen_null(gen);
    case Event::BOOLEAN:
      return yajl_gen_bool(gen, static_cast<int>(event.integer));
    case Event::INTEGER:
      return yajl_gen_integer(gen, event.integer);
    case Event::REAL:
      return yajl_gen_double(gen, event.real);
    case Event::STRING:
      return yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(event.string.data()),
                             event.string.size());
    case Event::MAP_OPEN:
      return yajl_gen_map_open(gen);
    case Event::MAP_CLOSE:
      return yajl_gen_map_close(gen);
    case Event::ARRAY_OPEN:
      return yajl_gen_array_open(gen);
    default:
      return yajl_gen_array_close(gen);
  }
}

void append(void* sink, const char* text, size_t length) {
  static_cast<std::string*>(sink)->append(text, length);
}

}  // namespace

std::size_t parse(const std::string& text, std::size_t piece) {
  feed(nothing, nullptr, text, piece);
  return text.size();
}

Events events_of(const std::string& text) {
  Events events;
  feed(recorder, &events, text, 0);
  return events;
}

std::size_t generate(const Events& events, std::string& sink) {
  const yajl_gen gen = yajl_gen_alloc(nullptr);
  yajl_gen_config(gen, yajl_gen_print_callback, append, static_cast<void*>(&sink));
  for (const Event& event : events) {
    if (write(gen, event) != yajl_gen_status_ok) give_up("the floor cannot write the events");
  }
  yajl_gen_free(gen);
  return sink.size();
}

}  // namespace bare_yajl
