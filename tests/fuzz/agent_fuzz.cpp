// The secure connection monitor over several states of the agent's file. Sections: whether "net02"
// and "net03" are allowed and by how many bytes the first line is lengthened (as in "11 0"), then
// for each check the file; an empty section for one that is missing.
#include "monitors/agent_conn_mon.h"
#include "support.h"

namespace ov::fuzz {
namespace {

Events EventsOf(const QString &status, bool connectedAllowed, bool failureAllowed) {
  if (status == QLatin1String("CONNECTING...")) {
    return {};
  }
  if (status == QLatin1String("CONNECTED")) {
    return connectedAllowed ? Events{EventOf("net02", {})} : Events{};
  }
  if (status == QLatin1String("CERTIFICATE WARNING")) {
    return connectedAllowed ? Events{EventOf("net02", status)} : Events{};
  }
  return failureAllowed ? Events{EventOf("net03", status)} : Events{};
}

}  // namespace

void Run(const Sections &sections) {
  Options options(sections[0]);
  const bool connected = options.Flag();
  const bool failure = options.Flag();
  const QByteArray padding = Padding(options.Number());
  AgentConnMon monitor(connected, failure);
  monitor.Init();
  QString last;
  for (std::size_t i = 1; i < sections.size(); ++i) {
    const QByteArray file = sections[i].isEmpty() ? "" : padding + sections[i];
    PlaceFile(kAgentStatusPath, !file.isEmpty(), file);
    monitor.Check();
    const QString status = FileLines(file).value(2).trimmed();
    ExpectSame("events", TakeEvents(),
               status == last ? Events{} : EventsOf(status, connected, failure));
    ExpectPrinted("", "AgentConnMon::ReadAgentStatus:  " + Shown(status).toUtf8() + "\n");
    last = status;
  }
}

}  // namespace ov::fuzz
