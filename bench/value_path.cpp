#include "bench/value_path.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace value_path {
namespace {

constexpr std::string_view thirty = "a text of some thirty characters";
constexpr std::string_view name = "item 12345";
constexpr std::string_view group = "tools";

const std::vector<std::string>& keys() {
  static const std::vector<std::string> made = [] {
    std::vector<std::string> all;
    for (int i = 10; i < 100; ++i) all.push_back("member_" + std::to_string(i));
    return all;
  }();
  return made;
}

typedef Floor::Tree::AllocatorType Pool;

rapidjson::Value text(std::string_view bytes, Pool& pool) {
  return rapidjson::Value(bytes.data(), static_cast<rapidjson::SizeType>(bytes.size()), pool);
}

json_spirit::Object our_record(unsigned int i) {
  json_spirit::Object record;
  record.append("id") = json_spirit::Value(100'000 + i);
  record.append("name") = name;
  record.append("price") = json_spirit::Value(i + 0.25);
  record.append("active") = json_spirit::Value(true);
  record.append("group") = group;
  record.append("stock") = json_spirit::Value(i % 77);
  json_spirit::Array place;
  place.reserve(2);
  place.emplace_back(i % 13);
  place.emplace_back(i % 11);
  record.append("place") = std::move(place);
  record.settle();
  return record;
}

rapidjson::Value floor_record(unsigned int i, Pool& pool) {
  using rapidjson::Value;
  Value record(rapidjson::kObjectType);
  record.AddMember(text("id", pool), Value(100'000 + i), pool);
  record.AddMember(text("name", pool), text(name, pool), pool);
  record.AddMember(text("price", pool), Value(i + 0.25), pool);
  record.AddMember(text("active", pool), Value(true), pool);
  record.AddMember(text("group", pool), text(group, pool), pool);
  record.AddMember(text("stock", pool), Value(i % 77), pool);
  Value place(rapidjson::kArrayType);
  place.Reserve(2, pool);
  place.PushBack(i % 13, pool).PushBack(i % 11, pool);
  record.AddMember(text("place", pool), place, pool);
  return record;
}

}  // namespace

Ours::Tree Ours::build(Shape shape) {
  if (shape.array) {
    json_spirit::Array array;
    for (unsigned int i = 0; i < shape.size; ++i) array.emplace_back(our_record(i));
    return array;
  }
  json_spirit::Object object;
  for (unsigned int i = 0; i < shape.size; ++i) object.append(std::string_view(keys()[i])) = thirty;
  object.settle();
  return object;
}

Ours::Tree Ours::copy(const Tree& tree) { return tree; }

Ours::Tree Ours::move_elements(Tree& tree) {
  json_spirit::Array array;
  array.reserve(tree.get_array().size());
  for (json_spirit::Value& element : tree.get_array()) array.push_back(std::move(element));
  return array;
}

Floor::Tree Floor::build(Shape shape) {
  Tree tree;
  Pool& pool = tree.GetAllocator();
  if (shape.array) {
    tree.SetArray();
    for (unsigned int i = 0; i < shape.size; ++i) tree.PushBack(floor_record(i, pool), pool);
    return tree;
  }
  tree.SetObject();
  for (unsigned int i = 0; i < shape.size; ++i) {
    tree.AddMember(text(keys()[i], pool), text(thirty, pool), pool);
  }
  return tree;
}

Floor::Tree Floor::copy(const Tree& tree) {
  Tree made;
  made.CopyFrom(tree, made.GetAllocator());
  return made;
}

Floor::Tree Floor::move_elements(Tree& tree) {
  Pool& pool = tree.GetAllocator();
  Tree made(&pool);
  made.SetArray();
  made.Reserve(tree.Size(), pool);
  for (rapidjson::Value& element : tree.GetArray()) made.PushBack(element, pool);
  return made;
}

}  // namespace value_path
