// Calls on a misaligned stack (i386 only), as a 32-bit host that keeps its
// stack aligned to 4 bytes makes them: a stand-in for LoadedPlugin that hands
// out, for each entry point, a thunk that calls it with esp % 16 equal to the
// misalignment at the call (0 is the ordinary alignment).
#pragma once

#include <set>

namespace misaligned_call {

// Later calls through a thunk use this misalignment (0, 4, 8 or 12); the
// functions handed out so far are forgotten.
void reset(int misalignment);

// A LoadedPlugin::StandIn: the thunk of `function`, given a new one on first
// sight. Throws std::length_error when every thunk is taken.
const void* stand_in(const void* function);

// The functions handed out since the last reset.
std::set<const void*> functions();

// Calls made through the thunks since the last reset.
int calls();

}  // namespace misaligned_call
