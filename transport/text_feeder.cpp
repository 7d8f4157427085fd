#include "transport/text_feeder.h"

#include <new>

#include "json_rpc/json_rpc_reader.h"

namespace transport {

namespace {

constexpr std::size_t kept_capacity = 1u << 10;  // what an idle channel may keep

}  // namespace

void Text_Feeder::begin() {
  scanner_.reset();
  held_.clear();
}

void Text_Feeder::clear() {
  begin();
  if (held_.capacity() > kept_capacity) std::string().swap(held_);
}

Text_Feeder::Outcome Text_Feeder::read(JSON_RPC_Reader& reader, const char* data,
                                       std::size_t length, std::size_t& taken) {
  taken = length;
  if (length == 0 || reader.read(data, length)) return MORE;
  taken = reader.consumed() < length ? reader.consumed() : length;
  // Not the peer's fault, and what it asked or answered is lost: its connection cannot go on.
  if (reader.error() == JSON_RPC_Reader::ERROR_NO_MEMORY) throw std::bad_alloc();
  if (reader.refused()) return REFUSED;
  // A line feed that breaks off a UTF-8 sequence counts as taken; it is where the line ends.
  if (taken > 1 && data[taken - 1] == '\n' && (data[taken - 2] & 0x80) != 0) --taken;
  return NO_JSON;
}

Text_Feeder::Outcome Text_Feeder::feed(JSON_RPC_Reader& reader, const char* data,
                                       std::size_t length, std::size_t& used) {
  const std::size_t end = scanner_.scan(data, length);
  const bool ended = end != Message_Scanner::npos;
  const std::size_t whole = ended ? end : scanner_.whole();
  used = ended ? end : length;
  if (whole == Message_Scanner::npos) {
    held_.append(data, length);
    return MORE;
  }

  std::size_t taken;
  Outcome outcome;
  if (held_.empty()) {
    outcome = read(reader, data, whole, taken);
  } else {
    const std::size_t before = held_.size();
    held_.append(data, whole);
    outcome = read(reader, held_.data(), held_.size(), taken);
    taken = taken > before ? taken - before : 0;
    held_.clear();
  }
  if (outcome == NO_JSON) {
    used = taken;
    return NO_JSON;
  }
  if (outcome == REFUSED) {
    // The end has been scanned for already; skip() goes on behind it.
    if (ended) return REFUSED_AT_END;
    return REFUSED;
  }
  if (!ended) {
    held_.assign(data + whole, length - whole);
    return MORE;
  }
  if (scanner_.container()) return COMPLETE;
  return finish(reader);
}

bool Text_Feeder::skip(const char* data, std::size_t length, std::size_t& used) {
  const std::size_t end = scanner_.scan(data, length);
  used = end == Message_Scanner::npos ? length : end;
  return end != Message_Scanner::npos;
}

Text_Feeder::Outcome Text_Feeder::finish(JSON_RPC_Reader& reader) {
  std::size_t taken;
  const Outcome outcome = read(reader, held_.data(), held_.size(), taken);
  held_.clear();
  if (outcome != MORE) return outcome == REFUSED ? REFUSED_AT_END : outcome;
  if (reader.read(nullptr, 0)) return COMPLETE;
  if (reader.error() == JSON_RPC_Reader::ERROR_NO_MEMORY) throw std::bad_alloc();
  return reader.refused() ? REFUSED_AT_END : NO_JSON;
}

}  // namespace transport
