// The fixed files and threads of the service, in one place: several operations share them.
#pragma once

#include <string>

constexpr const char* kIgnoreListPath = "/phone/resource/autopIgnroeM7.xml";
constexpr const char* kTranslatorPath = "/boot/bin/autopTranslator.xml";
constexpr const char* kForceSyncPath = "/config/ForceSync.cfg";
// The legacy user file and its backup, named relative to the working directory.
constexpr const char* kLegacyUserFile = "mac-local.cfg";
constexpr const char* kLegacyUserBackup = "mac-local.cfg.bak";
constexpr const char* kLocalAutopPath = "/tmp/mac-locl-autop.cfg";
constexpr const char* kAllAutopPath = "/tmp/mac-all-autop.cfg";
constexpr const char* kResetListPath = "/tmp/mac-locl-reset.cfg";
constexpr const char* kCustomConfigPath = "/tmp/_custom_config.cfg";
constexpr const char* kAllConfigPath = "/tmp/all_config.cfg";
constexpr const char* kAutoServer = "autoServer";

// The user configuration file's name for a MAC text: the text and "-local.cfg".
inline std::string UserCfgFileName(const char* szMac)
{
    return std::string(szMac) + "-local.cfg";
}
