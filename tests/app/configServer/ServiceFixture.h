// A temporary system root with a small name map, switches and ignore list, for tests of the
// service's flows, in process or with the real program; and the item table on such a root.
#pragma once

#include "ConfigServer.h"
#include "M7Store.h"
#include "ProcessHarness.h"
#include "configParser.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class ServiceRootTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("ETL_ROOT", m_root.Path().c_str(), 1);
        for (const char* szDir : {"/config/x", "/tmp/x"})
            testutil::MakeParents(Real(szDir));
        WriteMap("");
        Write("/phone/resource/autopIgnroeM7.xml", "<data><item M7=\"test.ignored\" length=\"0\"/></data>\n");
    }

    // The name map: the items every test shares, then strExtra (item lines), parsed afresh.
    void WriteMap(const std::string& strExtra) const
    {
        std::string strMap = "<configMap>\n"
            " <item m7=\"account.{n+1}.label\" file=\"/config/voip/account{n}.cfg\" section=\"account\" key=\"Label\" range=\"0-3\"/>\n"
            " <item m7=\"doc{n}.key\" file=\"/config/many/doc{n}.ini\" section=\"S\" key=\"k\" range=\"0-99\"/>\n"
            " <config name=\"AutoProvisionCustomSync\" file=\"/config/switch.ini\" section=\"AP\" key=\"Sync\" default=\"1\"/>\n"
            " <config name=\"AutoProvisionCustomProtect\" file=\"/config/switch.ini\" section=\"AP\" key=\"Protect\" default=\"0\"/>\n";
        const char* const kTestKeys[][2] = {{"plain", "0"}, {"other", "0"}, {"base0", "0x800"}, {"invert", "0x1000"},
            {"both", "0x1800"}, {"encrypt", "0x1"}, {"reboot", "0x2"}, {"encreboot", "0x3"}, {"ignored", "0"}};
        for (const auto& key : kTestKeys)
            strMap += std::string(" <item m7=\"test.") + key[0] + "\" file=\"/config/t.ini\" section=\"S\" key=\"" + key[0] +
                      "\" flags=\"" + key[1] + "\"/>\n";
        Write("/phone/resource/configMap.xml", strMap + strExtra + "</configMap>\n");
        configParser_Reset();
    }

    void TearDown() override
    {
        configParser_Reset();
        unsetenv("ETL_ROOT");
    }

    std::string Real(const std::string& strLogical) const { return m_root.Join(strLogical); }
    void Write(const std::string& strLogical, const std::string& strContent) const
    {
        testutil::WriteFile(Real(strLogical), strContent);
    }
    std::string Read(const std::string& strLogical) const { return testutil::ReadFile(Real(strLogical)); }
    bool Exists(const std::string& strLogical) const { return testutil::FileExists(Real(strLogical)); }
    testutil::ToolResult Msg(const std::vector<std::string>& vecArgs) const
    {
        return testutil::Etlmsg(m_root.Path(), vecArgs);
    }
    // The extra data of a reg-set message.
    static std::string RegSetPayload(const std::string& strFile, const std::string& strSection,
                                     const std::string& strKey, const std::string& strValue)
    {
        return strFile + '\0' + strSection + '\0' + strKey + '\0' + strValue + '\0';
    }
    // The item lines the service running on strRoot (default: this root) holds, through its export.
    std::string ExportedTable(std::string strRoot = "") const
    {
        strRoot = strRoot.empty() ? m_root.Path() : strRoot;
        std::vector<std::string> vecExport{"send", "configServer", "0xd0006", "0", "0", "--text", "/tmp/table.cfg"};
        EXPECT_EQ(testutil::Etlmsg(strRoot, vecExport).strOut, "1\n");
        return testutil::ReadFile(strRoot + "/tmp/table.cfg");
    }
    // Switch values in the file the map names.
    void SetSwitches(int nSync, int nProtect) const
    {
        Write("/config/switch.ini",
              "[AP]\nSync = " + std::to_string(nSync) + "\nProtect = " + std::to_string(nProtect) + "\n");
    }

    testutil::TempDir m_root;
};

// The item table, emptied before each test, with a service object on the root (not running).
class ItemTableTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        ClearM7Model();
        ignoreM7List.Clear();
        m_server.SetUserCfgPath("/config/user-local.cfg");
    }
    std::string Value(const std::string& strName) const
    {
        CM7Item* pItem = FindM7Item(strName.c_str());
        return pItem != nullptr ? pItem->value.c_str() : "<absent>";
    }
    // Runs fn with standard output captured, and returns what it printed.
    template <typename F> static std::string Printed(F fn)
    {
        ::testing::internal::CaptureStdout();
        fn();
        return ::testing::internal::GetCapturedStdout();
    }
    CConfigServer m_server;
};

// Starts "etlmsg listen autoServer" and waits until it is registered.
class AutoServerListener {
public:
    explicit AutoServerListener(const std::string& strRoot) : m_strRoot(strRoot)
    {
        m_child.Start({testutil::EtlmsgBin(), "listen", "autoServer"}, strRoot, strRoot);
        m_bReady = testutil::Etlmsg(strRoot, {"wait", "autoServer"}).nExit == 0;
    }
    ~AutoServerListener() { m_child.Signal(15); }
    bool Ready() const { return m_bReady; }
    // Every line printed so far.
    std::string Lines() const { return m_child.Stdout(); }
    bool WaitFor(const std::string& strText, int nTimeoutMs = 5000)
    {
        return testutil::WaitForText(m_child.StdoutPath(), strText, nTimeoutMs);
    }
    // Ends the listener and returns everything it printed.
    std::string Finish()
    {
        testutil::Etlmsg(m_strRoot, {"ping", "autoServer"});
        m_child.Signal(15);
        m_child.Wait(5000);
        return m_child.Stdout();
    }

private:
    std::string m_strRoot;
    testutil::Child m_child;
    bool m_bReady = false;
};
