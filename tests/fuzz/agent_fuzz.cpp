// The secure connection monitor over several states of the agent's file. Sections: whether "net02"
// and "net03" are allowed and by how many bytes the first line is lengthened (as in "11 0"), then
// for each check the file; an empty section for one that is missing.
#include "monitors/agent_conn_mon.h"
#include "support/events.h"
#include "support/expect.h"
#include "support/files.h"
#include "support/printed.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

constexpr char kPath[] = "/tmp/ovwsagentstatus";

std::string StatusIn(std::string_view file) {
  constexpr std::size_t kLine = 3;
  const std::vector<std::string> lines = FileLines(file);
  return lines.size() < kLine ? "" : std::string(Trimmed(lines[kLine - 1]));
}

// The monitor's rule.
class Model {
 public:
  Model(bool connectedAllowed, bool failureAllowed)
      : connectedAllowed_(connectedAllowed), failureAllowed_(failureAllowed) {}

  Events Check(const std::string &status) {
    const bool changed = status != last_;
    last_ = status;
    if (!changed || status == "CONNECTING...") {
      return {};
    }
    if (status == "CONNECTED") {
      return connectedAllowed_ ? Events{EventOf("net02", "")} : Events{};
    }
    if (status == "CERTIFICATE WARNING") {
      return connectedAllowed_ ? Events{EventOf("net02", status)} : Events{};
    }
    return failureAllowed_ ? Events{EventOf("net03", status)} : Events{};
  }

 private:
  bool connectedAllowed_;
  bool failureAllowed_;
  std::string last_;
};

void Run(const std::vector<std::string_view> &sections) {
  Options options(sections[0]);
  const bool connected = options.Flag();
  const bool failure = options.Flag();
  const std::string padding = Padding(options.Number());
  AgentConnMon monitor(connected, failure);
  Model model(connected, failure);
  monitor.Init();
  for (std::size_t i = 1; i < sections.size(); ++i) {
    const std::string file = sections[i].empty() ? "" : padding + std::string(sections[i]);
    if (file.empty()) {
      RemoveFile(kPath);
    } else {
      WriteFile(kPath, file);
    }
    monitor.Check();
    const std::string status = StatusIn(file);
    ExpectSame("events", TakeEvents(), model.Check(status));
    ExpectPrinted("", "AgentConnMon::ReadAgentStatus:  " + Quoted(status) + "\n");
  }
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
