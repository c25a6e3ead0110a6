#include "check/settings_file.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cctype>

namespace ov {
namespace {

bool IsLineEnd(char character) { return character == '\n' || character == '\r'; }

bool IsSpace(char character) {
  return character == ' ' || character == '\t' || IsLineEnd(character);
}

// Where a line lies in the file.
struct Extent {
  int start;
  int end;
};

// Returns the next line from `position` on, and moves `position` behind it. The line is empty at
// the end of the file.
Extent NextLine(const QByteArray &contents, int &position) {
  const int size = contents.size();
  while (position < size && IsSpace(contents[position])) {
    ++position;
  }
  int start = position;
  int i = start;
  bool isQuoted = false;
  while (i < size) {
    const char character = contents[i];
    const bool isFirst = i == start;
    ++i;
    if (character == '"') {
      isQuoted = !isQuoted;
    } else if (character == '\\' && i < size) {
      const char next = contents[i];
      ++i;
      // A line feed and a carriage return are one line end.
      if (i < size && IsLineEnd(next) && IsLineEnd(contents[i]) && contents[i] != next) {
        ++i;
      }
    } else if (character == ';' && isFirst) {
      while (i < size && !IsLineEnd(contents[i])) {
        ++i;
      }
      start = i;
    } else if (IsLineEnd(character) && isFirst) {
      ++start;
    } else if (!isQuoted && (character == ';' || IsLineEnd(character))) {
      --i;
      break;
    }
  }
  position = i;
  return {start, i};
}

// Unlike trimmed(), which takes a vertical tab for white space.
QByteArray WithoutSpaces(QByteArray text) {
  while (!text.isEmpty() && IsSpace(text.back())) {
    text.chop(1);
  }
  int start = 0;
  while (start < text.size() && IsSpace(text[start])) {
    ++start;
  }
  return text.mid(start);
}

QString DecodedKey(const QByteArray &key) {
  const QByteArray decoded = QByteArray::fromPercentEncoding(key).replace('\\', '/');
  // Not null, and with the zero bytes.
  return QString(QLatin1String(decoded.constData(), decoded.size()));
}

// The text between the brackets; without the closing one, to the end of the line.
QString SectionOf(const QByteArray &text) {
  const int end = text.indexOf(']');
  const QByteArray name = text.mid(1, end < 0 ? -1 : end - 1).trimmed();
  if (name.compare("general", Qt::CaseInsensitive) == 0) {
    return {};
  }
  return DecodedKey(name);
}

// The place of the first "=" outside double quotes, or -1.
int EqualsIn(const QByteArray &text) {
  bool isQuoted = false;
  for (int i = 0; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      isQuoted = !isQuoted;
    } else if (text[i] == '=' && !isQuoted) {
      return i;
    }
  }
  return -1;
}

}  // namespace

int SettingsLine::UnquotedComma() const {
  bool isQuoted = false;
  const QByteArray value = Value();
  for (int i = 0; i < value.size(); ++i) {
    if (value[i] == '\\') {
      ++i;
    } else if (value[i] == '"') {
      isQuoted = !isQuoted;
    } else if (value[i] == ',' && !isQuoted) {
      return i;
    }
  }
  return -1;
}

QList<SettingsLine> CutSettings(const QByteArray &contents) {
  QList<SettingsLine> lines;
  QString section;
  int number = 1;
  int counted = 0;
  int position = 0;
  while (true) {
    const Extent extent = NextLine(contents, position);
    if (extent.start >= extent.end) {
      return lines;
    }
    number += static_cast<int>(
        std::count(contents.begin() + counted, contents.begin() + extent.start, '\n'));
    counted = extent.start;
    SettingsLine line;
    line.number = number;
    line.column = extent.start - (contents.lastIndexOf('\n', extent.start - contents.size() - 1));
    line.text = contents.mid(extent.start, extent.end - extent.start);
    if (position < contents.size() && contents[position] == ';') {
      int end = position;
      while (end < contents.size() && !IsLineEnd(contents[end])) {
        ++end;
      }
      line.cut = contents.mid(position, end - position);
    }
    if (line.text.startsWith('[')) {
      section = SectionOf(line.text);
      line.isSection = true;
    } else if (const int equals = EqualsIn(line.text); equals >= 0) {
      line.key = DecodedKey(WithoutSpaces(line.text.left(equals)));
      line.valueStart = equals + 1;
      while (line.valueStart < line.text.size() && IsSpace(line.text[line.valueStart])) {
        ++line.valueStart;
      }
      line.valueColumn = line.column + line.valueStart;
    }
    line.section = section;
    lines.append(line);
  }
}

SettingsFile::SettingsFile(const QString &path)
    : path_(path), exists_(QFileInfo(path).isFile()), entries_(Settings::readSettingsFile(path)) {
  QFile file(path);
  if (exists_ && file.open(QIODevice::ReadOnly)) {
    isReadable_ = true;
    contents_ = file.readAll();
    lines_ = CutSettings(contents_);
  }
  settings_.applyEntries(entries_);
}

const SettingsLine *SettingsFile::LineOf(const QString &key) const {
  const auto found = std::find_if(lines_.rbegin(), lines_.rend(), [&key](const SettingsLine &line) {
    return line.valueStart > 0 && line.KeyWithSection() == key;
  });
  return found == lines_.rend() ? nullptr : &*found;
}

Place SettingsFile::PlaceOf(const SettingsLine &line, int column) const {
  const QList<QByteArray> sources = contents_.split('\n');
  return {path_, line.number, column > 0 ? column : line.column, sources.value(line.number - 1)};
}

Place SettingsFile::PlaceOfKey(const QString &key) const {
  const SettingsLine *const line = LineOf(key);
  return line == nullptr ? Place{path_, 0, 0, {}} : PlaceOf(*line, line->valueColumn);
}

Place SettingsFile::PlaceInKey(const QString &key, const QByteArray &text) const {
  Place place = PlaceOfKey(key);
  const auto isWordPart = [&place](int index) {
    return index >= 0 && index < place.source.size() &&
           (std::isalnum(static_cast<unsigned char>(place.source[index])) != 0);
  };
  int found = place.line > 0 && !text.isEmpty() ? place.column - 1 : -1;
  while (found >= 0 && (found = place.source.indexOf(text, found)) >= 0) {
    if (!isWordPart(found - 1) && !isWordPart(found + text.size())) {
      place.column = found + 1;
      return place;
    }
    ++found;
  }
  return place;
}

}  // namespace ov
