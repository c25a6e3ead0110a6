#include "service/processing_thread.h"

#include <malloc.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cerrno>
#include <cstdio>

#include "base/unique_fd.h"
#include "config/settings.h"
#include "event/event_definition.h"
#include "event/event_queue.h"
#include "event/event_record.h"
#include "output/forwarding.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "service/event_catalogue.h"

namespace ov {
namespace {

pthread_t processingThread;

// Shared as a plain byte: the thread clears it when it starts and reads it after each pass; the
// run cycle sets it to end the thread.
bool stopRequested = false;

// Each thread posts it after it clears the flag: a stop that is requested earlier would be lost.
sem_t flagCleared;

void Sleep(std::chrono::seconds pause) { sleep(static_cast<unsigned>(pause.count())); }

QStringList FormatAndPrint(const EventList &events, const Forwarding &forwarding,
                           const HostIdentity &host) {
  LineContext context{forwarding.facility, host, {}};
  QStringList lines;
  for (const EventRecord &event : events) {
    const EventDefinition definition = g_eventCatalogue.FindOrInsert(EventIdText(event));
    lines.append(forwarding.formatter.FormatEvent(event, definition, context));
    std::printf(">>> %s\n", lines.constLast().toUtf8().constData());
  }
  return lines;
}

// Each try takes the collector of the present cycle: a held batch goes to a new collector.
UniqueFd ConnectToCollector() {
  while (true) {
    UniqueFd connection = g_forwarding.Get().tcpSender.Connect();
    if (connection.IsOpen()) {
      return connection;
    }
    // Does not look at the stop flag: the batch waits until a collector accepts it.
    Sleep(kReconnectPause);
  }
}

void SendLines(const QStringList &lines, const Forwarding &forwarding) {
  if (forwarding.protocol == Protocol::kTcp) {
    const UniqueFd connection = ConnectToCollector();
    for (const QString &line : lines) {
      TcpSyslogSender::Send(connection.Get(), line);
    }
  } else {
    for (const QString &line : lines) {
      forwarding.udpSender.Send(line);
    }
  }
}

// Returns false if the queue is empty.
bool DeliverQueuedEvents(const Forwarding &forwarding, const HostIdentity &host) {
  const EventList events = g_eventQueue.TakeAll();
  if (events.empty()) {
    return false;
  }
  std::puts("> Process events");
  SendLines(FormatAndPrint(events, forwarding, host), forwarding);
  return true;
}

void RunPass() {
  const Forwarding forwarding = g_forwarding.Get();
  const HostIdentity host = LookUpHostIdentity();
  if (host.address.isEmpty()) {
    std::puts("> Client address is unknown");
  } else if (DeliverQueuedEvents(forwarding, host)) {
    malloc_trim(0);  // gives the memory of the batch back to the system
  }
}

void *ProcessingThread(void * /*unused*/) {
  stopRequested = false;
  sem_post(&flagCleared);
  while (!stopRequested) {
    RunPass();
    Sleep(kPassPause);
  }
  return nullptr;
}

}  // namespace

int StartProcessingThread() {
  sem_init(&flagCleared, 0, 0);
  const int error = pthread_create(&processingThread, nullptr, ProcessingThread, nullptr);
  if (error == 0) {
    while (sem_wait(&flagCleared) != 0) {
    }
  }
  sem_destroy(&flagCleared);
  return error;
}

void StopProcessingThread() {
  stopRequested = true;
  const int error = pthread_join(processingThread, nullptr);
  if (error != 0) {
    errno = error;
    std::perror("pthread_join");
  }
}

}  // namespace ov
