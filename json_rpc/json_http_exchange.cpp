#include "json_rpc/json_http_exchange.h"

#include "vexa/json_reader.h"

namespace {

constexpr std::size_t piece = 16u << 10;

bool is_open(HTTP_SOCK_State state) {
  return state != HTTP_SOCK_STATE_CONTENT_RECEIVED && state != HTTP_SOCK_STATE_CLOSED;
}

}  // namespace

JSON_HTTP_Body json_http_read_body(HTTP_Connection& connection, json_spirit::Value& result) {
  JSON_Reader reader;
  if (!reader.is_open()) return JSON_HTTP_Body::NOT_OPENED;
  result = json_spirit::Value();
  reader.result(&result);
  char data[piece];
  while (is_open(connection.state())) {
    const ssize_t got = connection.recv(data, sizeof data);
    if (got == -1) {
      reader.abandon();
      return JSON_HTTP_Body::NOT_RECEIVED;
    }
    if (got > 0 && !reader.read(data, static_cast<std::size_t>(got))) {
      return JSON_HTTP_Body::NOT_PARSED;
    }
  }
  return reader.end() ? JSON_HTTP_Body::READ : JSON_HTTP_Body::NOT_FINISHED;
}
