#include "check/try_script.h"

#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <cmath>

#include "event/built_in_events.h"
#include "event/event_queue.h"
#include "event/event_record.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"

namespace ov {
namespace {

ScriptTrial Try(const QString &path, const QString &word) {
  ScriptTrial trial;
  trial.word = word;
  QElapsedTimer timer;
  timer.start();
  trial.run = RunProgram(path, word.isEmpty() ? QStringList() : QStringList{word});
  trial.time = std::chrono::milliseconds(timer.elapsed());
  trial.lines = trial.run.output.split(QLatin1Char('\n'));
  if (trial.lines.last().isEmpty()) {
    trial.lines.removeLast();
  }
  return trial;
}

struct PerfResource {
  const char *name;
  const char *event;
  std::int32_t threshold;
};

QString EndText(const ScriptRun &run) {
  switch (run.end) {
    case ScriptRun::End::kNotStarted:
      return QStringLiteral("does not start");
    case ScriptRun::End::kKilled:
      return QStringLiteral("was ended by a signal");
    case ScriptRun::End::kTimedOut:
      return QStringLiteral("was killed after its time");
    case ScriptRun::End::kExited:
      break;
  }
  return QStringLiteral("status %1").arg(run.exitStatus);
}

class Trial {
 public:
  Trial(const BuiltInMonitor &monitor, const Settings &settings, Findings &findings)
      : monitor_(monitor), settings_(settings), findings_(findings) {
    answer_.path = monitor.scriptPath;
  }

  ScriptAnswer Run() {
    if (!CanRun()) {
      return answer_;
    }
    if (answer_.path == QLatin1String(kPerfScriptPath)) {
      RunPerf();
    } else if (answer_.path == QLatin1String(kUsbScriptPath)) {
      RunUsb();
    } else {
      RunSignin();
    }
    return answer_;
  }

 private:
  void Add(const char *cause, const QString &sentence) {
    findings_.Add(cause, {}, answer_.path + QLatin1Char(' ') + sentence, monitor_.events);
  }

  bool CanRun() {
    if (!QFile::exists(answer_.path)) {
      Add("no-script", QStringLiteral("does not exist: its monitor sees nothing. Install it, or "
                                      "switch the monitor off"));
      return false;
    }
    if (!QFileInfo(answer_.path).isFile() || access(answer_.path.toUtf8().constData(), X_OK) != 0) {
      Add("script-not-executable",
          QStringLiteral("is not executable: its monitor sees nothing. Give it mode 0755"));
      return false;
    }
    return true;
  }

  // Returns false if the program could not run to its end.
  bool TryWord(const QString &word) {
    answer_.trials.append(Try(answer_.path, word));
    const ScriptTrial &trial = answer_.trials.last();
    if (trial.run.end == ScriptRun::End::kNotStarted) {
      Add("script-not-executable",
          QStringLiteral("does not start: its monitor sees nothing. Its first line must name an "
                         "interpreter that exists, as in #!/bin/sh"));
      return false;
    }
    if (trial.run.end == ScriptRun::End::kTimedOut) {
      Add("script-slow",
          QStringLiteral("runs longer than the %1 seconds that a monitor waits: the service kills "
                         "it, and takes what it printed until then")
              .arg(kScriptTimeout.count()));
      return false;
    }
    return true;
  }

  ScriptTrial &Last() { return answer_.trials.last(); }

  void TakeRaisedEvents() {
    for (const EventRecord &event : g_eventQueue.TakeAll()) {
      const auto text = [](std::string_view bytes) {
        return QString::fromUtf8(bytes.data(), static_cast<int>(bytes.size()));
      };
      answer_.events.append(
          (text(EventIdText(event)) + QLatin1Char(' ') + text(EventValuesText(event))).trimmed());
    }
  }

  void RunPerf() {
    TryWord({});
    const PerfResource resources[] = {{"cpu", kCpuThresholdReached, settings_.cpuThreshold()},
                                      {"mem", kMemThresholdReached, settings_.memThreshold()},
                                      {"disk", kDiskThresholdReached, settings_.diskThreshold()}};
    QStringList missing = {QStringLiteral("cpu"), QStringLiteral("mem"), QStringLiteral("disk")};
    bool isTooLong = false;
    for (const QString &line : Last().lines) {
      const std::optional<PerfReading> reading = PerfReadingFrom(line);
      const PerfResource *found = nullptr;
      for (const PerfResource &resource : resources) {
        if (reading && reading->resource == QLatin1String(resource.name)) {
          found = &resource;
        }
      }
      if (found == nullptr) {
        Last().meanings.append(QStringLiteral("passed over"));
        continue;
      }
      bool isNumber = false;
      const float value = line.section(QLatin1Char('='), 1).trimmed().toFloat(&isNumber);
      if (isNumber) {
        missing.removeAll(reading->resource);
      }
      const auto threshold = static_cast<float>(found->threshold);
      const bool isReached = value >= threshold;
      Last().meanings.append(
          QStringLiteral("%1 is %2 %, %3 the threshold of %4 %")
              .arg(reading->resource, QString::number(static_cast<double>(value), 'f', 2),
                   isReached ? QStringLiteral("which reaches") : QStringLiteral("below"),
                   QString::number(found->threshold)));
      isTooLong = isTooLong || (isReached && settings_.isAllowed(found->event) &&
                                !PerfValuesText(value, threshold));
    }
    if (!missing.isEmpty()) {
      Add("script-unusable",
          QStringLiteral("gives no number for %1: a reading that never came counts as 0. It must "
                         "print the lines cpu=, mem= and disk= with percents such as 12.5")
              .arg(missing.join(QLatin1String(", "))));
    }
    if (isTooLong) {
      Add("reading-too-long",
          QStringLiteral(
              "gives a reading that makes a text of over %1 characters, such as \"100.00% "
              "> 90.00%\": it ends the service. Let it print at most 99.99")
              .arg(static_cast<int>(kPerfValuesLimit)));
      return;
    }
    PerfMon monitor(
        settings_.isAllowed(kCpuThresholdReached), settings_.isAllowed(kMemThresholdReached),
        settings_.isAllowed(kDiskThresholdReached), static_cast<float>(settings_.cpuThreshold()),
        static_cast<float>(settings_.memThreshold()),
        static_cast<float>(settings_.diskThreshold()));
    monitor.TakeIn(Last().run.output);
    TakeRaisedEvents();
  }

  void RunUsb() {
    TryWord({});
    const QSet<QString> devices = UsbDevMon::DevicesFrom(Last().run.output);
    for (const QString &line : Last().lines) {
      const bool isDevice = devices.contains(line);
      Last().meanings.append(isDevice ? QStringLiteral("a device") : QStringLiteral("passed over"));
      if (isDevice && settings_.isAllowed(kUsbDevicePresent)) {
        answer_.events.append(QLatin1String(kUsbDevicePresent) + QLatin1Char(' ') + line);
      }
    }
    if (Last().run.end == ScriptRun::End::kExited && Last().run.exitStatus != 0 &&
        devices.isEmpty()) {
      Add("script-unusable",
          QStringLiteral("fails with status %1 and prints nothing: its monitor sees no device")
              .arg(Last().run.exitStatus));
    }
    answer_.events.removeDuplicates();
  }

  void RunSignin() {
    if (!TryWord(QStringLiteral("user"))) {
      return;
    }
    const QString user = VmwSigninMon::UsernameFrom(Last().run.output);
    for (int i = 0; i < Last().lines.size(); ++i) {
      Last().meanings.append(QStringLiteral("the user is ") + Quoted(user));
    }
    for (const auto &[word, event] :
         {std::pair("success", kSigninSucceeded), std::pair("error", kSigninFailed)}) {
      if (!TryWord(QLatin1String(word))) {
        return;
      }
      const bool isReported = !Last().run.output.isEmpty();
      for (int i = 0; i < Last().lines.size(); ++i) {
        Last().meanings.append(QStringLiteral("any text at all means yes"));
      }
      if (isReported && settings_.isAllowed(event)) {
        answer_.events.append((QLatin1String(event) + QLatin1Char(' ') + user).trimmed());
      }
    }
    const QString success = answer_.trials[1].run.output;
    if (!success.isEmpty() && success == answer_.trials[2].run.output) {
      Add("script-unusable",
          QStringLiteral("prints the same for \"success\" and \"error\": its monitor raises both "
                         "events. It must print nothing for what did not happen"));
    }
  }

  const BuiltInMonitor &monitor_;
  const Settings &settings_;
  Findings &findings_;
  ScriptAnswer answer_;
};

}  // namespace

ScriptAnswer TryScript(const BuiltInMonitor &monitor, const Settings &settings,
                       Findings &findings) {
  return Trial(monitor, settings, findings).Run();
}

QByteArray AsText(const ScriptAnswer &answer) {
  QByteArray text;
  for (const ScriptTrial &trial : answer.trials) {
    text += QStringLiteral("%1: %2, %3 ms\n")
                .arg((answer.path + QLatin1Char(' ') + trial.word).trimmed(), EndText(trial.run),
                     QString::number(trial.time.count()))
                .toUtf8();
    for (int i = 0; i < trial.lines.size(); ++i) {
      text += QStringLiteral("  %1  %2\n")
                  .arg(Quoted(trial.lines[i]), trial.meanings.value(i))
                  .toUtf8();
    }
  }
  for (const QString &event : answer.events) {
    text += "raises " + event.toUtf8() + '\n';
  }
  return text + (answer.events.isEmpty() ? "raises nothing with the settings in force\n" : "");
}

QJsonObject AsJson(const ScriptAnswer &answer) {
  QJsonArray trials;
  for (const ScriptTrial &trial : answer.trials) {
    QJsonArray lines;
    for (int i = 0; i < trial.lines.size(); ++i) {
      lines.append(QJsonObject{{QStringLiteral("text"), trial.lines[i]},
                               {QStringLiteral("meaning"), trial.meanings.value(i)}});
    }
    trials.append(
        QJsonObject{{QStringLiteral("word"), trial.word},
                    {QStringLiteral("end"), EndText(trial.run)},
                    {QStringLiteral("milliseconds"), static_cast<qint64>(trial.time.count())},
                    {QStringLiteral("lines"), lines}});
  }
  return {{QStringLiteral("path"), answer.path},
          {QStringLiteral("runs"), trials},
          {QStringLiteral("events"), QJsonArray::fromStringList(answer.events)}};
}

}  // namespace ov
