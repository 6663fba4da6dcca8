// The platform trace: one line per call on standard error.
#pragma once

namespace ETL_TraceHelper {

// Writes the formatted text as one line (a line end is added when it has none). The level is
// carried for the phone's trace filter; the stand-in writes every level.
void etlTrace(int nLevel, const char* szFormat, ...) __attribute__((format(printf, 2, 3)));

// The platform debug output; here the same stream as etlTrace.
void etlOutputDebugString(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

} // namespace ETL_TraceHelper
