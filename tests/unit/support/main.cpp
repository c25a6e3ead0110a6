// Runs the tests, each from the same start. Refuses to run outside scripts/sandbox: the tests write
// to the event logger's fixed paths, and change the interfaces and the name of the machine.
#include <ftw.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "base/standard_streams.h"
#include "config/settings.h"
#include "event/event_queue.h"
#include "output/forwarding.h"
#include "service/event_catalogue.h"

namespace ov {
namespace {

bool IsInSandbox() { return getpid() == 1 && access("/run/kept", F_OK) == 0; }

void SetEnvironment(const std::string &path) {
  setenv("PATH", path.c_str(), 1);
  setenv("LC_ALL", "C", 1);
  setenv("TZ", "UTC", 1);
  tzset();
}

// Removes what is in the folder. FTW_MOUNT keeps to the file system of the sandbox: a checkout
// below the folder is mounted there, and stays as it is.
void Empty(const char *folder) {
  const auto removeEntry = [](const char *path, const struct stat * /*status*/, int /*type*/,
                              FTW *place) {
    if (place->level > 0) {
      std::remove(path);
    }
    return 0;
  };
  constexpr int kOpenFolders = 16;
  nftw(folder, removeEntry, kOpenFolders, FTW_DEPTH | FTW_MOUNT | FTW_PHYS);
}

class SameStart : public testing::EmptyTestEventListener {
 public:
  SameStart() { SetEnvironment(path_); }

  void OnTestStart(const testing::TestInfo & /*test*/) override {
    for (const char *folder : {"/tmp", "/usr/lib/orvan/ov-event-logger"}) {
      Empty(folder);
    }
    // Orphans of earlier tests become children of this process.
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    SetEnvironment(path_);
    SetUpStandardStreams();
    std::signal(SIGPIPE, SIG_DFL);
    g_settings = Settings();
    g_eventCatalogue.Replace({});
    g_eventQueue.TakeAll();
    g_forwarding.Change([](Forwarding &forwarding) { forwarding = Forwarding(); });
  }

 private:
  const std::string path_ = std::getenv("PATH");
};

}  // namespace
}  // namespace ov

int main(int argc, char *argv[]) {
  if (!ov::IsInSandbox()) {
    std::fputs("Run this with scripts/sandbox --keep-command.\n", stderr);
    return EXIT_FAILURE;
  }
  // Whatever starts the tests may leave descriptors open, which scripts must not see.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  testing::InitGoogleMock(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new ov::SameStart);
  return RUN_ALL_TESTS();
}
