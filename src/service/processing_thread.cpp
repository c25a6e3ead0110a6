#include "service/processing_thread.h"

#include <malloc.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <QString>
#include <QStringList>
#include <cerrno>
#include <cstdio>
#include <mutex>

#include "config/settings.h"
#include "event/event_record.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "output/udp_syslog_sender.h"
#include "service/event_catalogue.h"
#include "service/event_queue.h"

namespace ov {
namespace {

pthread_t processingThread;

// Shared as a plain byte: the thread clears it when it starts and reads it after each pass, the
// run cycle sets it to end the thread.
bool stopRequested = false;

// Posted by each thread once it has cleared the flag. A stop requested before that would be lost.
sem_t &FlagCleared() {
  static sem_t semaphore;
  static const int initialised = sem_init(&semaphore, 0, 0);
  static_cast<void>(initialised);
  return semaphore;
}

void Sleep(std::chrono::seconds pause) { sleep(static_cast<unsigned>(pause.count())); }

// What the lines of the pass that now begins have in common.
LineContext BeginPass() {
  // After a failed accept two threads pass side by side, and both replace the two texts.
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  RefreshHostIdentity(g_hostAddressText, g_hostNameText);
  return {g_settings.facility(), g_hostNameText, g_hostAddressText, {}};
}

QStringList FormatAndPrint(const EventList &events, LineContext &context) {
  QStringList lines;
  for (const EventRecord &event : events) {
    const std::string_view id = EventIdText(event);
    const EventDefinition &definition =
        DefinitionOf(g_eventCatalogue, QString::fromLatin1(id.data(), static_cast<int>(id.size())));
    lines.append(g_messageFormatter.FormatEvent(event, definition, context));
    std::printf(">>> %s\n", lines.constLast().toUtf8().constData());
  }
  return lines;
}

void SendOverTcp(const QStringList &lines) {
  // Does not look at the stop flag: the batch is held until the collector can be reached.
  while (!g_tcpSyslogSender.Connect()) {
    Sleep(kReconnectPause);
  }
  for (const QString &line : lines) {
    g_tcpSyslogSender.Send(line);
  }
  g_tcpSyslogSender.Close();
}

void SendOverUdp(const QStringList &lines) {
  for (const QString &line : lines) {
    g_udpSyslogSender.Send(line);
  }
}

void SendLines(const QStringList &lines) {
  switch (g_settings.protocol()) {
    case kProtocolUdp:
      SendOverUdp(lines);
      break;
    case kProtocolTcp:
      SendOverTcp(lines);
      break;
    default:
      break;
  }
}

// Returns whether there were any.
bool DeliverQueuedEvents(LineContext &context) {
  const EventList events = g_eventQueue.TakeAll();
  if (events.empty()) {
    return false;
  }
  std::puts("> Process events");
  SendLines(FormatAndPrint(events, context));
  return true;
}

void RunPass() {
  LineContext context = BeginPass();
  if (context.hostAddress.isEmpty()) {
    std::puts("> Client address is unknown");
    return;
  }
  if (DeliverQueuedEvents(context)) {
    malloc_trim(0);  // gives what the batch took back to the system
  }
}

void *ProcessingThread(void * /*unused*/) {
  stopRequested = false;
  sem_post(&FlagCleared());
  while (!stopRequested) {
    RunPass();
    Sleep(kPassPause);
  }
  return nullptr;
}

}  // namespace

int StartProcessingThread() {
  const int error = pthread_create(&processingThread, nullptr, ProcessingThread, nullptr);
  if (error == 0) {
    while (sem_wait(&FlagCleared()) != 0) {
    }
  }
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
