#include "support/programs.h"

#include <utility>

#include "monitors/child_process.h"
#include "support/text.h"

namespace ov {
namespace fuzz {
namespace {

Answer &CurrentAnswer() {
  static Answer answer;
  return answer;
}

// What the program started last will print.
std::string &PendingOutput() {
  static std::string output;
  return output;
}

}  // namespace

void SetAnswer(Answer answer) { CurrentAnswer() = std::move(answer); }

std::string OutputText(std::string_view output) { return Decoded(UpToNul(output)); }

}  // namespace fuzz

ChildProcess::ChildProcess(const QString &program, const QStringList &arguments) {
  std::vector<std::string> command{fuzz::Utf8(program)};
  for (const QString &argument : arguments) {
    command.push_back(fuzz::Utf8(argument));
  }
  fuzz::PendingOutput() = fuzz::CurrentAnswer()(command);
}

ChildProcess::~ChildProcess() { pid_ = 0; }

QByteArray ChildProcess::ReadUntilEnd(std::chrono::milliseconds /*timeout*/) {
  return QByteArray::fromStdString(fuzz::PendingOutput());
}

}  // namespace ov
