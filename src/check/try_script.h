// The scripts of the monitors: what a run prints, and what the monitor makes of it.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <chrono>

#include "check/built_in_monitors.h"
#include "check/finding.h"
#include "config/settings.h"
#include "monitors/script_runner.h"

namespace ov {

/// One run, and what the monitor makes of each line.
struct ScriptTrial {
  QString word;  ///< the argument, if any
  ScriptRun run;
  std::chrono::milliseconds time{0};
  QStringList lines;
  QStringList meanings;  ///< of the lines, one each
};

struct ScriptAnswer {
  QString path;
  QList<ScriptTrial> trials;
  QStringList events;  ///< "ID VALUES", as the monitor would raise them at its first poll
  QString hindrance;   ///< why it raises none of them now; empty if it does
};

/// Runs the script as its monitor would, and adds what is wrong with it to the findings.
ScriptAnswer TryScript(const BuiltInMonitor &monitor, const Settings &settings, Findings &findings);

QByteArray AsText(const ScriptAnswer &answer);
QJsonObject AsJson(const ScriptAnswer &answer);

}  // namespace ov
