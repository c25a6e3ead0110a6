// What the product prints, caught inside the process: the two streams are replaced, the descriptors
// below them stay what they are, for libFuzzer and the sanitizers.
#pragma once

#include <string>

namespace ov::fuzz {

struct Printed {
  std::string out;
  std::string err;
};

/// Sets up the product's own streams and its message handler, and catches both streams from then
/// on. Later calls do nothing.
void CatchPrinted();

/// What was printed since the last call.
Printed TakePrinted();

/// Fails unless this and nothing else was printed since the last look.
void ExpectPrinted(const std::string &out, const std::string &err);

}  // namespace ov::fuzz
