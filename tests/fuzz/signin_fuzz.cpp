// The sign-in monitor over several checks. Sections: whether success and error are allowed (as in
// "11"), then for each check what pgrep prints and what the script prints for the user, for success
// and for error.
#include "monitors/vmw_signin_mon.h"
#include "support.h"

namespace ov::fuzz {
namespace {

QString UserIn(const QString &text) {
  const QStringList fields = text.split(QLatin1Char(':'), Qt::SkipEmptyParts);
  if (fields.size() != 4) {
    return text;
  }
  return fields[2].trimmed().isEmpty() ? fields[1] : fields[1] + QLatin1Char('/') + fields[2];
}

}  // namespace

void Run(const Sections &sections) {
  constexpr std::size_t kPrograms = 4;
  Options options(sections[0]);
  const bool successAllowed = options.Flag();
  const bool errorAllowed = options.Flag();
  VmwSigninMon monitor(successAllowed, errorAllowed);
  monitor.Init();
  bool isReported = false;
  for (std::size_t i = 1; i + kPrograms <= sections.size(); i += kPrograms) {
    QStringList commands;
    SetAnswer([&](const QStringList &command) {
      commands.append(command.join(QLatin1Char(' ')));
      const QString &word = command.constLast();
      return sections[i + (word == QLatin1String("user")      ? 1U
                           : word == QLatin1String("success") ? 2U
                           : word == QLatin1String("error")   ? 3U
                                                              : 0U)];
    });
    monitor.Check();

    QStringList wantedCommands{QStringLiteral("pgrep horizon-client")};
    Events wanted;
    QByteArray diagnostics;
    const bool isRunning = !OutputText(sections[i]).isEmpty();
    isReported = isReported && isRunning;
    if (isRunning && !isReported && (successAllowed || errorAllowed)) {
      const QString text = OutputText(sections[i + 1]);
      const auto query = [&](const char *word, const char *event, std::size_t section) {
        wantedCommands.append(QLatin1String(kSigninScriptPath) + QLatin1Char(' ') +
                              QLatin1String(word));
        if (event != nullptr && !OutputText(sections[section]).isEmpty()) {
          wanted.append(EventOf(event, UserIn(text)));
        }
      };
      diagnostics =
          "VmwSigninMon: check status\nVmwSigninMon::GetUsername:  " + Shown(text).toUtf8() + "\n";
      query("user", nullptr, i + 1);
      if (successAllowed) {
        query("success", "sec03", i + 2);
      }
      if (errorAllowed) {
        query("error", "sec04", i + 3);
      }
      isReported = !wanted.isEmpty();
    }
    ExpectSame("commands", commands, wantedCommands);
    ExpectSame("events", TakeEvents(), wanted);
    ExpectPrinted("", diagnostics);
  }
}

}  // namespace ov::fuzz
