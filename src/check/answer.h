// The answer to one question: what the service makes of its files, this machine and an event.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace ov {

/// The statuses with which the program ends.
constexpr int kNoComplaint = 0;  ///< no error or warning
constexpr int kComplaint = 1;    ///< or an event that is not forwarded
constexpr int kWrongUsage = 2;   ///< or a named file that cannot be read

struct Question {
  QString settingsPath;
  QString definitionsPath;
  bool isOffline = false;
  bool wantsJson = false;
  QList<QByteArray> words;  ///< the command and its arguments; none: check everything
};

/// Prints the answer and returns the status.
int PrintAnswer(const Question &question);

}  // namespace ov
