// Writing the item table as configuration text: the user configuration file with its ".bak"
// step, and any other target. Files are rewritten whole.
#pragma once

#include <cstdint>
#include <string>

// Not started: the target could not be opened or take the header; failed: cut short later.
enum EM7WriteResult { M7_WRITE_NOT_STARTED, M7_WRITE_FAILED, M7_WRITE_DONE };

// Header, then a line per item that may reach a text file (encrypted and reboot items are left
// out, and printed with bReportSkips); every value "%NULL%" with bAllNull. nBytes is set to the
// file's size when done, else left as it is.
EM7WriteResult WriteM7File(const char* szTarget, bool bAllNull, bool bReportSkips, uint64_t& nBytes);

// The user file's ".bak" step (refreshed from the file, or the file restored from it when
// missing; nothing when strUserPath is empty), then the table written to szPath, or to the user
// file when szPath is null. Once the write has started the table counts as saved (m7ModelChanged
// cleared).
EM7WriteResult SaveM7Table(const std::string& strUserPath, const char* szPath, bool bAllNull, uint64_t& nBytes);
