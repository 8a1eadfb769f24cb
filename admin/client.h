// The front-end client library (client/: queues, request documents,
// requests, names, passwords, the runtime session) seen from the admin tool:
// its names are used in the tool's namespace as they stand.
#pragma once

#include "failure.h"

namespace tarnwick::client {}
namespace tarnwick::admin {
using namespace tarnwick::client;
}
