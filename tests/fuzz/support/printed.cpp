#include "support/printed.h"

#include <cstdio>
#include <utility>

#include "base/standard_streams.h"
#include "support/expect.h"

namespace ov::fuzz {
namespace {

// Never destroyed: something may print when the process ends.
Printed &Caught() {
  static auto *const caught = new Printed;
  return *caught;
}

ssize_t Append(void *text, const char *bytes, size_t size) {
  static_cast<std::string *>(text)->append(bytes, size);
  return static_cast<ssize_t>(size);
}

FILE *StreamInto(std::string &text) {
  cookie_io_functions_t functions{};
  functions.write = Append;
  return fopencookie(&text, "w", functions);
}

}  // namespace

void CatchPrinted() {
  [[maybe_unused]] static const bool done = [] {
    SetUpStandardStreams();
    stdout = StreamInto(Caught().out);
    stderr = StreamInto(Caught().err);
    return true;
  }();
}

Printed TakePrinted() {
  std::fflush(stdout);
  std::fflush(stderr);
  return std::exchange(Caught(), {});
}

void ExpectPrinted(const std::string &out, const std::string &err) {
  const Printed printed = TakePrinted();
  ExpectSame("standard output", printed.out, out);
  ExpectSame("standard error", printed.err, err);
}

}  // namespace ov::fuzz
