#pragma once

#include <string>

#include "http/http_export.h"
#include "json_spirit/json_spirit_value.h"

// The method "rpc.discover" answers with a description of this process's methods, an OpenRPC 1.2.6
// document. Of a method from a library nothing is known but its name, unless a file tells: beside
// libNAME.so a NAME.openrpc.json, an object whose "methods" are method objects as OpenRPC has them,
// at most 1 MiB. Those of them that the library serves here take the place of the bare names; what
// its "components" hold is added to the document's, of two with one name the first. A bad file is
// logged, and the bare names stay.

namespace http {

/// Serves "rpc.discover", of what is registered now: called before the loops start, after all other
/// methods were registered. 0; -1 when a handler of that name is loaded already, or memory runs
/// out.
HTTP_EXPORT int serve_discovery(const std::string& title, const std::string& version);

/// The document. Throws std::bad_alloc.
HTTP_EXPORT json_spirit::Value openrpc_document(const std::string& title,
                                                const std::string& version);

/// The description file of a library; "" when the path has no folder, for then nobody but the
/// system's loader knows where the library is.
HTTP_EXPORT std::string description_file(const std::string& library);

}  // namespace http
