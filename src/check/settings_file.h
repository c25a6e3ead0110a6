// The lines of an INI file, as Qt's reader cuts them. Which value each key has in the end is a
// question for Settings; this tells where it comes from.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <vector>

#include "check/finding.h"
#include "config/settings.h"

namespace ov {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

/// One line, which goes on over a line feed between double quotes or behind a backslash. Offsets
/// count the bytes of the file.
struct SettingsLine {
  int start = 0;           ///< the offset of its first byte
  QByteArray text;         ///< without the comment at its end
  QByteArray cut;          ///< the comment at its end, from the semicolon on
  bool isSection = false;  ///< a line in brackets
  QString section;         ///< null in [General] and before any section
  QString key;             ///< without the section; empty without "="
  int valueStart = 0;      ///< the offset of the value; 0 without "="

  QByteArray Value() const { return text.mid(valueStart - start); }
  /// The index in the value of the first comma outside double quotes, or -1.
  int UnquotedComma() const;
  QString KeyWithSection() const {
    return section.isNull() ? key : section + QLatin1Char('/') + key;
  }
};

QList<SettingsLine> CutSettings(const QByteArray &contents);

/// A settings file and what the service makes of it.
class SettingsFile {
 public:
  explicit SettingsFile(const QString &path);

  const QString &Path() const { return path_; }
  bool Exists() const { return exists_; }
  bool IsReadable() const { return isReadable_; }
  const QByteArray &Contents() const { return contents_; }
  const QList<SettingsLine> &Lines() const { return lines_; }
  /// The settings after a start with this file.
  const Settings &InForce() const { return settings_; }
  /// Every key, with its section, and its value as the service reads it.
  const QHash<QString, QString> &Entries() const { return entries_; }

  /// The line from which the service takes the key, or null.
  const SettingsLine *LineOf(const QString &key) const;

  /// The place of an offset.
  Place PlaceAt(int offset) const;
  /// The place of the key's value, or of the file if the key is missing.
  Place PlaceOfKey(const QString &key) const;
  /// The place of a word in the key's value, or of the value if it is not written so.
  Place PlaceInKey(const QString &key, const QByteArray &word) const;

 private:
  QString path_;
  bool exists_;
  bool isReadable_ = false;
  QByteArray contents_;
  std::vector<int> lineStarts_;  // offsets
  QList<SettingsLine> lines_;
  QHash<QString, int> lineOfKey_;  // the index of a key's last line
  QHash<QString, QString> entries_;
  Settings settings_;
};

}  // namespace ov
