// The system root as set for the process (internal to the platform): the one reader of ETL_ROOT.
#pragma once

namespace ETL_FileHelper {

// The root's text as given, "" when unset; cheap enough to ask once per message, so that a
// change of root (tests make one) is seen at once.
const char* etlRootSetting();

} // namespace ETL_FileHelper
