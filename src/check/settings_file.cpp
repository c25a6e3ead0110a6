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
      while (i < size && IsSpace(contents[i])) {
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

// The reader keeps all other white space at the end of a key, such as a line feed in double quotes.
QByteArray WithoutBlanks(QByteArray key) {
  while (key.endsWith(' ') || key.endsWith('\t')) {
    key.chop(1);
  }
  return key;
}

// "%41" and "%U0041" stand for a character, a backslash for a slash.
QString DecodedKey(const QByteArray &key) {
  QString decoded = QStringLiteral("");  // not null
  for (int i = 0; i < key.size(); ++i) {
    if (key[i] == '\\') {
      decoded += QLatin1Char('/');
      continue;
    }
    const bool isLong = key.mid(i + 1, 1) == "U";
    const int start = isLong ? i + 2 : i + 1;
    const int length = isLong ? 4 : 2;
    bool isNumber = false;
    const int number = key.mid(start, length).toInt(&isNumber, 16);
    if (key[i] == '%' && isNumber && start + length <= key.size()) {
      decoded += QChar(number);
      i = start + length - 1;
    } else {
      decoded += QLatin1Char(key[i]);
    }
  }
  return decoded;
}

// The text between the brackets; without the closing one, to the end of the line.
QString SectionOf(const QByteArray &text) {
  const int end = text.indexOf(']');
  const QByteArray name = text.mid(1, end < 0 ? -1 : end - 1).trimmed();
  if (name.compare("general", Qt::CaseInsensitive) == 0) {
    return {};
  }
  return name.compare("%general", Qt::CaseInsensitive) == 0 ? QString(QLatin1String(name.mid(1)))
                                                            : DecodedKey(name);
}

// Where the reader begins to look for sections: behind a byte order mark. To the line of a key in
// front of any section, the mark belongs.
int StartOf(const QByteArray &contents) {
  if (!contents.startsWith(kByteOrderMark)) {
    return 0;
  }
  int start = static_cast<int>(std::size(kByteOrderMark)) - 1;
  while (start < contents.size() && IsSpace(contents[start])) {
    ++start;
  }
  return contents.mid(start, 1) == "[" ? start : 0;
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
  int position = StartOf(contents);
  while (true) {
    const Extent extent = NextLine(contents, position);
    if (extent.start >= extent.end) {
      return lines;
    }
    SettingsLine line;
    line.start = extent.start;
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
      line.key = DecodedKey(WithoutBlanks(line.text.left(equals)));
      int start = equals + 1;
      while (start < line.text.size() && IsSpace(line.text[start])) {
        ++start;
      }
      line.valueStart = line.start + start;
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
  for (int index = 0; index < lines_.size(); ++index) {
    if (lines_[index].valueStart > 0) {
      lineOfKey_.insert(lines_[index].KeyWithSection(), index);
    }
  }
  lineStarts_.push_back(0);
  const char lineEnd = contents_.contains('\n') ? '\n' : '\r';
  for (int end = contents_.indexOf(lineEnd); end >= 0; end = contents_.indexOf(lineEnd, end + 1)) {
    lineStarts_.push_back(end + 1);
  }
}

const SettingsLine *SettingsFile::LineOf(const QString &key) const {
  const auto found = lineOfKey_.constFind(key);
  return found == lineOfKey_.cend() ? nullptr : &lines_[*found];
}

Place SettingsFile::PlaceAt(int offset) const {
  const auto next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
  const int start = *(next - 1);
  const int end = next == lineStarts_.end() ? contents_.size() : *next - 1;
  return {path_, static_cast<int>(next - lineStarts_.begin()), offset - start + 1,
          contents_.mid(start, end - start)};
}

Place SettingsFile::PlaceOfKey(const QString &key) const {
  const SettingsLine *const line = LineOf(key);
  return line == nullptr ? Place{path_, 0, 0, {}} : PlaceAt(line->valueStart);
}

Place SettingsFile::PlaceInKey(const QString &key, const QByteArray &word) const {
  const SettingsLine *const line = LineOf(key);
  if (line == nullptr || word.isEmpty()) {
    return PlaceOfKey(key);
  }
  const QByteArray value = line->Value();
  const auto isWordPart = [&value](int index) {
    return index >= 0 && index < value.size() &&
           std::isalnum(static_cast<unsigned char>(value[index])) != 0;
  };
  for (int found = value.indexOf(word); found >= 0; found = value.indexOf(word, found + 1)) {
    if (!isWordPart(found - 1) && !isWordPart(found + word.size())) {
      return PlaceAt(line->valueStart + found);
    }
  }
  return PlaceOfKey(key);
}

}  // namespace ov
