#include "check/try_script.h"

#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QSet>
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
    if (!(settings_.*monitor_.isOn)()) {
      answer_.hindrance = QStringLiteral("`%1` is off").arg(monitor_.key);
    }
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
          QStringLiteral("is no executable file: its monitor sees nothing. Install the script with "
                         "mode 0755"));
      return false;
    }
    return true;
  }

  // Returns false if the program could not run to its end.
  bool TryWord(const QString &word) {
    answer_.trials.append(Try(answer_.path, word));
    const ScriptTrial &trial = answer_.trials.last();
    if (trial.run.end == ScriptRun::End::kNotStarted) {
      QFile script(answer_.path);
      const bool hasCarriageReturn =
          script.open(QIODevice::ReadOnly) && script.readLine().contains('\r');
      Add("script-not-executable",
          QStringLiteral("does not start: its monitor sees nothing. ") +
              (hasCarriageReturn
                   ? QStringLiteral("Its first line ends with a carriage return: save it with the "
                                    "line ends of Unix")
                   : QStringLiteral("Its first line must name an interpreter that exists, as in "
                                    "#!/bin/sh")));
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

  // As the record holds it.
  void AddEvent(const EventRecord &event) {
    const auto text = [](std::string_view bytes) {
      return QString::fromUtf8(bytes.data(), static_cast<int>(bytes.size()));
    };
    answer_.events.append(text(EventIdText(event)) + QLatin1Char(' ') +
                          text(EventValuesText(event)));
  }

  void AddEvent(const char *id, const QString &values) {
    if (settings_.isAllowed(id)) {
      AddEvent(MakeEventRecord(id, values.toUtf8().constData()));
    }
  }

  bool HasFailed() const {
    const ScriptRun &run = answer_.trials.last().run;
    return run.end != ScriptRun::End::kExited || run.exitStatus != 0;
  }

  void AddFailure(const QString &effect) {
    Add("script-unusable", QStringLiteral("prints nothing and ends so: %1. Its monitor %2")
                               .arg(EndText(answer_.trials.last().run), effect));
  }

  void RunPerf() {
    if (!TryWord({})) {
      return;
    }
    const PerfResource resources[] = {{"cpu", kCpuThresholdReached, settings_.cpuThreshold()},
                                      {"mem", kMemThresholdReached, settings_.memThreshold()},
                                      {"disk", kDiskThresholdReached, settings_.diskThreshold()}};
    QStringList missing = {QStringLiteral("cpu"), QStringLiteral("mem"), QStringLiteral("disk")};
    QSet<QString> tooLong;
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
      // The last reading of a resource holds.
      if (isReached && settings_.isAllowed(found->event) && !PerfValuesText(value, threshold)) {
        tooLong.insert(reading->resource);
      } else {
        tooLong.remove(reading->resource);
      }
    }
    if (!missing.isEmpty()) {
      Add("script-unusable",
          QStringLiteral("gives no number for %1: a reading that never came counts as 0. It must "
                         "print the lines cpu=, mem= and disk= with percents such as 12.5")
              .arg(missing.join(QLatin1String(", "))));
    }
    if (!tooLong.isEmpty()) {
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
    for (const EventRecord &event : g_eventQueue.TakeAll()) {
      AddEvent(event);
    }
  }

  void RunUsb() {
    if (!TryWord({})) {
      return;
    }
    const QSet<QString> devices = UsbDevMon::DevicesFrom(Last().run.output);
    for (const QString &line : Last().lines) {
      Last().meanings.append(devices.contains(line) ? QStringLiteral("a device")
                                                    : QStringLiteral("passed over"));
    }
    for (const QString &device : devices) {
      AddEvent(kUsbDevicePresent, device);
    }
    answer_.events.sort();
    if (HasFailed() && devices.isEmpty()) {
      AddFailure(QStringLiteral("sees no device"));
    }
  }

  void RunSignin() {
    if (answer_.hindrance.isEmpty() && !IsProcessRunning(QLatin1String(kSigninClient))) {
      answer_.hindrance = QStringLiteral("no process %1 runs").arg(QLatin1String(kSigninClient));
    }
    if (!TryWord(QStringLiteral("user"))) {
      return;
    }
    const QString user = VmwSigninMon::UsernameFrom(Last().run.output);
    for (int i = 0; i < Last().lines.size(); ++i) {
      Last().meanings.append(QStringLiteral("the user is ") + Quoted(user));
    }
    bool hasFailed = HasFailed();
    for (const auto &[word, event] :
         {std::pair("success", kSigninSucceeded), std::pair("error", kSigninFailed)}) {
      if (!TryWord(QLatin1String(word))) {
        return;
      }
      hasFailed = hasFailed && HasFailed();
      for (int i = 0; i < Last().lines.size(); ++i) {
        Last().meanings.append(QStringLiteral("any text at all means yes"));
      }
      if (!Last().run.output.isEmpty()) {
        AddEvent(event, user);
      }
    }
    const QString success = answer_.trials[1].run.output;
    if (hasFailed && success.isEmpty() && Last().run.output.isEmpty()) {
      AddFailure(QStringLiteral("sees no sign-in"));
    } else if (!user.isEmpty() && user == answer_.trials[0].run.output) {
      Add("script-unusable",
          QStringLiteral(
              "prints no signin:USER:DOMAIN:OUTCOME for \"user\": the whole answer becomes "
              "the values of the event, line feed included"));
    } else if (!success.isEmpty() && success == Last().run.output) {
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
  const QString but =
      answer.hindrance.isEmpty() ? QString() : QStringLiteral(", but ") + answer.hindrance;
  for (const QString &event : answer.events) {
    text += (QLatin1String(but.isEmpty() ? "raises " : "would raise ") + Printable(event) + but +
             QLatin1Char('\n'))
                .toUtf8();
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
          {QStringLiteral("events"), QJsonArray::fromStringList(answer.events)},
          {QStringLiteral("hindrance"), answer.hindrance}};
}

}  // namespace ov
