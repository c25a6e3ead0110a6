#include "base/names_codec.h"

#include <QByteArray>
#include <QString>
#include <QTextCodec>

namespace ov {
namespace {

// Its name and number belong to no known encoding: code that asks Qt for UTF-8 gets Qt's own codec.
class NamesCodec : public QTextCodec {
 public:
  QByteArray name() const override { return QByteArrayLiteral("names"); }
  int mibEnum() const override { return 0; }

 protected:
  QString convertToUnicode(const char *text, int size, ConverterState * /*state*/) const override {
    return QString::fromUtf8(text, size);
  }

  QByteArray convertFromUnicode(const QChar *text, int size,
                                ConverterState * /*state*/) const override {
    return QString::fromRawData(text, size).toUtf8();
  }
};

}  // namespace

void UseUtf8ForNames() {
  static QTextCodec *const codec = new NamesCodec;  // Qt owns every codec
  QTextCodec::setCodecForLocale(codec);
}

}  // namespace ov
