#include "monitors/monitor.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "event/event_queue.h"
#include "event/event_record.h"

namespace ov {
namespace {

void Report(FILE *stream, const char *format, const QString &name) {
  std::fprintf(stream, format, name.toUtf8().constData());
}

void ReportError(const char *format, const QString &name, const char *call, int error) {
  Report(stderr, format, name);
  errno = error;
  std::perror(call);
}

void WaitFor(sem_t &semaphore) {
  while (sem_wait(&semaphore) != 0) {
  }
}

}  // namespace

Monitor::Monitor(const QString &name, std::chrono::seconds period) : name_(name), period_(period) {
  sem_init(&progress_, 0, 0);
}

Monitor::~Monitor() { sem_destroy(&progress_); }

void Monitor::Start() {
  if (thread_ != 0) {
    Report(stdout, "%s is already running\n", name_);
    return;
  }
  const int error = pthread_create(&thread_, nullptr, Run, this);
  if (error == 0) {
    WaitFor(progress_);
  } else {
    thread_ = 0;
    ReportError("Error starting monitor: %s\n", name_, "pthread_create", error);
  }
  // Printed after a failure too.
  Report(stdout, "Starting monitor: %s\n", name_);
}

void Monitor::Stop() {
  if (thread_ == 0) {
    Report(stdout, "%s is not running\n", name_);
    return;
  }
  stopRequest_ = 1;
  Report(stdout, "Stopping monitor: %s\n", name_);
  const int error = pthread_join(thread_, nullptr);
  if (error != 0) {
    ReportError("Error stopping monitor: %s\n", name_, "pthread_join", error);
  }
  WaitFor(progress_);  // a thread that could not be joined must not outlive the monitor either
  thread_ = 0;
}

void Monitor::StopIfRunning() {
  if (thread_ != 0) {
    Stop();
  }
}

void Monitor::RaiseEvent(const char *id) { g_eventQueue.Push(MakeEventRecord(id, nullptr)); }

void Monitor::RaiseEvent(const char *id, const QByteArray &values) {
  g_eventQueue.Push(MakeEventRecord(id, values.constData()));
}

void *Monitor::Run(void *monitor) {
  auto &self = *static_cast<Monitor *>(monitor);
  self.stopRequest_ = 0;
  sem_post(&self.progress_);
  self.Init();
  while (self.stopRequest_ == 0) {
    self.Check();
    sleep(static_cast<unsigned>(self.period_.count()));
  }
  sem_post(&self.progress_);
  return nullptr;
}

}  // namespace ov
