#include "support/programs.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "support/files.h"

namespace ov {

void WriteScript(const std::string &path, std::string_view lines) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  WriteFile(path, "#!/bin/sh\n" + std::string(lines));
  std::filesystem::permissions(path, std::filesystem::perms(0755));
}

void WritePrintingScript(const std::string &path, std::string_view output) {
  WriteFile(path + ".output", output);
  WriteScript(path, "exec cat '" + path + ".output'\n");
}

void PutFirstInPath(const std::string &folder) {
  setenv("PATH", (folder + ":" + std::getenv("PATH")).c_str(), 1);
}

IdleProcess::IdleProcess(const std::string &name) {
  std::string path = "/tmp/" + name;
  std::filesystem::copy_file("/bin/sleep", path, std::filesystem::copy_options::overwrite_existing);
  std::string duration = "1000";
  const std::array<char *, 3> arguments{path.data(), duration.data(), nullptr};
  EXPECT_EQ(posix_spawn(&process_, path.c_str(), nullptr, nullptr, arguments.data(), environ), 0);
}

IdleProcess::~IdleProcess() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

}  // namespace ov
