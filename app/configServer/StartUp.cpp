// The start-up hook: registry owner, section watches, ignore list, translator, MAC address, the
// user configuration file's name and load, and the upload check.
#include "ConfigServer.h"
#include "ConfigPaths.h"
#include "M7Journal.h"

#include "ETL_FileAccess.h"
#include "ETL_MiscHelper.h"
#include "ETL_SocketHelper.h"
#include "ETL_TraceHelper.h"
#include "autopTranslator.h"
#include "chReferenceStringT.h"
#include "netDevice.h"

#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>

using ETL_StringHelper::chStringA;
using ETL_StringHelper::fmtString;

uint64_t CConfigServer::s_nUploadIntervalMs = 300000;

namespace {

const char* const kInvalidMac = "000000000000";
const int kMacAttempts = 1801;

// Six zeroed bytes, then the request on the named interface.
bool RequestHwAddress(int fd, const char* szInterface, ifreq& request)
{
    std::memset(&request, 0, sizeof(request));
    std::strncpy(request.ifr_name, szInterface, IFNAMSIZ - 1);
    return ioctl(fd, SIOCGIFHWADDR, &request) == 0;
}

} // namespace

int CConfigServer::ReadHwMacAddress(unsigned char* pMac)
{
    ETL_SocketHelper::chSocket sock;
    // Packet socket, datagram, ARP ethertype in network byte order.
    if (sock.CreateSocket(17, 2, 0x608) < 0)
        return 0;
    ifreq request;
    if (!RequestHwAddress(sock, "esw0", request) && !RequestHwAddress(sock, "eth0", request))
        return 0;
    std::memcpy(pMac, request.ifr_hwaddr.sa_data, 6);
    return 1;
}

int CConfigServer::OnServiceStart()
{
    // 1. From now on the registry reports changed documents to this thread.
    ETL_RegistryHelper::uCRegistryHelper* pRegistry = ETL_RegistryHelper::uCRegistryHelpergetGlobalObject();
    pRegistry->Lock(-1);
    pRegistry->GetSharedState()->nOwnerTask = ETL_MiscHelper::etlGetCurrentTaskId();
    pRegistry->GetSharedState()->nChangedMsgId = CONFIG_MSG_REGISTRY_CHANGED;
    pRegistry->Unlock();

    // 2.-4. Section watches, ignore list, translator.
    (void)m_sectionMonitor.StartMonitor();
    if (LoadIgnoreM7List() == 0)
        ETL_TraceHelper::etlTrace(2, "failed to load [%s].", kIgnoreListPath);
    if (load_trans(kTranslatorPath) != 0)
        ETL_TraceHelper::etlTrace(2, "failed to load config_translator[%s].", kTranslatorPath);

    // 5.-6. The MAC address: the hardware's, else the device library's, waiting up to 1801 s.
    unsigned char mac[6] = {0, 0, 0, 0, 0, 0};
    (void)ReadHwMacAddress(mac);
    chStringA strMac = fmtString("%.2x%.2x%.2x%.2x%.2x%.2x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    int nAttempts = 0;
    while (std::strcmp(strMac.c_str(), kInvalidMac) == 0) {
        ETL_TraceHelper::etlTrace(2, "Invalid MAC Address... sleep 1s");
        ETL_MiscHelper::etlSleep(1000);
        // Stopped while booting: nothing of the start-up that remains may run (files are moved).
        if (ETL_MiscHelper::etlStopRequested() != 0) {
            ETL_TraceHelper::etlTrace(2, "Stop requested while waiting for the MAC address.");
            return 1;
        }
        const char* szMac = netGetMACText(0, 0);
        strMac = (szMac != nullptr) ? szMac : "";
        if (++nAttempts >= kMacAttempts)
            break;
    }

    // 7.-8. The user configuration file's name and path.
    m_strUserCfgName = UserCfgFileName(ETL_MiscHelper::pathFileExist(kForceSyncPath) != 0 ? "mac" : strMac.c_str());
    ETL_TraceHelper::etlTrace(2, "User Config Path = %s", m_strUserCfgName.c_str());
    m_strUserCfgPath = "/config/" + m_strUserCfgName;

    // 9. Load it; a legacy "mac-local.cfg" in the working directory wins and is migrated.
    CM7ChangeOrigin origin(CM7ChangeOrigin::BULK, "start-up load");
    if (ETL_MiscHelper::pathFileExist(kLegacyUserFile) != 0) {
        printf("find:[%s]\n", kLegacyUserFile);
        (void)LoadM7Model(kLegacyUserFile, 0);
        std::string strMacPath = "/config/" + UserCfgFileName(strMac.c_str());
        if (ETL_MiscHelper::pathFileExist(strMacPath.c_str()) != 0) {
            printf("find:[%s]\n", strMacPath.c_str());
            (void)MergeLoadM7Model(strMacPath.c_str(), 1, 0);
            (void)ETL_FileHelper::etlRemove(kLegacyUserFile);
            (void)ETL_FileHelper::etlRemove(kLegacyUserBackup);
        }
    } else if (LoadM7Model(m_strUserCfgPath.c_str(), 0) == 0) {
        ETL_TraceHelper::etlTrace(2, "failed to load previous user config.[%s]", m_strUserCfgPath.c_str());
    }

    // 10. The upload check.
    m_timerUpload.SetTimer(s_nUploadIntervalMs, nullptr, this, MSG_HANDLER(&CConfigServer::OnUploadUserConfig));
    return 1;
}
