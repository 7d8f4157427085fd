#include "bench/bare_yajl.h"

#include "bench/give_up.h"

namespace bare_yajl {
namespace {

int ignore(void*) { return 1; }
int ignore_boolean(void*, int) { return 1; }
int ignore_number(void*, const char*, size_t) { return 1; }
int ignore_text(void*, const unsigned char*, size_t) { return 1; }
const yajl_callbacks nothing = {ignore,        ignore_boolean, nullptr, nullptr,
                                ignore_number, ignore_text,    ignore,  ignore_text,
                                ignore,        ignore,         ignore};

int keep(void* events, Event event) {
  static_cast<Events*>(events)->push_back(std::move(event));
  return 1;
}
template <Event::Kind kind>
int put_kind(void* events) {
  return keep(events, {kind, 0, 0, {}});
}
int put_boolean(void* events, int value) { return keep(events, {Event::BOOLEAN, value, 0, {}}); }
int put_integer(void* events, long long value) {
  return keep(events, {Event::INTEGER, value, 0, {}});
}
int put_real(void* events, double value) { return keep(events, {Event::REAL, 0, value, {}}); }
int put_string(void* events, const unsigned char* text, size_t length) {
  return keep(events,
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

void feed_to(yajl_handle parser, std::string_view text) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  if (yajl_parse(parser, bytes, text.size()) != yajl_status_ok) {
    give_up("the floor cannot parse the text");
  }
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
      return put(gen, event.string);
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

}  // namespace

Parser::Parser() : handle_(yajl_alloc(&nothing, nullptr, nullptr)) {}
Parser::~Parser() { yajl_free(handle_); }
void Parser::feed(std::string_view text) { feed_to(handle_, text); }

std::size_t parse(std::string_view text, std::size_t piece) {
  if (piece == 0) piece = text.size();
  Parser parser;
  for (std::size_t at = 0; at < text.size(); at += piece) parser.feed(text.substr(at, piece));
  return text.size();
}

Events events_of(const std::string& text) {
  Events events;
  const yajl_handle parser = yajl_alloc(&recorder, nullptr, &events);
  feed_to(parser, text);
  yajl_free(parser);
  return events;
}

yajl_gen generator_to(std::string& sink) {
  const yajl_gen gen = yajl_gen_alloc(nullptr);
  const yajl_print_t append = [](void* to, const char* text, size_t length) {
    static_cast<std::string*>(to)->append(text, length);
  };
  yajl_gen_config(gen, yajl_gen_print_callback, append, static_cast<void*>(&sink));
  return gen;
}

yajl_gen_status put(yajl_gen gen, std::string_view string) {
  return yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(string.data()), string.size());
}

std::size_t generate(const Events& events, std::string& sink) {
  const yajl_gen gen = generator_to(sink);
  for (const Event& event : events) {
    if (write(gen, event) != yajl_gen_status_ok) give_up("the floor cannot write the events");
  }
  yajl_gen_free(gen);
  return sink.size();
}

}  // namespace bare_yajl
