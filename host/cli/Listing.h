#pragma once

#include "host/core/Lists.h"

namespace host::cli {

/// What a person reads: each event with its categories below it, then the pricing templates; ends with a line
/// end.
QString listing(const Lists& lists);

} // namespace host::cli
