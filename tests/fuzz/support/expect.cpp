#include "support/expect.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace ov::fuzz {

void Disagree(const char *what, const std::string &got, const std::string &wanted) {
  // Not through the stream, which may lead to what the harness captures.
  dprintf(STDERR_FILENO, "%s differs\n  got    %s\n  wanted %s\n", what, got.c_str(),
          wanted.c_str());
  std::raise(SIGABRT);  // also where a harness stands in for abort
  std::abort();
}

std::string Shown(std::string_view text) {
  std::string shown = "'";
  for (const char byte : text) {
    if (byte >= ' ' && byte <= '~' && byte != '\\') {
      shown += byte;
    } else {
      std::array<char, 5> hex{};
      std::snprintf(hex.data(), hex.size(), "\\x%02X", static_cast<unsigned char>(byte));
      shown += hex.data();
    }
  }
  return shown + "'";
}

}  // namespace ov::fuzz
