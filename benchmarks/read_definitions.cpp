// Reads a file as text, drops its lines, and prints the processor time that this took, in
// microseconds.
#include <QFile>
#include <QTextStream>
#include <cstdio>
#include <cstdlib>
#include <ctime>

int main(int argc, char *argv[]) {
  const std::clock_t start = std::clock();
  QFile file(QString::fromLocal8Bit(argv[argc - 1]));
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    return EXIT_FAILURE;
  }
  QString text = QString::fromUtf8(file.readAll());
  QTextStream stream(&text, QIODevice::ReadOnly);
  QString line;
  while (stream.readLineInto(&line)) {
  }
  std::printf("%ld\n", std::clock() - start);
}
