// What the service makes of the definitions file.
#pragma once

#include "check/definitions_file.h"
#include "check/finding.h"

namespace ov {

void CheckDefinitions(const DefinitionsFile &definitions, Findings &findings);

}  // namespace ov
