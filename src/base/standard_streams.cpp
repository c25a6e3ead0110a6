#include "base/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <cstdio>

namespace ov {
namespace {

void WriteDiagnostic(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                     const QString &message) {
  const QByteArray line = message.toUtf8() + '\n';
  // Standard error is unbuffered: one call is one write, and lines of threads do not mix.
  std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stderr);
}

// If descriptor 1 is closed, the next socket gets that number and output lines go to it.
void OpenMissingStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) == -1) {
      open("/dev/null", O_RDWR);
    }
  }
}

}  // namespace

void SetUpStandardStreams() {
  OpenMissingStreams();
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  for (const char *variable : {"QT_LOGGING_RULES", "QT_LOGGING_CONF", "QT_FATAL_WARNINGS"}) {
    qunsetenv(variable);
  }
  qInstallMessageHandler(WriteDiagnostic);
}

}  // namespace ov
