// The sign-in monitor over several checks. Sections: whether success and error are allowed (as in
// "11"), then for each check what pgrep prints and what the script prints for the user, for success
// and for error.
#include <array>

#include "monitors/vmw_signin_mon.h"
#include "support/events.h"
#include "support/expect.h"
#include "support/printed.h"
#include "support/programs.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

using Command = std::vector<std::string>;
using Commands = std::vector<Command>;

const Command kPgrep = {"pgrep", "horizon-client"};

Command ScriptFor(const char *word) {
  return {"/usr/lib/orvan/ov-event-logger/vmw-signin-status.sh", word};
}

// What the programs print during one check.
struct Outputs {
  std::string_view pgrep;
  std::string_view user;
  std::string_view success;
  std::string_view error;

  [[nodiscard]] std::string_view Of(const Command &command) const {
    const std::string &word = command.back();
    return command == kPgrep ? pgrep : word == "user" ? user : word == "success" ? success : error;
  }
};

std::string UserIn(const std::string &text) {
  std::vector<std::string_view> fields;
  for (const std::string_view piece : Split(text, ':')) {
    if (!piece.empty()) {
      fields.push_back(piece);
    }
  }
  if (fields.size() != 4) {
    return text;
  }
  std::string user(fields[1]);
  if (!Trimmed(fields[2]).empty()) {
    user.append("/").append(fields[2]);
  }
  return user;
}

// What one check does.
struct Outcome {
  Commands commands;
  Events events;
  std::string diagnostics;
};

// The monitor's rule.
class Model {
 public:
  Model(bool successAllowed, bool errorAllowed)
      : successAllowed_(successAllowed), errorAllowed_(errorAllowed) {}

  Outcome Check(const Outputs &outputs) {
    Outcome outcome;
    outcome.commands.push_back(kPgrep);
    if (OutputText(outputs.pgrep).empty()) {
      reported_ = false;
      return outcome;
    }
    if (reported_ || (!successAllowed_ && !errorAllowed_)) {
      return outcome;
    }
    const std::string userText = OutputText(outputs.user);
    outcome.commands.push_back(ScriptFor("user"));
    outcome.diagnostics =
        "VmwSigninMon: check status\nVmwSigninMon::GetUsername:  " + Quoted(userText) + "\n";
    const std::string user = UserIn(userText);
    if (successAllowed_) {
      Query("success", outputs.success, EventOf("sec03", user), outcome);
    }
    if (errorAllowed_) {
      Query("error", outputs.error, EventOf("sec04", user), outcome);
    }
    return outcome;
  }

 private:
  void Query(const char *word, std::string_view output, const Events::value_type &event,
             Outcome &outcome) {
    outcome.commands.push_back(ScriptFor(word));
    if (!OutputText(output).empty()) {
      outcome.events.push_back(event);
      reported_ = true;
    }
  }

  bool successAllowed_;
  bool errorAllowed_;
  bool reported_ = false;
};

void Run(const std::vector<std::string_view> &sections) {
  Options options(sections[0]);
  const bool success = options.Flag();
  const bool error = options.Flag();
  VmwSigninMon monitor(success, error);
  Model model(success, error);
  monitor.Init();
  constexpr std::size_t kPrograms = 4;
  for (std::size_t i = 1; i + kPrograms <= sections.size(); i += kPrograms) {
    const Outputs outputs{sections[i], sections[i + 1], sections[i + 2], sections[i + 3]};
    Commands commands;
    SetAnswer([&](const Command &command) {
      commands.push_back(command);
      return std::string(outputs.Of(command));
    });
    monitor.Check();
    const Outcome outcome = model.Check(outputs);
    ExpectSame("commands", commands, outcome.commands);
    ExpectSame("events", TakeEvents(), outcome.events);
    ExpectPrinted("", outcome.diagnostics);
  }
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
