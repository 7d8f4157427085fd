#pragma once

#include <rapidjson/document.h>

#include "json_spirit/json_spirit_value.h"

/// What is done with value trees, by json_spirit and, as its floor, by RapidJSON's document. That
/// takes its memory in chunks from a pool of the document's own: it can free nothing but all.
namespace value_path {

/// An object of `size` members with texts of 30 bytes, or an array of `size` objects with seven
/// members.
struct Shape {
  unsigned int size;
  bool array;
};

struct Ours {
  typedef json_spirit::Value Tree;
  static Tree build(Shape shape);
  static Tree copy(const Tree& tree);
  /// An array of as many elements, moved out of `tree`.
  static Tree move_elements(Tree& tree);
};

struct Floor {
  typedef rapidjson::Document Tree;
  static Tree build(Shape shape);
  static Tree copy(const Tree& tree);
  /// The array needs `tree` to live, whose pool it uses.
  static Tree move_elements(Tree& tree);
};

}  // namespace value_path
