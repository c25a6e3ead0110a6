// Reads the definitions file line by line, with the reader that the catalogue uses, does nothing
// with the lines, and prints the nanoseconds of processor time on standard error.
#include <QFile>
#include <QString>

#include "base/names_codec.h"
#include "base/text_file.h"
#include "service/event_catalogue.h"
#include "stopwatch.h"

int main() {
  ov::UseUtf8ForNames();
  PrintNanoseconds([] {
    QFile file{QLatin1String(ov::kSystemDefinitionsPath)};
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
      return;
    }
    QString line;
    while (ov::ReadLine(file, line)) {
    }
  });
}
