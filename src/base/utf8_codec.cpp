#include "base/utf8_codec.h"

#include <QByteArray>
#include <QString>
#include <QTextCodec>

namespace ov {
namespace {

class Utf8Codec : public QTextCodec {
 public:
  QByteArray name() const override { return QByteArrayLiteral("UTF-8"); }
  int mibEnum() const override { return kMibUtf8; }

 protected:
  QString convertToUnicode(const char *text, int size, ConverterState * /*state*/) const override {
    return QString::fromUtf8(text, size);
  }

  QByteArray convertFromUnicode(const QChar *text, int size,
                                ConverterState * /*state*/) const override {
    return QString::fromRawData(text, size).toUtf8();
  }

 private:
  static constexpr int kMibUtf8 = 106;  // the number IANA assigned to UTF-8
};

}  // namespace

void UseUtf8ForNames() {
  // Owned by Qt, which deletes every codec when the process ends.
  QTextCodec::setCodecForLocale(new Utf8Codec);
}

}  // namespace ov
