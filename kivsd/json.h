// JSON for --json: objects keep the order in which their members are added.
#ifndef KIVSD_JSON_H
#define KIVSD_JSON_H

#include <nlohmann/json.hpp>

#include "json_forward.h"

#endif
