#include "service/run_cycle.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "config/settings.h"
#include "event/built_in_events.h"
#include "event/service_socket.h"
#include "monitors/agent_conn_mon.h"
#include "monitors/monitor.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"
#include "output/forwarding.h"
#include "service/processing_thread.h"

namespace ov {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

enum class CycleEnd { kSettingsChanged, kAcceptFailed };

// Runs no destructors: a processing thread of an earlier cycle may still use the process-wide
// objects.
[[noreturn]] void EndProcess() { std::_Exit(EXIT_FAILURE); }

[[noreturn]] void EndProcess(const char *failedCall) {
  std::perror(failedCall);
  EndProcess();
}

UniqueFd OpenServiceSocket() {
  UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener.IsOpen()) {
    EndProcess("socket");
  }
  const int flags = fcntl(listener.Get(), F_GETFL);
  if (flags < 0) {
    EndProcess("fcntl F_GETFL");
  }
  if (fcntl(listener.Get(), F_SETFL, flags | O_NONBLOCK) < 0) {
    EndProcess("fcntl F_SETFL");
  }
  std::puts("listening...");
  // Does not remove the file of a service that a signal ended: the bind fails.
  const sockaddr_un address = ServiceSocketAddress();
  if (bind(listener.Get(), AsSocketAddress(address), sizeof(address)) < 0) {
    EndProcess("bind");
  }
  if (listen(listener.Get(), kListenBacklog) < 0) {
    EndProcess("listen");
  }
  std::printf("Server is listening on %s\n", kServiceSocketPath);
  return listener;
}

void ApplySettings() {
  g_settings.parseSettings();
  g_forwarding.Change([](Forwarding &forwarding) {
    forwarding.facility = g_settings.facility();
    forwarding.formatter.SetTemplate(g_settings.formatString());
    forwarding.protocol = g_settings.protocol();
    if (g_settings.protocol() == Protocol::kTcp) {
      forwarding.tcpSender.Init(g_settings.host(), g_settings.port());
    } else {
      forwarding.udpSender.Init(g_settings.host(), g_settings.port());
    }
  });
}

CycleEnd ServeClients(const UniqueFd &listener, EventIntake &intake) {
  Clock::time_point nextLook = Clock::now();
  while (true) {
    const int error = intake.TakeInClient(listener.Get());
    if (error == 0) {
      continue;
    }
    if (error != EAGAIN) {
      errno = error;
      std::perror("accept");
      return CycleEnd::kAcceptFailed;
    }
    const Clock::time_point now = Clock::now();
    if (now >= nextLook) {
      if (g_settings.settingsChanged()) {
        return CycleEnd::kSettingsChanged;
      }
      nextLook = now + kAcceptPause;
    }
    intake.WaitForClient(listener.Get(), std::chrono::ceil<milliseconds>(nextLook - now));
  }
}

// What a cycle that ends has to stop.
struct EndingCycle {
  int listener;
  const std::vector<Monitor *> &enabledMonitors;
};

// Waits for the threads of the cycle: for ever while a TCP collector refuses its connection.
void *StopThreads(void *endingCycle) {
  const auto &cycle = *static_cast<const EndingCycle *>(endingCycle);
  StopProcessingThread();
  for (Monitor *monitor : cycle.enabledMonitors) {
    monitor->Stop();
  }
  g_forwarding.Change([](Forwarding &forwarding) { forwarding.udpSender.Close(); });
  // The socket refuses new clients, who try again, and still hands out those that wait: they
  // believe that their event is sent.
  shutdown(cycle.listener, SHUT_RD);
  return nullptr;
}

// Returns when the listener is shut down and no client waits any more, or accept fails. Before
// that, a failed accept ends nothing: the other threads may need hours to end.
void TakeInLastClients(const UniqueFd &listener, EventIntake &intake) {
  constexpr milliseconds kNoLimit{-1};
  int lastError = EAGAIN;
  bool isOpen = true;
  while (true) {
    const int error = intake.TakeInClient(listener.Get());
    if (error == 0) {
      continue;
    }
    if (error != EAGAIN && error != lastError) {
      errno = error;
      std::perror("accept");
    }
    lastError = error;
    if (!isOpen) {
      return;
    }
    if (error != EAGAIN) {
      sleep(static_cast<unsigned>(kAcceptPause.count()));
    }
    isOpen = intake.WaitForClient(listener.Get(), kNoLimit);
  }
}

// Stops the threads of the cycle, and takes in clients meanwhile.
void EndCycle(const UniqueFd &listener, EventIntake &intake,
              const std::vector<Monitor *> &enabledMonitors) {
  EndingCycle cycle{listener.Get(), enabledMonitors};
  pthread_t thread = 0;
  const bool hasThread = pthread_create(&thread, nullptr, StopThreads, &cycle) == 0;
  if (!hasThread) {
    StopThreads(&cycle);
  }
  TakeInLastClients(listener, intake);
  if (hasThread) {
    pthread_join(thread, nullptr);
  }
}

}  // namespace

void RunCycle(EventIntake &intake) {
  std::puts("Starting event server...");
  UniqueFd listener = OpenServiceSocket();
  ApplySettings();

  std::vector<Monitor *> enabledMonitors;
  const auto startIf = [&enabledMonitors](bool isEnabled, Monitor &monitor) {
    if (isEnabled) {
      monitor.Start();
      enabledMonitors.push_back(&monitor);
    }
  };
  const auto isAllowed = [](const char *id) { return g_settings.isAllowed(id); };
  UsbDevMon usbDevMon(isAllowed(kUsbDevicePresent), isAllowed(kUsbDeviceAdded),
                      isAllowed(kUsbDeviceRemoved));
  startIf(g_settings.usbDevMon(), usbDevMon);
  VmwSigninMon vmwSigninMon(isAllowed(kSigninSucceeded), isAllowed(kSigninFailed));
  startIf(g_settings.vmwSigninMon(), vmwSigninMon);
  AgentConnMon agentConnMon(isAllowed(kAgentConnected), isAllowed(kAgentFailed));
  startIf(g_settings.agentConnMon(), agentConnMon);
  PerfMon perfMon(isAllowed(kCpuThresholdReached), isAllowed(kMemThresholdReached),
                  isAllowed(kDiskThresholdReached), static_cast<float>(g_settings.cpuThreshold()),
                  static_cast<float>(g_settings.memThreshold()),
                  static_cast<float>(g_settings.diskThreshold()));
  startIf(g_settings.perfMon(), perfMon);

  const int error = StartProcessingThread();
  if (error != 0) {
    std::fprintf(stderr, "Error creating event processing thread: %d\n", error);
    EndProcess();
  }

  // After a failed accept only the monitors are stopped, by their destructors: the next cycle runs
  // beside this one's processing thread.
  if (ServeClients(listener, intake) == CycleEnd::kSettingsChanged) {
    EndCycle(listener, intake, enabledMonitors);
  }
  listener.Reset();
  unlink(kServiceSocketPath);
}

}  // namespace ov
