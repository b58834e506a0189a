// Declares the JSON type for headers. Sources that use it include json.h.
#ifndef KIVSD_JSON_FORWARD_H
#define KIVSD_JSON_FORWARD_H

#include <nlohmann/json_fwd.hpp>

namespace kivsd {

using Json = nlohmann::ordered_json;

}  // namespace kivsd

#endif
