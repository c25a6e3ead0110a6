// The settings of the service, from its INI file. Used on the main thread only.
#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ov {

constexpr char kSettingsPath[] = "/tmp/ov-event-logger.ini";

/// How lines travel to the collector, as the key "protocol" chooses.
enum class Protocol { kUdp, kTcp };

/// Holds the value of every key. If a key is missing from the file, its last value stays in force;
/// the default counts only until a file first has the key.
class Settings {
 public:
  /// Reads the file, applies its entries and prints every one.
  void parseSettings();

  /// Applies the thirteen known keys. Ignores a number that is not a decimal integer, without a
  /// message; checks nothing else.
  void applyEntries(const QHash<QString, QString> &entries);

  /// Whether the file's contents differ from those that parseSettings read. Costs one stat while
  /// the file's modification time (whole seconds) stays the same. False if the file is missing.
  bool settingsChanged();

  /// Every key of a file with its value as text, as Qt's INI reader gives them. Empty without a
  /// regular file.
  static QHash<QString, QString> readSettingsFile(
      const QString &path = QLatin1String(kSettingsPath));

  /// The value of a key that holds a number, or nothing if it is no decimal integer.
  static std::optional<std::int32_t> integerFrom(const QString &text);

  /// Prints "<key>: <value>" for every entry last read, in no particular order.
  void dumpSettings() const;

  /// Whether events of this identifier (Latin-1) may be forwarded.
  bool isAllowed(std::string_view id) const;

  const QSet<QString> &allowedEvents() const { return allowedEvents_; }
  std::int32_t facility() const { return facility_; }  ///< syslog facility, not range-checked
  QString formatString() const { return formatString_; }
  Protocol protocol() const { return protocol_; }
  QString host() const { return host_; }
  std::int32_t port() const { return port_; }  ///< not range-checked
  bool usbDevMon() const { return usbDevMon_ > 0; }
  bool vmwSigninMon() const { return vmwSigninMon_ > 0; }
  bool agentConnMon() const { return agentConnMon_ > 0; }
  bool perfMon() const { return perfMon_ > 0; }
  std::int32_t cpuThreshold() const { return cpuThreshold_; }    ///< percent
  std::int32_t memThreshold() const { return memThreshold_; }    ///< percent
  std::int32_t diskThreshold() const { return diskThreshold_; }  ///< percent

 private:
  void ApplyInteger(const char *key, std::int32_t &field) const;
  void ApplyText(const char *key, QString &field) const;
  void ApplyAllowed();
  void ApplyProtocol();

  QHash<QString, QString> rawValues_;
  std::int64_t lastModified_ = 0;  // seconds since the epoch
  std::int32_t facility_ = 3;      // the system daemons
  QString formatString_ =
      QStringLiteral("<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])");
  QSet<QString> allowedEvents_;
  Protocol protocol_ = Protocol::kUdp;
  QString host_;
  std::int32_t port_ = 514;
  std::int32_t usbDevMon_ = 0;
  std::int32_t vmwSigninMon_ = 0;
  std::int32_t agentConnMon_ = 0;
  std::int32_t perfMon_ = 0;
  std::int32_t cpuThreshold_ = 80;
  std::int32_t memThreshold_ = 80;
  std::int32_t diskThreshold_ = 80;
};

extern Settings g_settings;

}  // namespace ov
