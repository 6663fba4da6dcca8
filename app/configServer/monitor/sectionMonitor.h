// The section monitor: watches the registry sections listed in
// "/phone/resource/sectionMonitor.xml" and runs a section's action text when it changes.
#pragma once

#include "ETL_FileHelper.h"
#include "ETL_MsgQueueHelper.h"
#include "ETL_RegistryHelper.h"

// The watch list the monitor reads at start.
constexpr const char* kSectionMonitorFile = "/phone/resource/sectionMonitor.xml";

class sectionMonitor : private ETL_MsgQueueHelper::chMsgProcesser,
                       public ETL_RegistryHelper::chRegistryMonitor,
                       public ETL_FileHelper::xmlFile {
public:
    sectionMonitor() = default;
    ~sectionMonitor() override = default;

    // Loads the list and watches every usable section; always 1.
    int StartMonitor();
    // Runs the action of the element whose handle equals the message's lparam; always 1.
    int OnSectionChanged(ETL_MsgQueueHelper::msgObject& msg);
};
