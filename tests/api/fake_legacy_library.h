// A stand-in for the older reporting library: a shared library that defines its 38 functions
// and records every call with its arguments, in order. Every bool function answers false.
#pragma once

#include <string>
#include <vector>

namespace qz_fake_legacy {

// The calls so far, each as Name(arg, arg, ...), and notes, in the order they happened.
std::vector<std::string> Calls();
void Clear();
// Adds a line of the caller's own to the same log (to see what happened between calls).
void Note(const std::string& line);

}  // namespace qz_fake_legacy
