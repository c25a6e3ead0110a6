#include "service/run_cycle.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "config/settings.h"
#include "event/service_socket.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "output/udp_syslog_sender.h"
#include "service/cycle_monitors.h"
#include "service/event_catalogue.h"
#include "service/event_intake.h"
#include "service/event_queue.h"
#include "service/processing_thread.h"

namespace ov {
namespace {

enum class CycleEnd { kSettingsChanged, kAcceptFailed };

// Without running destructors: a processing thread of an earlier cycle may still use the
// process-wide objects. Nothing is lost by it, every line has been written.
[[noreturn]] void EndProcess(UniqueFd &listener) {
  listener.Reset();
  std::_Exit(EXIT_FAILURE);
}

[[noreturn]] void EndProcess(UniqueFd &listener, const char *failedCall) {
  std::perror(failedCall);
  EndProcess(listener);
}

UniqueFd OpenServiceSocket() {
  UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener.IsOpen()) {
    EndProcess(listener, "socket");
  }
  const int flags = fcntl(listener.Get(), F_GETFL);
  if (flags < 0) {
    EndProcess(listener, "fcntl F_GETFL");
  }
  if (fcntl(listener.Get(), F_SETFL, flags | O_NONBLOCK) < 0) {
    EndProcess(listener, "fcntl F_SETFL");
  }
  std::puts("listening...");
  // A file left over from a service that did not end cleanly is not removed: the bind fails.
  const sockaddr_un address = ServiceSocketAddress();
  if (bind(listener.Get(), AsSocketAddress(address), sizeof(address)) < 0) {
    EndProcess(listener, "bind");
  }
  if (listen(listener.Get(), kListenBacklog) < 0) {
    EndProcess(listener, "listen");
  }
  std::printf("Server is listening on %s\n", kServiceSocketPath);
  return listener;
}

void OpenSender() {
  switch (g_settings.protocol()) {
    case kProtocolUdp:
      g_udpSyslogSender.Init(g_settings.host(), g_settings.port());
      break;
    case kProtocolTcp:
      g_tcpSyslogSender.Init(g_settings.host(), g_settings.port());
      break;
    default:
      break;
  }
}

void CloseSender() {
  switch (g_settings.protocol()) {
    case kProtocolUdp:
      g_udpSyslogSender.Close();
      break;
    case kProtocolTcp:
      g_tcpSyslogSender.Close();
      break;
    default:
      break;
  }
}

void ApplySettings() {
  g_settings.parseSettings();
  g_messageFormatter.SetTemplate(g_settings.formatString());
  OpenSender();
}

// Takes in one client, if one waits. On failure errno says why.
bool TakeInOneClient(const UniqueFd &listener) {
  const UniqueFd connection(
      accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!connection.IsOpen()) {
    return false;
  }
  HandleConnection(connection.Get(), g_eventCatalogue, g_settings, g_eventQueue);
  return true;
}

CycleEnd ServeClients(const UniqueFd &listener) {
  while (true) {
    if (TakeInOneClient(listener)) {
      continue;
    }
    if (errno != EAGAIN) {
      std::perror("accept");
      return CycleEnd::kAcceptFailed;
    }
    if (g_settings.settingsChanged()) {
      return CycleEnd::kSettingsChanged;
    }
    usleep(kAcceptPause.count());
  }
}

// Clients that wait already believe that their event was sent. Shut down for reading, the socket
// refuses new ones, who try again, and still hands out those.
void TakeInWaitingClients(const UniqueFd &listener) {
  shutdown(listener.Get(), SHUT_RD);
  while (TakeInOneClient(listener) || errno == ECONNABORTED || errno == EINTR) {
  }
  // With none left, a socket that is shut down reports one or the other.
  if (errno != EAGAIN && errno != EINVAL) {
    std::perror("accept");
  }
}

}  // namespace

void RunCycle() {
  std::puts("Starting event server...");
  UniqueFd listener = OpenServiceSocket();
  ApplySettings();
  CycleMonitors monitors(g_settings);
  const int error = StartProcessingThread();
  if (error != 0) {
    std::fprintf(stderr, "Error creating event processing thread: %d\n", error);
    EndProcess(listener);
  }

  // After a failed accept only the monitors are stopped, by their destructor: the next cycle runs
  // beside this one's processing thread.
  if (ServeClients(listener) == CycleEnd::kSettingsChanged) {
    StopProcessingThread();
    monitors.StopEnabled();
    CloseSender();
    TakeInWaitingClients(listener);
  }
  listener.Reset();
  unlink(kServiceSocketPath);
}

}  // namespace ov
