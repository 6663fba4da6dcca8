// A temporary system root shared by every run of a fuzz target, and a way to drop input there.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>

// The entry point every target defines.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

inline const std::string& FuzzRoot()
{
    static std::string s_strRoot = [] {
        char szTemplate[] = "/tmp/cfgfuzz-XXXXXX";
        std::string strRoot = mkdtemp(szTemplate);
        setenv("ETL_ROOT", strRoot.c_str(), 1);
        for (const char* szDir : {"/tmp", "/config", "/config/data", "/phone", "/phone/resource", "/phone/factory",
                                  "/phone/factory/data", "/boot", "/boot/bin"})
            (void)mkdir((strRoot + szDir).c_str(), 0755);
        return strRoot;
    }();
    return s_strRoot;
}

// Writes bytes to a logical path of the root.
inline void FuzzWrite(const char* szLogical, const uint8_t* pData, size_t nSize)
{
    std::string strPath = FuzzRoot() + szLogical;
    FILE* pFile = fopen(strPath.c_str(), "wb");
    if (pFile == nullptr)
        abort();
    if (nSize > 0)
        (void)fwrite(pData, 1, nSize, pFile);
    fclose(pFile);
}
