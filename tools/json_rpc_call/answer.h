#pragma once

#include "json_rpc/json_rpc_object.h"
#include "tools/json_rpc_call/attempts.h"
#include "tools/json_rpc_call/output.h"

/// Prints the answer of a call: its result, or its error object.
Outcome print_answer(const JSON_RPC_Object* answer, const Output_Style& style);
