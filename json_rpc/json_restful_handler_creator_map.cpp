#include "json_rpc/json_restful_handler_creator_map.h"

#include "vexa/singleton_t.h"

JSON_RESTful_Handler_Creator_Map::JSON_RESTful_Handler_Creator_Map() = default;
JSON_RESTful_Handler_Creator_Map::~JSON_RESTful_Handler_Creator_Map() = default;

JSON_RESTful_Handler_Creator_Map* JSON_RESTful_Handler_Creator_Map::instance() {
  return Singleton_T<JSON_RESTful_Handler_Creator_Map>::instance();
}
void JSON_RESTful_Handler_Creator_Map::close_instance() {
  Singleton_T<JSON_RESTful_Handler_Creator_Map>::close();
}
