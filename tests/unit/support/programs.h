// Programs for the code under test to run or to find running.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace ov {

/// Makes an executable script of these lines for /bin/sh.
void WriteScript(const std::string &path, std::string_view lines);

/// Makes an executable script that prints exactly this.
void WritePrintingScript(const std::string &path, std::string_view output);

/// Programs are looked for in this folder first until the test ends.
void PutFirstInPath(const std::string &folder);

/// A process that does nothing but have this name, which ends with the object.
class IdleProcess {
 public:
  explicit IdleProcess(const std::string &name);
  IdleProcess(const IdleProcess &) = delete;
  IdleProcess &operator=(const IdleProcess &) = delete;
  ~IdleProcess();

 private:
  pid_t process_ = -1;
};

}  // namespace ov
