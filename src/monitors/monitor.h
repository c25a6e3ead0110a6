// What all built-in monitors share: a thread that looks at the machine once a period and raises
// events. The run cycle constructs, starts and destroys a monitor; the thread that ends a cycle
// stops it. Init and Check run on the monitor's own thread. A raised event goes to the process-wide
// queue.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstdint>

namespace ov {

/// A monitor, with or without a running thread.
class Monitor {
 public:
  Monitor(const Monitor &) = delete;
  Monitor &operator=(const Monitor &) = delete;

  /// The thread must have ended: the members of the derived class are gone by now. So each derived
  /// class calls StopIfRunning in its own destructor.
  virtual ~Monitor();

  /// Called once, before the first check.
  virtual void Init() = 0;
  /// Called once a period. Raises the monitor's events.
  virtual void Check() = 0;
  /// Never called; empty in every monitor.
  virtual void Reserved() = 0;

  /// Starts the thread and returns when the thread can be stopped. Reports a failure on standard
  /// error, and prints that the monitor starts even then.
  void Start();

  /// Asks the thread to end and waits for that: up to one period and the time of a check.
  void Stop();

 protected:
  /// `period` is the pause between two checks.
  Monitor(const QString &name, std::chrono::seconds period);

  void StopIfRunning();

  /// Queues an event with the present time. MakeEventRecord cuts its texts.
  static void RaiseEvent(const char *id);
  static void RaiseEvent(const char *id, const QByteArray &values);

 private:
  static void *Run(void *monitor);

  const QString name_;
  const std::chrono::seconds period_;
  std::int32_t stopRequest_ = 0;  // shared as a plain integer, 0 or 1
  pthread_t thread_ = 0;          // 0 while there is none
  sem_t progress_;  // the thread posts it when it clears the stop request and when it ends
};

}  // namespace ov
