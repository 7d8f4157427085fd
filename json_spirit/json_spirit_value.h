#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "json_spirit/json_spirit_export.h"

/// The JSON value tree. Values are plain data: no locks, any thread may use its own, and several
/// may read one that none of them changes. However deep a value is, destroying, copying, comparing
/// and hashing it needs a bounded stack. What allocates may throw std::bad_alloc.
namespace json_spirit {

/// Callers pass and compare these numbers.
enum Value_type {
  obj_type = 0,
  array_type = 1,
  str_type = 2,
  secure_str_type = 3,  ///< text that is wiped when it goes; reads as text
  bool_type = 4,
  int_type = 5,  ///< any 64-bit integer, signed or unsigned
  real_type = 6,
  null_type = 7
};

class Value;

/// As a vector knows nothing of its elements' insides, an assignment between two arrays of which
/// one lies inside the other goes through the values that hold them, or through a copy.
typedef std::vector<Value> Array;

/// A map from text to value, in the order of the keys' bytes: one vector with a map's interface.
/// Other than with std::map, an insertion, an erasure and a move of the object invalidate its
/// iterators, and the first two its references; and a key can be written through an iterator, which
/// nobody may do. No allocation while empty, at most two for up to 8 members.
class JSON_SPIRIT_EXPORT Object {
  template <typename Owner>
  class Iterator;

public:
  typedef std::string key_type;
  typedef Value mapped_type;
  typedef std::pair<std::string, Value> value_type;
  typedef Iterator<Object> iterator;  // both are bidirectional
  typedef Iterator<const Object> const_iterator;
  typedef std::size_t size_type;

  Object() noexcept = default;
  Object(const Object&) = default;
  Object(Object&&) noexcept = default;
  ~Object() = default;
  /// The source may be this object, or lie inside of it.
  Object& operator=(const Object& other);
  Object& operator=(Object&& other) noexcept;

  iterator begin() noexcept;
  iterator end() noexcept;
  const_iterator begin() const noexcept;
  const_iterator end() const noexcept;
  const_iterator cbegin() const noexcept;
  const_iterator cend() const noexcept;
  size_type size() const noexcept;
  bool empty() const noexcept;
  void clear() noexcept;
  void swap(Object& other) noexcept;

  /// The member of that key; a null is inserted when there is none.
  Value& operator[](std::string_view key);
  /// Throw std::out_of_range when there is no such member.
  Value& at(std::string_view key);
  const Value& at(std::string_view key) const;
  iterator find(std::string_view key) noexcept;
  const_iterator find(std::string_view key) const noexcept;
  size_type count(std::string_view key) const noexcept;
  iterator lower_bound(std::string_view key) noexcept;
  const_iterator lower_bound(std::string_view key) const noexcept;

  /// The member of that key and whether it was inserted; a member that was there is left as it is.
  std::pair<iterator, bool> insert(value_type member);
  /// insert() of a member made from `args` as std::pair makes it.
  template <typename... Args>
  std::pair<iterator, bool> emplace(Args&&... args);
  size_type erase(std::string_view key) noexcept;
  iterator erase(const_iterator at) noexcept;

  /// For builders: adds a null member behind the others without looking for its place, and returns
  /// it; it stays where it is until the next append(). Once append() was called, nothing else may
  /// be until settle() is, but to destroy or move the object.
  Value& append(std::string&& key);
  Value& append(std::string_view key);
  Value& append(const char* key);
  /// Ends a row of append(): orders the members, which costs one look at each when they came in
  /// order, and gives room back that they hardly use. Of several with one key the last stays, in
  /// place of what the object had before as well. Ends the references that append() returned.
  void settle() noexcept;

  friend bool operator==(const Object& a, const Object& b) { return equal(a, b); }
  friend bool operator!=(const Object& a, const Object& b) { return !equal(a, b); }

private:
  friend class Value;

  /// A member is 72 bytes to move. So the members of a small object stay where they came, and this
  /// tells for each position in the order of keys which of them is there, in four bits.
  class Order {
  public:
    static constexpr std::size_t limit = 16;

    /// Behind the limit members are in order themselves.
    std::size_t operator[](std::size_t position) const noexcept {
      return position < limit ? bits_ >> (4 * position) & 15 : position;
    }
    /// Puts `index` at `position`, and what is there and behind it one further on.
    void insert(std::size_t position, std::size_t index) noexcept {
      const std::uint64_t before = bits_ & below(position);
      bits_ = (bits_ ^ before) << 4 | std::uint64_t{index} << (4 * position) | before;
    }
    void erase(std::size_t position) noexcept {
      const std::uint64_t before = bits_ & below(position);
      bits_ = (bits_ >> 4 & ~below(position)) | before;
    }
    bool operator==(const Order& other) const noexcept { return bits_ == other.bits_; }

  private:
    static std::uint64_t below(std::size_t position) noexcept {
      return (std::uint64_t{1} << (4 * position)) - 1;
    }

    std::uint64_t bits_ = 0xfedcba9876543210;  // as they came
  };

  static bool equal(const Object& a, const Object& b);
  value_type& member(std::size_t position) noexcept;
  const value_type& member(std::size_t position) const noexcept;
  std::size_t place_of(std::string_view key) const noexcept;
  std::size_t position_of(std::string_view key) const noexcept;
  void make_room();
  void grow();
  void lay_in_order();
  void find_order() noexcept;
  void drop_repeated() noexcept;
  void sort() noexcept;

  std::vector<value_type> members_;
  Order order_;  // of more than Order::limit members as they came, for these are sorted themselves
};

/// The object and a position in the order of its keys.
template <typename Owner>
class Object::Iterator {
public:
  typedef std::bidirectional_iterator_tag iterator_category;
  typedef Object::value_type value_type;
  typedef std::ptrdiff_t difference_type;
  typedef std::conditional_t<std::is_const_v<Owner>, const value_type, value_type>& reference;
  typedef std::remove_reference_t<reference>* pointer;

  Iterator() noexcept = default;
  template <typename Other, typename = std::enable_if_t<std::is_same_v<const Other, Owner>>>
  Iterator(const Iterator<Other>& other) noexcept
      : owner_(other.owner_), position_(other.position_) {}

  reference operator*() const noexcept { return owner_->member(position_); }
  pointer operator->() const noexcept { return &**this; }
  Iterator& operator++() noexcept { return ++position_, *this; }
  Iterator operator++(int) noexcept { return {owner_, position_++}; }
  Iterator& operator--() noexcept { return --position_, *this; }
  Iterator operator--(int) noexcept { return {owner_, position_--}; }
  friend bool operator==(const Iterator& a, const Iterator& b) noexcept {
    return a.position_ == b.position_;
  }
  friend bool operator!=(const Iterator& a, const Iterator& b) noexcept { return !(a == b); }

private:
  friend class Object;
  template <typename>
  friend class Iterator;

  Iterator(Owner* owner, std::size_t position) noexcept : owner_(owner), position_(position) {}

  Owner* owner_ = nullptr;
  std::size_t position_ = 0;
};

/// One JSON value, 40 bytes; text of up to 15 bytes, empty objects and empty arrays are held in
/// place. A moved-from value is null, and moving never throws nor allocates.
///
/// Equality and value_lesser agree. Integers compare as numbers whether they were made signed or
/// unsigned; an integer and a real are different kinds and never equal, nor are 7 and "7". -0.0
/// equals 0.0, and a NaN equals every NaN, so a value always equals its copy. Text compares by its
/// bytes, secure or not. Comparing values of up to 128 open containers allocates nothing.
class JSON_SPIRIT_EXPORT Value {
public:
  /// A null for whoever needs a reference to one. Constant-initialised: usable before main().
  static const Value null;

  constexpr Value() noexcept : bits_(0), type_(null_type), unsigned_(false) {}
  Value(const Value& other) : Value() { copy(other); }
  Value(Value&& other) noexcept { take(other); }
  ~Value() { destroy(); }
  /// The source may be this value, or lie inside of it.
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  /// Makes the value in place, of these three kinds and of nothing that converts to them.
  template <typename T,
            typename = std::enable_if_t<std::is_same_v<T, std::string_view> ||
                                        std::is_same_v<T, Object> || std::is_same_v<T, Array>>>
  Value& operator=(T content) {
    if (!is_plain()) return *this = Value(std::move(content));
    type_ = null_type;  // what is left when there is no memory
    unsigned_ = false;
    hold(std::move(content));
    return *this;
  }

  /// A template, so that nothing but a bool becomes one: a pointer does not.
  template <typename T, typename = std::enable_if_t<std::is_same_v<T, bool>>>
  Value(T flag) noexcept : Value(bool_type, flag ? 1 : 0) {}
  Value(int number) noexcept : Value(static_cast<long long>(number)) {}
  Value(long number) noexcept : Value(static_cast<long long>(number)) {}
  Value(long long number) noexcept : Value(int_type, static_cast<std::uint64_t>(number)) {}
  Value(unsigned number) noexcept : Value(static_cast<unsigned long long>(number)) {}
  Value(unsigned long number) noexcept : Value(static_cast<unsigned long long>(number)) {}
  Value(unsigned long long number) noexcept : Value(int_type, number) { unsigned_ = true; }
  Value(double number) noexcept : Value(real_type, 0) {
    std::memcpy(&bits_, &number, sizeof bits_);
  }
  /// A null pointer gives null.
  Value(const char* text) : Value() {
    if (text != nullptr) hold(std::string(text));
  }
  Value(std::string_view text) : str_(text), type_(str_type), unsigned_(false) {}
  Value(const std::string& text) : str_(text), type_(str_type), unsigned_(false) {}
  Value(std::string&& text) noexcept : str_(std::move(text)), type_(str_type), unsigned_(false) {}
  Value(const Object& object) : obj_(object), type_(obj_type), unsigned_(false) {}
  Value(Object&& object) noexcept : obj_(std::move(object)), type_(obj_type), unsigned_(false) {}
  Value(const Array& array) : arr_(array), type_(array_type), unsigned_(false) {}
  Value(Array&& array) noexcept : arr_(std::move(array)), type_(array_type), unsigned_(false) {}
  Value(std::nullptr_t) = delete;

  /// Text of secure_str_type: its bytes are overwritten before their memory is given back or used
  /// for something else, here and in every copy of the value. `text` is wiped at once where its
  /// bytes were not taken over. Copies that others make of get_str() are theirs to wipe.
  static Value secure(std::string&& text) noexcept;

  Value_type type() const noexcept { return type_; }
  bool is_null() const noexcept { return type_ == null_type; }
  /// An integer that was made from an unsigned type. One made from a signed type reads right with
  /// get_int64(), one of this kind with get_uint64().
  bool is_uint64() const noexcept { return type_ == int_type && unsigned_; }

  /// The getters throw std::runtime_error "value type is int_type not str_type" (with the names of
  /// the kinds) when the value is of another kind than asked for: look at type() first.
  bool get_bool() const {
    require(bool_type);
    return bits_ != 0;
  }
  /// The low bits of an integer that does not fit, as a cast gives them.
  int get_int() const { return static_cast<int>(get_int64()); }
  std::int64_t get_int64() const { return static_cast<std::int64_t>(get_uint64()); }
  std::uint64_t get_uint64() const {
    require(int_type);
    return bits_;
  }
  /// An integer reads as the nearest real.
  double get_real() const {
    if (type_ == real_type) return real();
    if (type_ != int_type) throw_wrong_type(real_type);
    return unsigned_ ? static_cast<double>(bits_) : static_cast<double>(get_int64());
  }
  /// Text of either kind.
  const std::string& get_str() const {
    if (type_ != secure_str_type) require(str_type);
    return str_;
  }
  const Object& get_obj() const {
    require(obj_type);
    return obj_;
  }
  Object& get_obj() {
    require(obj_type);
    return obj_;
  }
  const Array& get_array() const {
    require(array_type);
    return arr_;
  }
  Array& get_array() {
    require(array_type);
    return arr_;
  }

  friend bool operator==(const Value& a, const Value& b) { return compare(a, b) == 0; }
  friend bool operator!=(const Value& a, const Value& b) { return compare(a, b) != 0; }

private:
  friend class Object;
  friend struct value_lesser;
  friend struct value_hash;
  class Walk;
  struct Pending_Copy;

  constexpr Value(Value_type type, std::uint64_t bits) noexcept
      : bits_(bits), type_(type), unsigned_(false) {}

  /// Kinds whose payload is bits_ alone, so that copying and dropping them takes no switch.
  bool is_plain() const noexcept { return type_ >= bool_type; }
  bool is_container() const noexcept { return type_ <= array_type; }
  std::size_t child_count() const noexcept;
  bool is_leaf() const noexcept { return !is_container() || child_count() == 0; }
  Value& child(std::size_t index) noexcept;
  bool drop_leaves() noexcept;

  double real() const noexcept {
    double number;
    std::memcpy(&number, &bits_, sizeof number);
    return number;
  }
  void require(Value_type type) const {
    if (type_ != type) throw_wrong_type(type);
  }
  [[noreturn]] void throw_wrong_type(Value_type wanted) const;

  // copy(), take() and hold() begin this value's payload: what there was must be plain, or gone.
  void copy(const Value& other) {
    if (!other.is_plain()) return copy_held(other);
    bits_ = other.bits_;
    type_ = other.type_;
    unsigned_ = other.unsigned_;
  }
  void take(Value& other) noexcept {
    if (!other.is_plain()) return take_held(other);
    bits_ = other.bits_;
    type_ = other.type_;
    unsigned_ = other.unsigned_;
    other.type_ = null_type;
  }
  void hold(Object&& object) noexcept {
    new (&obj_) Object(std::move(object));
    type_ = obj_type;
  }
  void hold(Array&& array) noexcept {
    new (&arr_) Array(std::move(array));
    type_ = array_type;
  }
  void hold(std::string&& text) noexcept {
    new (&str_) std::string(std::move(text));
    type_ = str_type;
  }
  void hold(std::string_view text) {
    new (&str_) std::string(text);
    type_ = str_type;
  }
  void destroy() noexcept {
    if (is_plain()) return;
    if (type_ == str_type) return str_.~basic_string();
    destroy_held(0);
  }
  void copy_held(const Value& other);
  void copy_nested(const Value& other, int depth, std::vector<Pending_Copy>& pending);
  void take_held(Value& other) noexcept;
  void destroy_held(std::size_t depth) noexcept;
  static void dismantle(Value&& root) noexcept;
  static int compare(const Value& a, const Value& b);
  static int compare_heads(const Value& a, const Value& b) noexcept;

  union {
    std::uint64_t bits_;  // bool, integer, real or nothing
    std::string str_;
    Object obj_;
    Array arr_;
  };
  Value_type type_;
  bool unsigned_;
};

/// A strict weak order over all values, for the keys of maps. By kind first, in the order of
/// Value_type with secure text among the text; then false before true, numbers by size with NaN
/// behind all others, text by its bytes; of objects and arrays the one with fewer children comes
/// first, then the first difference in order decides (an object's key before its value).
struct JSON_SPIRIT_EXPORT value_lesser {
  bool operator()(const Value& a, const Value& b) const { return Value::compare(a, b) < 0; }
};

/// A hash that equal values share, meant for ids: of an object or an array only the kind and the
/// number of children count.
struct JSON_SPIRIT_EXPORT value_hash {
  std::size_t operator()(const Value& value) const noexcept;
};

inline Value& Value::operator=(const Value& other) {
  if (is_plain() && other.is_plain()) {
    copy(other);
    return *this;
  }
  return *this = Value(other);
}

inline Value& Value::operator=(Value&& other) noexcept {
  if (this == &other) return *this;
  if (is_plain()) {
    take(other);
    return *this;
  }
  Value taken(std::move(other));  // first, for it may lie inside of what goes
  destroy();
  take(taken);
  return *this;
}

inline Object::value_type& Object::member(std::size_t position) noexcept {
  return members_[order_[position]];
}
inline const Object::value_type& Object::member(std::size_t position) const noexcept {
  return members_[order_[position]];
}

inline Object::iterator Object::begin() noexcept { return {this, 0}; }
inline Object::iterator Object::end() noexcept { return {this, size()}; }
inline Object::const_iterator Object::begin() const noexcept { return {this, 0}; }
inline Object::const_iterator Object::end() const noexcept { return {this, size()}; }
inline Object::const_iterator Object::cbegin() const noexcept { return begin(); }
inline Object::const_iterator Object::cend() const noexcept { return end(); }
inline Object::size_type Object::size() const noexcept { return members_.size(); }
inline bool Object::empty() const noexcept { return members_.empty(); }
inline void Object::clear() noexcept { members_.clear(); }
inline void Object::swap(Object& other) noexcept {
  members_.swap(other.members_);
  std::swap(order_, other.order_);
}

inline void Object::make_room() {
  if (members_.size() == members_.capacity()) grow();
  // Spares every caller emplace_back()'s own way of growing.
  if (members_.size() == members_.capacity()) __builtin_unreachable();
}
inline Value& Object::append(std::string&& key) {
  make_room();
  return members_
      .emplace_back(std::piecewise_construct, std::forward_as_tuple(std::move(key)), std::tuple<>())
      .second;
}
inline Value& Object::append(std::string_view key) {
  make_room();
  return members_.emplace_back(std::piecewise_construct, std::forward_as_tuple(key), std::tuple<>())
      .second;
}
inline Value& Object::append(const char* key) { return append(std::string_view(key)); }

template <typename... Args>
std::pair<Object::iterator, bool> Object::emplace(Args&&... args) {
  return insert(value_type(std::forward<Args>(args)...));
}

}  // namespace json_spirit
