#include "vexa/json_generator.h"

#include "vexa/yajl_gen.h"

bool JSON_Generator::generate(yajl_gen_t* gen) {
  YAJL_Gen writer(gen, false);
  return generate_i(writer) && writer.ok();
}
