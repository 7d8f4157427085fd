#include "json_rpc/json_restful_channel.h"

JSON_RESTful_Channel::~JSON_RESTful_Channel() = default;

ACE_Lock* JSON_RESTful_Channel::mutex() { return nullptr; }
