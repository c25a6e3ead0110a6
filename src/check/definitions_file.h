// The lines of a definitions file, and what the service makes of each.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include "check/finding.h"
#include "event/event_definition.h"

namespace ov {

struct DefinitionsLine {
  int number;  ///< from 1
  QString text;
  QStringList columns;  ///< none for a comment

  bool IsDefinition() const;
  const QString &Id() const { return columns[0]; }
  const QString &SeverityName() const { return columns[3]; }
};

class DefinitionsFile {
 public:
  explicit DefinitionsFile(const QString &path);

  const QString &Path() const { return path_; }
  bool Exists() const { return exists_; }
  /// Whether it is a regular file that this user may read.
  bool IsReadable() const { return isReadable_; }
  const QList<DefinitionsLine> &Lines() const { return lines_; }
  const QStringList &Ids() const { return ids_; }

  /// The line that defines the event, or null.
  const DefinitionsLine *LineOf(const QString &id) const;
  /// The place of a column, from 0, or of the line's end if it has fewer.
  Place PlaceOf(const DefinitionsLine &line, int column = 0) const;
  /// The identifier that was probably meant by an undefined one, with the same digits: "sys05" is
  /// not meant by "sys06". Empty if there is none.
  QString Meant(const QString &id) const;

 private:
  QString path_;
  bool exists_;
  bool isReadable_;
  QList<DefinitionsLine> lines_;
  QStringList ids_;               // in the order of their first lines
  QHash<QString, int> lineOfId_;  // the index of an identifier's last line
};

/// What a line defines. Prints nothing, unlike the constructor.
EventDefinition DefinitionFrom(const DefinitionsLine &line);

}  // namespace ov
