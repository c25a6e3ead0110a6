// What all built-in monitors share: a thread that looks at the machine once a period and raises
// events. A monitor belongs to the run cycle, whose thread constructs, starts, stops and destroys
// it; Init and Check run on the monitor's own thread. Raising an event reaches for the
// process-wide event queue.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstdint>

namespace ov {

/// A monitor that is not running, or one with a thread of its own.
class Monitor {
 public:
  Monitor(const Monitor &) = delete;
  Monitor &operator=(const Monitor &) = delete;

  /// Stops a monitor that still runs. By then a derived class is gone, so each of them calls
  /// StopIfRunning in its own destructor.
  virtual ~Monitor();

  /// Called once, before the first check.
  virtual void Init() = 0;
  /// Called once a period. Raises the monitor's events.
  virtual void Check() = 0;
  /// Never called; empty in every monitor.
  virtual void Reserved() = 0;

  /// Starts the thread, and says so even when that failed, which is reported on standard error.
  /// Returns once the thread can be stopped.
  void Start();

  /// Asks the thread to end and waits for that: up to one period and the time of a check.
  void Stop();

  QString Name() const { return name_; }
  std::int32_t Period() const { return period_; }  ///< seconds
  std::int32_t StopRequest() const { return stopRequest_; }
  void SetStopRequest(std::int32_t request) { stopRequest_ = request; }
  bool IsRunning() const { return thread_ != 0; }

 protected:
  /// `period` is the pause between two checks.
  Monitor(const QString &name, std::chrono::seconds period);

  /// For destructors: nothing that the thread uses may be released before it has ended.
  void StopIfRunning();

  /// Queues an event of now. The texts are cut as those of every event record.
  static void RaiseEvent(const char *id);
  static void RaiseEvent(const char *id, const QByteArray &values);

 private:
  static void *Run(void *monitor);

  QString name_;
  std::int32_t period_;
  std::int32_t stopRequest_ = 0;  // shared as a plain integer, 0 or 1
  pthread_t thread_ = 0;          // 0 while there is none
  sem_t requestCleared_;          // posted by the thread once it has cleared the stop request
  sem_t ended_;                   // posted by the thread with its last use of the monitor
};

}  // namespace ov
