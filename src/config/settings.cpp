#include "config/settings.h"

#include <sys/stat.h>

#include <QByteArray>
#include <QFileInfo>
#include <QSettings>
#include <QStringList>
#include <QVariant>
#include <cstdio>

namespace ov {

void Settings::parseSettings() {
  applyEntries(readSettingsFile());
  dumpSettings();
}

void Settings::applyEntries(const QHash<QString, QString> &entries) {
  rawValues_ = entries;
  ApplyInteger("facility", facility_);
  ApplyText("formatString", formatString_);
  ApplyAllowed();
  ApplyProtocol();
  ApplyText("host", host_);
  ApplyInteger("port", port_);
  ApplyInteger("usbDevMon", usbDevMon_);
  ApplyInteger("vmwSigninMon", vmwSigninMon_);
  ApplyInteger("agentConnMon", agentConnMon_);
  ApplyInteger("perfMon", perfMon_);
  ApplyInteger("cpuThreshold", cpuThreshold_);
  ApplyInteger("memThreshold", memThreshold_);
  ApplyInteger("diskThreshold", diskThreshold_);
}

bool Settings::settingsChanged() {
  struct stat status {};
  if (stat(kSettingsPath, &status) != 0) {
    return false;
  }
  if (status.st_mtime == lastModified_) {
    return false;
  }
  lastModified_ = status.st_mtime;
  return readSettingsFile() != rawValues_;
}

QHash<QString, QString> Settings::readSettingsFile(const QString &path) {
  QHash<QString, QString> values;
  // Anyone may create a missing file: a pipe must not block the service.
  if (!QFileInfo(path).isFile()) {
    return values;
  }
  const QSettings file(path, QSettings::IniFormat);
  const QStringList keys = file.allKeys();
  for (const QString &key : keys) {
    values.insert(key, file.value(key).toString());
  }
  return values;
}

void Settings::dumpSettings() const {
  for (auto entry = rawValues_.cbegin(); entry != rawValues_.cend(); ++entry) {
    std::printf("%s: %s\n", entry.key().toUtf8().constData(), entry.value().toUtf8().constData());
  }
}

bool Settings::isAllowed(std::string_view id) const {
  return allowedEvents_.contains(QString::fromLatin1(id.data(), static_cast<int>(id.size())));
}

std::optional<std::int32_t> Settings::integerFrom(const QString &text) {
  bool isInteger = false;
  const std::int32_t value = text.toInt(&isInteger, 10);
  return isInteger ? std::optional(value) : std::nullopt;
}

void Settings::ApplyInteger(const char *key, std::int32_t &field) const {
  const auto entry = rawValues_.constFind(QLatin1String(key));
  if (entry == rawValues_.cend()) {
    return;
  }
  field = integerFrom(*entry).value_or(field);
}

void Settings::ApplyText(const char *key, QString &field) const {
  const auto entry = rawValues_.constFind(QLatin1String(key));
  if (entry != rawValues_.cend()) {
    field = *entry;
  }
}

void Settings::ApplyAllowed() {
  const auto entry = rawValues_.constFind(QStringLiteral("allowed"));
  if (entry == rawValues_.cend()) {
    return;
  }
  allowedEvents_.clear();
  const QStringList ids = entry->split(QLatin1Char(' '));
  for (const QString &id : ids) {
    allowedEvents_.insert(id.trimmed());
  }
}

void Settings::ApplyProtocol() {
  const auto entry = rawValues_.constFind(QStringLiteral("protocol"));
  if (entry != rawValues_.cend()) {
    protocol_ = *entry == QLatin1String("syslog-tcp") ? Protocol::kTcp : Protocol::kUdp;
  }
}

}  // namespace ov
