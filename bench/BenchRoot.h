// A temporary system root for benchmarks, and the generated files they load.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

class CBenchRoot {
public:
    CBenchRoot()
    {
        char szTemplate[] = "/tmp/cfgbench-XXXXXX";
        m_strPath = mkdtemp(szTemplate);
        setenv("ETL_ROOT", m_strPath.c_str(), 1);
    }
    ~CBenchRoot()
    {
        std::string strCmd = "rm -rf '" + m_strPath + "'";
        (void)system(strCmd.c_str());
    }
    const std::string& Path() const { return m_strPath; }
    std::string Real(const std::string& strLogical) const { return m_strPath + strLogical; }

    void Write(const std::string& strLogical, const std::string& strContent) const
    {
        std::string strReal = Real(strLogical);
        for (size_t nPos = 1; nPos < strReal.size(); ++nPos) {
            if (strReal[nPos] == '/')
                (void)mkdir(strReal.substr(0, nPos).c_str(), 0755);
        }
        std::ofstream out(strReal, std::ios::binary | std::ios::trunc);
        out << strContent;
    }

private:
    std::string m_strPath;
};

// Item names like the demo map's: every one mapped by a ranged entry of configMap.xml.
inline std::string BenchItemName(int n)
{
    return "account." + std::to_string(n % 16 + 1) + ".bench_setting_" + std::to_string(n / 16);
}

// configMap.xml with one ranged entry per account, nItems names in all, plus the switches.
inline std::string BenchConfigMap(int nItems)
{
    std::string strMap = "<configMap>\n";
    int nPerAccount = (nItems + 15) / 16;
    for (int a = 0; a < 16; ++a)
        strMap += " <item m7=\"account." + std::to_string(a + 1) + ".bench_setting_{n}\" file=\"/config/voip/account" +
                  std::to_string(a) + ".cfg\" section=\"bench\" key=\"Setting{n}\" range=\"0-" +
                  std::to_string(nPerAccount - 1) + "\"/>\n";
    strMap += " <config name=\"AutoProvisionCustomSync\" file=\"/config/system/system.ini\" section=\"AP\" key=\"Sync\" default=\"1\"/>\n";
    return strMap + "</configMap>\n";
}

// An ignore list of nEntries entries that match none of the bench names.
inline std::string BenchIgnoreList(int nEntries)
{
    std::string strList = "<data>\n";
    for (int i = 0; i < nEntries; ++i) {
        if (i % 3 == 0)
            strList += " <item M7=\"network.ignored_" + std::to_string(i) + "\" length=\"0\"/>\n";
        else if (i % 3 == 1)
            strList += " <item M7=\"static.ignored_" + std::to_string(i) + ".\" length=\"18\"/>\n";
        else
            strList += " <item M7=\"account.XX..ignored_" + std::to_string(i) + "\" length=\"12\"/>\n";
    }
    return strList + "</data>\n";
}

inline std::string BenchUserFile(int nItems)
{
    std::string strText = "#!version:1.0.0.1\n";
    for (int i = 0; i < nItems; ++i)
        strText += BenchItemName(i) + " = value_" + std::to_string(i) + "\n";
    return strText;
}

// The start-up workload: an item map of nItems entries, 300 ignores, 50 watched sections and a
// translator, with the user file at its logical path.
inline void WriteStartUpRoot(const CBenchRoot& root, int nItems, const std::string& strUserFile)
{
    root.Write("/phone/resource/configMap.xml", BenchConfigMap(nItems));
    root.Write("/phone/resource/autopIgnroeM7.xml", BenchIgnoreList(300));
    root.Write(strUserFile, BenchUserFile(nItems));
    std::string strSections = "<regMonitor>\n";
    for (int i = 0; i < 50; ++i)
        strSections += " <section file=\"/config/voip/account" + std::to_string(i % 16) + ".cfg\" section=\"watched" +
                       std::to_string(i) + "\" action=\"Notify\" handle=\"0\"/>\n";
    root.Write("/phone/resource/sectionMonitor.xml", strSections + "</regMonitor>\n");
    root.Write("/boot/bin/autopTranslator.xml",
               "<translator><method name=\"Notify\" thread=\"autoServer\" id=\"0xb0301\"/></translator>\n");
}

// Reads every file below the folder through the buffer, adding up the bytes: the floor of a
// walk that reads both trees.
inline void ReadTree(const std::string& strDir, std::vector<char>& vecBuf, size_t& nBytes)
{
    DIR* pDir = opendir(strDir.c_str());
    if (pDir == nullptr)
        return;
    while (dirent* pEntry = readdir(pDir)) {
        if (pEntry->d_name[0] == '.')
            continue;
        std::string strPath = strDir + "/" + pEntry->d_name;
        if (pEntry->d_type == DT_DIR) {
            ReadTree(strPath, vecBuf, nBytes);
            continue;
        }
        int fd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            continue;
        ssize_t n;
        while ((n = read(fd, vecBuf.data(), vecBuf.size())) > 0)
            nBytes += static_cast<size_t>(n);
        (void)close(fd);
    }
    (void)closedir(pDir);
}
