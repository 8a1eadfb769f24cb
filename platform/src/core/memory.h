// Runtime-side helpers around memory handles (osmem.h): other modules use them
// to hand results to the caller as a memory block.
#pragma once

#include <cstddef>
#include <string_view>

#include "global.h"

namespace tarnwick::rt {

// Allocates a block holding a copy of `bytes`; returns NOERROR or ERR_MEMORY.
STATUS alloc_block_with(std::string_view bytes, DHANDLE* ret_handle);

// The bytes of a live block (empty view for a bad handle). The view is valid
// until the block is freed or reallocated.
std::string_view block_bytes(DHANDLE handle);

}  // namespace tarnwick::rt
