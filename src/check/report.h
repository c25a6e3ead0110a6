// How answers are printed: as text, in colour on a terminal, or as one JSON document.
#pragma once

#include <QByteArray>
#include <QJsonObject>

#include "check/finding.h"

namespace ov {

/// A line for each finding, as compilers print it, and the counts. On a terminal in colour, each
/// with its line of the file and a caret under the place.
QByteArray FindingsAsText(const Findings &findings, bool isTerminal);

/// Adds "findings" and "counts" to a document.
void AddFindings(const Findings &findings, QJsonObject &document);

}  // namespace ov
