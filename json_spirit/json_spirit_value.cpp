#include "json_spirit/json_spirit_value.h"

#include <string.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

namespace json_spirit {
namespace {

static_assert(sizeof(Value) == 40, "values are what messages are made of");
static_assert(std::is_nothrow_move_constructible_v<Object::value_type> &&
                  std::is_nothrow_move_assignable_v<Object::value_type>,
              "a vector that grows must move its members, not copy them");

/// Up to this size a search looks at every key.
constexpr std::size_t small_object = 8;

/// Room for the members of most objects, so that these cost one allocation.
constexpr std::size_t first_room = 8;

/// Room after that: to go on three times as large moves fewer members of the middle sizes.
constexpr std::size_t second_room = 24;

/// Levels that copying and destroying recurse into, and that a comparison keeps on the stack: more
/// than a value has that was read from a message.
constexpr std::size_t shallow = 128;

const char* type_name(Value_type type) {
  static const char* const names[] = {"obj_type",  "array_type", "str_type",  "secure_str_type",
                                      "bool_type", "int_type",   "real_type", "null_type"};
  return names[type];
}

/// Overwrites all that `text` has room for, in place or not, and leaves it empty.
void wipe(std::string& text) noexcept {
  text.resize(text.capacity());
  explicit_bzero(text.data(), text.size());
  text.clear();
}

bool same_text(const std::string& a, std::string_view b) noexcept {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), b.size()) == 0;
}

/// The first two bytes of a key, which order most keys of an object as the whole would.
std::uint32_t key_head(const std::string& key) noexcept {
  const auto* const text = reinterpret_cast<const unsigned char*>(key.c_str());
  return key.empty() ? 0u : std::uint32_t{text[0]} << 8 | text[1];
}

/// Eight bytes of a text as a number that is ordered as they are.
std::uint64_t word_at(const char* text) noexcept {
  std::uint64_t word;
  std::memcpy(&word, text, sizeof word);
  return __builtin_bswap64(word);
}

/// Compares keys without a call where they differ in the first byte, or are names of one length
/// from 8 to 16 bytes.
int compare_keys(const std::string& a, const std::string& b) noexcept {
  const auto x = static_cast<unsigned char>(a[0]), y = static_cast<unsigned char>(b[0]);
  if (x != y) return x < y ? -1 : 1;
  const std::size_t size = a.size();
  if (size != b.size() || size < 8 || size > 16) return a.compare(b);
  const std::uint64_t first = word_at(a.data()), other = word_at(b.data());
  if (first != other) return first < other ? -1 : 1;
  // The last eight may have some of the first in them, which are alike.
  const std::uint64_t last = word_at(a.data() + size - 8), others = word_at(b.data() + size - 8);
  return last == others ? 0 : last < others ? -1 : 1;
}

template <typename T>
int compare_plain(T a, T b) noexcept {
  return static_cast<int>(b < a) - static_cast<int>(a < b);
}

int compare_reals(double a, double b) noexcept {
  if (std::isnan(a) || std::isnan(b)) return compare_plain(std::isnan(a), std::isnan(b));
  return compare_plain(a, b);
}

int compare_integers(const Value& a, const Value& b) noexcept {
  // What is negative is signed; all others read alike as unsigned.
  const bool a_negative = !a.is_uint64() && a.get_int64() < 0;
  const bool b_negative = !b.is_uint64() && b.get_int64() < 0;
  if (a_negative != b_negative) return a_negative ? -1 : 1;
  return compare_plain(a.get_uint64(), b.get_uint64());
}

Value_type kind_of(const Value& value) noexcept {
  return value.type() == secure_str_type ? str_type : value.type();
}

}  // namespace

Object& Object::operator=(const Object& other) { return *this = Object(other); }

Object& Object::operator=(Object&& other) noexcept {
  Object taken(std::move(other));  // first, for it may lie inside of what goes
  swap(taken);
  return *this;
}

Value& Object::operator[](std::string_view key) {
  const iterator found = find(key);
  if (found != end()) return found->second;
  // The key is copied before anything moves: it may be text of this very object.
  return insert(value_type(key, Value())).first->second;
}

Value& Object::at(std::string_view key) {
  return const_cast<Value&>(static_cast<const Object*>(this)->at(key));
}

const Value& Object::at(std::string_view key) const {
  const const_iterator found = find(key);
  if (found == end()) throw std::out_of_range("object has no member \"" + std::string(key) + "\"");
  return found->second;
}

/// The position of the first key that is not before `key`.
std::size_t Object::place_of(std::string_view key) const noexcept {
  std::size_t first = 0, last = size();
  while (first < last) {
    const std::size_t middle = (first + last) / 2;
    if (member(middle).first < key) {
      first = middle + 1;
    } else {
      last = middle;
    }
  }
  return first;
}

/// size() when there is no such member.
std::size_t Object::position_of(std::string_view key) const noexcept {
  std::size_t position = 0;
  if (size() > small_object) {
    position = place_of(key);
    return position < size() && same_text(member(position).first, key) ? position : size();
  }
  while (position < size() && !same_text(member(position).first, key)) ++position;
  return position;
}

Object::iterator Object::find(std::string_view key) noexcept { return {this, position_of(key)}; }

Object::const_iterator Object::find(std::string_view key) const noexcept {
  return {this, position_of(key)};
}

Object::size_type Object::count(std::string_view key) const noexcept {
  return find(key) == end() ? 0 : 1;
}

Object::iterator Object::lower_bound(std::string_view key) noexcept {
  return {this, place_of(key)};
}

Object::const_iterator Object::lower_bound(std::string_view key) const noexcept {
  return {this, place_of(key)};
}

std::pair<Object::iterator, bool> Object::insert(value_type member) {
  const iterator place = lower_bound(member.first);
  if (place != end() && place->first == member.first) return {place, false};
  if (members_.capacity() == 0) grow();
  if (size() < Order::limit) {
    members_.push_back(std::move(member));
    order_.insert(place.position_, size() - 1);
  } else {
    if (size() == Order::limit) lay_in_order();
    members_.insert(members_.begin() + static_cast<std::ptrdiff_t>(place.position_),
                    std::move(member));
  }
  return {place, true};
}

Object::size_type Object::erase(std::string_view key) noexcept {
  const const_iterator found = find(key);
  if (found == end()) return 0;
  erase(found);
  return 1;
}

Object::iterator Object::erase(const_iterator at) noexcept {
  const std::size_t position = at.position_, index = order_[position], last = size() - 1;
  if (size() > Order::limit) {
    members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(index));
    return {this, position};
  }
  order_.erase(position);
  if (index != last) {  // the last member fills the gap
    members_[index] = std::move(members_[last]);
    std::size_t moved = 0;
    while (order_[moved] != last) ++moved;
    order_.erase(moved);
    order_.insert(moved, index);
  }
  members_.pop_back();
  return {this, position};
}

void Object::settle() noexcept {
  if (size() <= Order::limit) {
    find_order();
  } else {
    sort();
  }
  // A message full of tiny objects must not grow by the room that each of them leaves empty.
  if (members_.capacity() >= 3 * members_.size()) members_.shrink_to_fit();
}

bool Object::equal(const Object& a, const Object& b) {
  if (a.size() != b.size()) return false;
  return std::equal(a.begin(), a.end(), b.begin(), [](const value_type& x, const value_type& y) {
    return x.first == y.first && x.second == y.second;
  });
}

void Object::grow() {
  members_.reserve(size() == 0 ? first_room : std::max(second_room, 2 * size()));
}

/// For the insertion that makes a small object a large one.
void Object::lay_in_order() {
  if (order_ == Order()) return;
  std::vector<value_type> sorted;
  sorted.reserve(2 * size());
  for (value_type& member : *this) sorted.push_back(std::move(member));
  members_.swap(sorted);
  order_ = Order();
}

/// Sorts numbers, made of the head of a key and the index of its member: most objects need no more.
void Object::find_order() noexcept {
  const std::size_t count = size();
  bool undecided = false;
  std::uint32_t sorted[1 + Order::limit];
  sorted[0] = 0;  // not behind any other, so that the search for a place ends there
  for (std::size_t index = 0; index < count; ++index) {
    const std::uint32_t entry =
        key_head(members_[index].first) << 4 | static_cast<std::uint32_t>(index);
    std::size_t last = index;
    for (; entry < sorted[last]; --last) sorted[last + 1] = sorted[last];
    sorted[last + 1] = entry;
    if ((sorted[last] ^ entry) < 16) undecided = true;  // heads alike
  }
  if (undecided) {
    std::sort(sorted + 1, sorted + 1 + count, [this](std::uint32_t a, std::uint32_t b) {
      const int difference = members_[a & 15].first.compare(members_[b & 15].first);
      return difference < 0 || (difference == 0 && a < b);
    });
  }
  for (std::size_t place = count; place > 0; --place) order_.insert(0, sorted[place] & 15);
  if (undecided) drop_repeated();
}

void Object::drop_repeated() noexcept {
  for (std::size_t position = 1; position < size();) {
    if (member(position - 1).first == member(position).first) {
      erase(const_iterator(this, position - 1));  // the one that came first
    } else {
      ++position;
    }
  }
}

/// Sorts the members themselves.
void Object::sort() noexcept {
  order_ = Order();
  const auto behind = [](const value_type& a, const value_type& b) {
    return compare_keys(a.first, b.first) >= 0;
  };
  if (std::adjacent_find(members_.begin(), members_.end(), behind) == members_.end()) return;
  // Does without memory where there is none.
  std::stable_sort(members_.begin(), members_.end(), [](const value_type& a, const value_type& b) {
    return compare_keys(a.first, b.first) < 0;
  });
  const auto same = [](const value_type& a, const value_type& b) { return a.first == b.first; };
  auto kept = std::adjacent_find(members_.begin(), members_.end(), same);
  if (kept == members_.end()) return;
  for (auto next = kept + 1; next != members_.end(); ++next) {
    if (!same(*kept, *next)) ++kept;
    if (kept != next) *kept = std::move(*next);
  }
  members_.erase(kept + 1, members_.end());
}

const Value Value::null;

Value Value::secure(std::string&& text) noexcept {
  Value value(std::move(text));
  value.type_ = secure_str_type;
  wipe(text);
  return value;
}

void Value::throw_wrong_type(Value_type wanted) const {
  throw std::runtime_error(std::string("value type is ") + type_name(type_) + " not " +
                           type_name(wanted));
}

void Value::take_held(Value& other) noexcept {
  switch (other.type_) {
    case obj_type:
      hold(std::move(other.obj_));
      other.obj_.~Object();
      break;
    case array_type:
      hold(std::move(other.arr_));
      other.arr_.~Array();
      break;
    default:
      hold(std::move(other.str_));
      if (other.type_ == secure_str_type) wipe(other.str_);  // short text was copied out of it
      other.str_.~basic_string();
  }
  type_ = other.type_;
  unsigned_ = false;
  other.type_ = null_type;
}

std::size_t Value::child_count() const noexcept {
  return type_ == obj_type ? obj_.members_.size() : arr_.size();
}

/// In the order of memory.
Value& Value::child(std::size_t index) noexcept {
  return type_ == obj_type ? obj_.members_[index].second : arr_[index];
}

/// Destroys children from the last one on, up to a container that has children. Whether all went.
bool Value::drop_leaves() noexcept {
  for (std::size_t left = child_count(); left > 0; --left) {
    if (!child(left - 1).is_leaf()) return false;
    if (type_ == obj_type) {
      obj_.members_.pop_back();
    } else {
      arr_.pop_back();
    }
  }
  return true;
}

/// Children that are containers go first: what their vector destroys then is flat, so the recursion
/// is the one here, which stops `shallow` levels down.
void Value::destroy_held(std::size_t depth) noexcept {
  const auto empty_child = [depth](Value& child) {
    if (!child.is_container()) return;
    if (depth == shallow) return dismantle(std::move(child));
    child.destroy_held(depth + 1);
    child.type_ = null_type;
  };
  switch (type_) {
    case obj_type:
      for (Object::value_type& member : obj_.members_) empty_child(member.second);
      return obj_.~Object();
    case array_type:
      for (Value& element : arr_) empty_child(element);
      return arr_.~Array();
    default:
      wipe(str_);  // plain text was destroyed by the caller
      str_.~basic_string();
  }
}

/// Destroys a tree without recursion and without memory, from the last child to the first. To enter
/// a child container, the way back is kept in the tree itself: the child leaves its place and gets
/// its parent as first child, and the first child that it had takes the place that it left. A
/// parent is thus met again as the last child left of the container above it, and needs no telling
/// apart. Each container is entered once and each leaf dropped once, so the whole is linear.
void Value::dismantle(Value&& root) noexcept {
  Value current(std::move(root));
  while (!current.drop_leaves()) {
    const std::size_t count = current.child_count();
    Value& last = current.child(count - 1);
    if (last.drop_leaves()) continue;  // a flat child goes as the leaf that it is now
    Value next(std::move(last));
    if (count > 1) {
      Value& first = next.child(0);
      last = std::move(first);
      first = std::move(current);
    }
    current = std::move(next);
  }
}

struct Value::Pending_Copy {
  Value* to;
  const Value* from;
};

/// Nested containers are copied by recursion as far down as messages go; what is deeper is put off,
/// and begun afresh from here.
void Value::copy_held(const Value& other) {
  std::vector<Pending_Copy> pending;
  copy_nested(other, 0, pending);
  while (!pending.empty()) {
    const Pending_Copy next = pending.back();
    pending.pop_back();
    next.to->copy_nested(*next.from, 0, pending);
  }
}

/// `this` is null. When memory runs out it is left a part of the copy, in good order.
void Value::copy_nested(const Value& other, int depth, std::vector<Pending_Copy>& pending) {
  const auto copy_child = [&](Value& to, const Value& from) {
    if (!from.is_container()) {
      to.copy(from);
    } else if (depth < static_cast<int>(shallow)) {
      to.copy_nested(from, depth + 1, pending);
    } else {
      pending.push_back({&to, &from});  // `to` stays where it is: its vector has its final size
    }
  };
  switch (other.type_) {
    case obj_type:
      new (&obj_) Object;
      type_ = obj_type;
      obj_.members_.reserve(other.obj_.size());
      for (const Object::value_type& member : other.obj_) {
        copy_child(obj_.append(std::string_view(member.first)), member.second);
      }
      return;
    case array_type:
      new (&arr_) Array;
      type_ = array_type;
      arr_.reserve(other.arr_.size());
      for (const Value& element : other.arr_) copy_child(arr_.emplace_back(), element);
      return;
    default:
      new (&str_) std::string(other.str_);
      type_ = other.type_;
  }
}

/// The pairs of containers that a comparison is in, with the child that comes next in each.
class Value::Walk {
public:
  struct Step {
    const Value* a;
    const Value* b;
    std::size_t next;
  };

  bool empty() const noexcept { return size_ == 0; }
  Step& top() noexcept { return size_ <= shallow ? steps_[size_ - 1] : more_.back(); }
  void push(const Step& step) {
    if (size_ < shallow) {
      steps_[size_] = step;
    } else {
      more_.push_back(step);
    }
    ++size_;
  }
  void pop() noexcept {
    if (size_ > shallow) more_.pop_back();
    --size_;
  }

private:
  std::size_t size_ = 0;
  Step steps_[shallow];
  std::vector<Step> more_;
};

/// Everything but the children: 0 means that these decide.
int Value::compare_heads(const Value& a, const Value& b) noexcept {
  const Value_type kind = kind_of(a);
  if (kind != kind_of(b)) return kind < kind_of(b) ? -1 : 1;
  switch (kind) {
    case obj_type:
    case array_type:
      return compare_plain(a.child_count(), b.child_count());
    case str_type:
      return a.str_.compare(b.str_);
    case bool_type:
      return compare_plain(a.bits_, b.bits_);
    case int_type:
      return compare_integers(a, b);
    case real_type:
      return compare_reals(a.real(), b.real());
    default:
      return 0;
  }
}

int Value::compare(const Value& a, const Value& b) {
  const int heads = compare_heads(a, b);
  if (heads != 0 || a.is_leaf() || &a == &b) return heads;
  Walk walk;
  walk.push({&a, &b, 0});
  while (!walk.empty()) {
    Walk::Step& step = walk.top();
    if (step.next == step.a->child_count()) {
      walk.pop();
      continue;
    }
    const std::size_t index = step.next++;
    const Value* x;
    const Value* y;
    if (step.a->type_ == obj_type) {
      const Object::value_type& a_member = step.a->obj_.member(index);
      const Object::value_type& b_member = step.b->obj_.member(index);
      const int keys = a_member.first.compare(b_member.first);
      if (keys != 0) return keys;
      x = &a_member.second;
      y = &b_member.second;
    } else {
      x = &step.a->arr_[index];
      y = &step.b->arr_[index];
    }
    const int children = compare_heads(*x, *y);
    if (children != 0) return children;
    if (!x->is_leaf()) walk.push({x, y, 0});
  }
  return 0;
}

std::size_t value_hash::operator()(const Value& value) const noexcept {
  std::size_t hash = 0;
  switch (value.type()) {
    case obj_type:
    case array_type:
      hash = value.child_count();
      break;
    case str_type:
    case secure_str_type:
      hash = std::hash<std::string_view>()(value.get_str());
      break;
    case bool_type:
    case int_type:
      hash = value.bits_;  // as equal as integers of either sign are
      break;
    case real_type:
      // All NaNs are one; std::hash takes care of the two zeros.
      hash = std::isnan(value.real()) ? 1 : std::hash<double>()(value.real());
      break;
    case null_type:
      break;
  }
  // Ids are often numbers in a row, or multiples of something: spread them.
  hash = (hash ^ (static_cast<std::size_t>(kind_of(value)) << 60)) * 0x9e3779b97f4a7c15u;
  return hash ^ (hash >> 32);
}

}  // namespace json_spirit
