#include "check/check_command.h"

#include <getopt.h>

#include <QFile>
#include <QFileInfo>
#include <cstdio>

#include "base/names_codec.h"
#include "check/answer.h"
#include "check/built_in_monitors.h"
#include "check/check_settings.h"
#include "check/finding.h"
#include "config/settings.h"
#include "service/event_catalogue.h"

namespace ov {
namespace {

constexpr char kUsage[] =
    "Usage: ov-event-check [OPTION]...                    check everything\n"
    "  or:  ov-event-check [OPTION]... event ID [VALUES]  what becomes of this event\n"
    "  or:  ov-event-check [OPTION]... settings [KEY]     the settings, or one\n"
    "  or:  ov-event-check [OPTION]... script NAME        run a script as its monitor\n"
    "Says what ov-event-logger makes of its files, this machine and an event, and\n"
    "why. It changes nothing and needs no running service.\n"
    "\n"
    "  --settings FILE     instead of /tmp/ov-event-logger.ini\n"
    "  --definitions FILE  instead of /usr/lib/orvan/ov-event-logger/ov-event-def.csv\n"
    "  --offline           ask nothing of this machine\n"
    "  --json              print one JSON document\n"
    "  --explain CAUSE     explain a cause, the word in brackets behind a finding\n"
    "  --help              print this help\n"
    "  --version           print the version\n"
    "\n"
    "Status: 0 without an error or a warning, 1 with some or with an event that is\n"
    "not forwarded, 2 for a wrong usage or a named file that cannot be read.\n";

int FailWithUsage(const QByteArray &complaint) {
  std::fprintf(stderr, "ov-event-check: %s\nTry 'ov-event-check --help'.\n", complaint.constData());
  return kWrongUsage;
}

// The page of docs/ANSWERS.md about a cause.
int Explain(const QString &name) {
  if (FindCause(name) == nullptr) {
    QStringList names;
    for (const Cause &cause : kCauses) {
      names.append(QLatin1String(cause.name));
    }
    const QString meant = ClosestTo(name, names);
    return FailWithUsage("there is no cause " + Quoted(name).toUtf8() +
                         (meant.isEmpty() ? QByteArray() : "; is it " + meant.toUtf8() + "?"));
  }
  QFile answers(QStringLiteral(":/ANSWERS.md"));
  answers.open(QIODevice::ReadOnly);
  const QByteArray text = answers.readAll();
  const QByteArray heading = "\n### " + name.toUtf8() + '\n';
  const int start = text.indexOf(heading) + 1;
  const int end = text.indexOf("\n#", start + heading.size() - 2);
  std::fputs((text.mid(start, end < 0 ? -1 : end - start).trimmed() + '\n').constData(), stdout);
  return kNoComplaint;
}

QByteArray ComplaintAboutKey(const QString &key) {
  if (SettingsKeys().contains(key)) {
    return {};
  }
  const QString meant = ClosestTo(key, SettingsKeys());
  return "there is no key " + Quoted(key).toUtf8() +
         (meant.isEmpty() ? QByteArray() : "; is it " + meant.toUtf8() + "?");
}

// What is wrong with the words behind the options, or nothing.
QByteArray ComplaintAbout(const Question &question) {
  const QList<QByteArray> &words = question.words;
  const QByteArray command = words.value(0);
  if (words.isEmpty() || (command == "settings" && words.size() == 1) ||
      (command == "event" && (words.size() == 2 || words.size() == 3))) {
    return {};
  }
  if (command == "script" && question.isOffline) {
    return "script runs on this machine, and --offline asks nothing of it";
  }
  if (command == "script" && words.size() == 2) {
    return FindMonitorOfScript(QString::fromUtf8(words[1])) != nullptr
               ? QByteArray()
               : "there is no script \"" + words[1] + "\" of a monitor; there are " +
                     ScriptNames().join(QLatin1String(", ")).toUtf8();
  }
  if (command == "event") {
    return "event takes an identifier and at most one text of values";
  }
  if (command == "settings" && words.size() == 2) {
    return ComplaintAboutKey(QString::fromUtf8(words[1]));
  }
  if (command == "settings") {
    return "settings takes at most one key";
  }
  return command == "script" ? QByteArray("script takes the name of a script")
                             : "there is no command \"" + command + '"';
}

void DropMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                 const QString & /*message*/) {}

bool IsReadable(const QString &path) {
  QFile file(path);
  return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly);
}

}  // namespace

int RunCheckCommand(int argc, char *argv[]) {
  UseUtf8ForNames();
  qInstallMessageHandler(DropMessage);  // Qt's own about odd keys

  enum Option { kSettings = 1, kDefinitions, kOffline, kJson, kExplain, kHelp, kVersion };
  constexpr option kOptions[] = {{"settings", required_argument, nullptr, kSettings},
                                 {"definitions", required_argument, nullptr, kDefinitions},
                                 {"offline", no_argument, nullptr, kOffline},
                                 {"json", no_argument, nullptr, kJson},
                                 {"explain", required_argument, nullptr, kExplain},
                                 {"help", no_argument, nullptr, kHelp},
                                 {"version", no_argument, nullptr, kVersion},
                                 {nullptr, 0, nullptr, 0}};
  const char *const found = FindDefinitionsFile();
  Question question;
  question.settingsPath = QLatin1String(kSettingsPath);
  question.definitionsPath = QLatin1String(found == nullptr ? kSystemDefinitionsPath : found);
  QStringList named;
  int chosen = 0;
  // "+": what follows the command is its own, such as values that begin with a minus.
  while ((chosen = getopt_long(argc, argv, "+", kOptions, nullptr)) != -1) {
    const QString argument = optarg == nullptr ? QString() : QString::fromUtf8(optarg);
    switch (chosen) {
      case kSettings:
        question.settingsPath = argument;
        named.append(argument);
        break;
      case kDefinitions:
        question.definitionsPath = argument;
        named.append(argument);
        break;
      case kOffline:
        question.isOffline = true;
        break;
      case kJson:
        question.wantsJson = true;
        break;
      case kExplain:
        return Explain(argument);
      case kHelp:
        std::fputs(kUsage, stdout);
        return kNoComplaint;
      case kVersion:
        std::puts("ov-event-check " OV_VERSION);
        return kNoComplaint;
      default:
        std::fputs("Try 'ov-event-check --help'.\n", stderr);
        return kWrongUsage;
    }
  }
  for (int i = optind; i < argc; ++i) {
    question.words.append(argv[i]);
  }
  const QByteArray complaint = ComplaintAbout(question);
  if (!complaint.isEmpty()) {
    return FailWithUsage(complaint);
  }
  for (const QString &path : qAsConst(named)) {
    if (!IsReadable(path)) {
      return FailWithUsage("the file " + path.toUtf8() + " cannot be read");
    }
  }
  return PrintAnswer(question);
}

}  // namespace ov
