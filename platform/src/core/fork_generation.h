// How many fork()s lie between the first process of this line and the
// calling one: state made by an ancestor (a lock, a published status line,
// a random generator's seed) is recognised as inherited by comparing the
// count it was made at with the current one. Reading it costs no system
// call, unlike comparing process IDs.
//
// Thread-safe.
#pragma once

namespace tarnwick::rt {

unsigned fork_generation();

}  // namespace tarnwick::rt
