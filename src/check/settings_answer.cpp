#include "check/settings_answer.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <algorithm>

#include "check/check_settings.h"

namespace ov {
namespace {

QString AllowedText(const Settings &settings) {
  QStringList ids = settings.allowedEvents().values();
  ids.removeAll(QString());
  ids.sort();
  return ids.join(QLatin1Char(' '));
}

// In the order of SettingsKeys().
QStringList Values(const Settings &settings) {
  const auto number = [](std::int32_t value) { return QString::number(value); };
  const auto isOn = [](bool value) { return QString::number(value ? 1 : 0); };
  return {number(settings.facility()),
          settings.formatString(),
          AllowedText(settings),
          settings.protocol() == Protocol::kTcp ? QStringLiteral("syslog-tcp")
                                                : QStringLiteral("syslog-udp"),
          settings.host(),
          number(settings.port()),
          isOn(settings.usbDevMon()),
          isOn(settings.vmwSigninMon()),
          isOn(settings.agentConnMon()),
          isOn(settings.perfMon()),
          number(settings.cpuThreshold()),
          number(settings.memThreshold()),
          number(settings.diskThreshold())};
}

// Whether the file gives the key a value that the service takes.
bool IsFromFile(const SettingsFile &file, const QString &key) {
  const auto entry = file.Entries().constFind(key);
  if (entry == file.Entries().cend()) {
    return false;
  }
  return IsTextKey(key) || Settings::integerFrom(*entry);
}

}  // namespace

SettingsAnswer AnswerFor(const SettingsFile &file) {
  SettingsAnswer answer;
  QCryptographicHash hash(QCryptographicHash::Sha256);
  const QStringList values = Values(file.InForce());
  for (int i = 0; i < SettingsKeys().size(); ++i) {
    const QString &key = SettingsKeys()[i];
    answer.settings.append(
        {key, values[i], IsTextKey(key), IsFromFile(file, key) ? file.PlaceOfKey(key) : Place{}});
    hash.addData((key + QLatin1Char('=') + values[i] + QLatin1Char('\n')).toUtf8());
  }
  answer.digest = hash.result().toHex();
  return answer;
}

QByteArray AsText(const SettingsAnswer &answer) {
  QList<QByteArray> places;
  int width = 0;
  for (const SettingInForce &setting : answer.settings) {
    places.append(setting.place.line > 0
                      ? setting.place.file.toUtf8() + ':' + QByteArray::number(setting.place.line)
                      : QByteArrayLiteral("default"));
    width = std::max(width, places.last().size());
  }
  QByteArray text;
  for (int i = 0; i < places.size(); ++i) {
    const SettingInForce &setting = answer.settings[i];
    text += places[i].leftJustified(width + 2) + setting.key.toUtf8().leftJustified(15) +
            (setting.isText ? Quoted(setting.value) : setting.value).toUtf8() + '\n';
  }
  return text + "SHA-256  " + answer.digest + '\n';
}

QJsonObject AsJson(const SettingsAnswer &answer) {
  QJsonArray settings;
  for (const SettingInForce &setting : answer.settings) {
    QJsonObject object{{QStringLiteral("key"), setting.key},
                       {QStringLiteral("value"), setting.value}};
    if (setting.place.line > 0) {
      object.insert(QStringLiteral("file"), setting.place.file);
      object.insert(QStringLiteral("line"), setting.place.line);
    }
    settings.append(object);
  }
  return {{QStringLiteral("settings"), settings},
          {QStringLiteral("sha256"), QString::fromLatin1(answer.digest)}};
}

}  // namespace ov
