#pragma once

#include "tools/kvctl/FaultReport.h"

namespace kv::kvctl {

/// The report without what is nobody's business, and with the same decisions.
///
/// Each name of a set becomes "set-1", each path "path-1", every other text "text-1" and each field
/// that the scheduler does not know "field-1": the same one for the same text, wherever it stands.
/// Texts that decide become the number that the scheduler reads in them. Data is left out, lines of
/// the host are replaced, and so is the zone's name. Dates, numbers, booleans, the order and the
/// number of things, the locale and the offsets of the zone stay: the decisions hang on them.
///
/// Threads    main thread only: the trace is made by deciding again.
/// Errors     Refusal (kUnexpected) when what is left does not lead to the same decisions.
FaultReport redacted(const FaultReport& report);

}  // namespace kv::kvctl
