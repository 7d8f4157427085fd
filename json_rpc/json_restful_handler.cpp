#include "json_rpc/json_restful_handler.h"

JSON_RESTful_Handler::~JSON_RESTful_Handler() = default;

int JSON_RESTful_Handler::init(int, char**) { return 0; }

int JSON_RESTful_Handler::fini() { return 0; }

JSON_RESTful_Handler::CONCURRENCY JSON_RESTful_Handler::concurrency() const { return INHERITED; }
