#include "support/steps.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QString>
#include <QtGlobal>
#include <array>
#include <string>

#include "monitors/agent_conn_mon.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"
#include "support/files.h"
#include "support/polling.h"

namespace ov {
namespace {

constexpr char kPipe[] = "/tmp/steps";

UniqueFd OpenPipe() {
  mkfifo(kPipe, 0666);
  return UniqueFd(open(kPipe, O_RDWR | O_NONBLOCK | O_CLOEXEC));
}

// Called on the monitors' threads. Gives the connection monitor, which runs no script, a new
// status for its next check.
void TakeDebugMessage(QtMsgType type, const QMessageLogContext & /*context*/,
                      const QString &message) {
  EXPECT_EQ(type, QtDebugMsg);
  if (message.startsWith(QLatin1String("AgentConnMon"))) {
    static int status = 0;  // only one connection monitor runs at a time
    WriteFile(kAgentStatusPath, "\n\nstatus " + std::to_string(++status) + "\n");
    const UniqueFd pipe = OpenPipe();
    EXPECT_EQ(write(pipe.Get(), "\n", 1), 1);
  }
}

}  // namespace

Steps::Steps() : folder_("/tmp/bin"), pipe_(OpenPipe()) {
  // Each run prints something else than the last.
  WriteScript(kUsbScriptPath, "echo >/tmp/steps; echo usb; echo $$");
  WriteScript(kPerfScriptPath, "echo >/tmp/steps; echo cpu=$(($$ % 100)); echo mem=60");
  WriteScript(kSigninScriptPath, "echo >/tmp/steps; echo x:alice:CORP:$1");
  WriteScript("/tmp/bin/pgrep", "echo >/tmp/steps; echo 1234");
  WriteFile(kAgentStatusPath, "\n\nCONNECTED\n");
  qInstallMessageHandler(TakeDebugMessage);
}

Steps::~Steps() { qInstallMessageHandler(nullptr); }

void Steps::Forget() {
  std::array<char, 256> bytes{};
  while (read(pipe_.Get(), bytes.data(), bytes.size()) > 0) {
  }
}

bool Steps::Await(int count) {
  return Eventually([&] {
    char byte = 0;
    while (count > 0 && read(pipe_.Get(), &byte, 1) == 1) {
      --count;
    }
    return count == 0;
  });
}

}  // namespace ov
