#pragma once

#include <yajl/yajl_gen.h>

#include "vexa/vexa_export.h"

class YAJL_Gen;

/// Something that writes itself as one JSON value into a yajl generator, without being held as a
/// tree.
class VEXA_EXPORT JSON_Generator {
public:
  virtual ~JSON_Generator() = default;

  /// Writes the value to `gen`, which is borrowed: here by generate_i, through a wrapper. False
  /// when it could not be written whole; the text written so far is then the caller's to abandon.
  virtual bool generate(yajl_gen_t* gen);

  /// Writes the value, or what stands inside the envelope that a derived class's generate writes.
  virtual bool generate_i(YAJL_Gen& gen) = 0;
};
