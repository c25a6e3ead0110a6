#include "app/command_line.h"

#include <linux/close_range.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "app/client_sender.h"
#include "base/names_codec.h"
#include "base/out_of_memory.h"
#include "base/standard_streams.h"
#include "service/event_catalogue.h"
#include "service/run_cycle.h"

namespace ov {
namespace {

int FailWithUsage(const char *program) {
  std::fprintf(stderr, "Usage: %s -e EVENT_ID [VALUES]\n", program);
  std::fprintf(stderr, "   or: %s -s\n", program);
  std::fputs("\n", stderr);
  std::fputs(" -s \tStart the event service\n", stderr);
  std::fputs(" -e \tSend an event. VALUES is a comma separated list of values.\n", stderr);
  return EXIT_FAILURE;
}

int FailWithInvalidParameters(const char *program) {
  std::fputs("Invalid parameters\n", stderr);
  return FailWithUsage(program);
}

// The scripts of the monitors get nothing of what whoever started the service left open.
void CloseInheritedDescriptorsOnExec() {
  close_range(STDERR_FILENO + 1, std::numeric_limits<unsigned>::max(), CLOSE_RANGE_CLOEXEC);
}

[[noreturn]] void RunService() {
  // One heap for all threads: they rarely meet in it, and each further one would stay resident.
  mallopt(M_ARENA_MAX, 1);
  CloseInheritedDescriptorsOnExec();
  UseUtf8ForNames();
  std::puts("Starting service...");
  g_eventCatalogue = loadEventDefinitions();
  while (true) {
    RunCycle();
  }
}

}  // namespace

int RunCommandLine(int argc, char *argv[]) {
  EndWhenOutOfMemory();
  SetUpStandardStreams();
  if (argc < 2) {
    return FailWithUsage(argc > 0 ? argv[0] : "");
  }
  const std::string_view option = argv[1];
  if (option == "-s") {
    if (argc != 2) {
      return FailWithInvalidParameters(argv[0]);
    }
    RunService();
  }
  if (option != "-e") {
    std::fprintf(stderr, "Unknown option: %s\n", argv[1]);
    return FailWithUsage(argv[0]);
  }
  if (argc != 3 && argc != 4) {
    return FailWithInvalidParameters(argv[0]);
  }
  SendEvent(argv[2], argc == 4 ? argv[3] : nullptr);
  return EXIT_SUCCESS;
}

}  // namespace ov
