// A temporary system root with a small name map, switches and ignore list, for tests of the
// service's flows, in process or with the real program.
#pragma once

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
        Write("/phone/resource/configMap.xml",
              "<configMap>\n"
              " <item m7=\"account.{n+1}.label\" file=\"/config/voip/account{n}.cfg\" section=\"account\" key=\"Label\" range=\"0-3\"/>\n"
              " <item m7=\"test.plain\" file=\"/config/t.ini\" section=\"S\" key=\"plain\"/>\n"
              " <item m7=\"test.other\" file=\"/config/t.ini\" section=\"S\" key=\"other\"/>\n"
              " <item m7=\"test.base0\" file=\"/config/t.ini\" section=\"S\" key=\"base0\" flags=\"0x800\"/>\n"
              " <item m7=\"test.invert\" file=\"/config/t.ini\" section=\"S\" key=\"invert\" flags=\"0x1000\"/>\n"
              " <item m7=\"test.both\" file=\"/config/t.ini\" section=\"S\" key=\"both\" flags=\"0x1800\"/>\n"
              " <item m7=\"test.encrypt\" file=\"/config/t.ini\" section=\"S\" key=\"encrypt\" flags=\"0x1\"/>\n"
              " <item m7=\"test.reboot\" file=\"/config/t.ini\" section=\"S\" key=\"reboot\" flags=\"0x2\"/>\n"
              " <item m7=\"test.encreboot\" file=\"/config/t.ini\" section=\"S\" key=\"encreboot\" flags=\"0x3\"/>\n"
              " <item m7=\"test.ignored\" file=\"/config/t.ini\" section=\"S\" key=\"ignored\"/>\n"
              " <item m7=\"doc{n}.key\" file=\"/config/many/doc{n}.ini\" section=\"S\" key=\"k\" range=\"0-99\"/>\n"
              " <config name=\"AutoProvisionCustomSync\" file=\"/config/switch.ini\" section=\"AP\" key=\"Sync\" default=\"1\"/>\n"
              " <config name=\"AutoProvisionCustomProtect\" file=\"/config/switch.ini\" section=\"AP\" key=\"Protect\" default=\"0\"/>\n"
              "</configMap>\n");
        Write("/phone/resource/autopIgnroeM7.xml", "<data><item M7=\"test.ignored\" length=\"0\"/></data>\n");
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
    // Switch values in the file the map names.
    void SetSwitches(int nSync, int nProtect) const
    {
        Write("/config/switch.ini",
              "[AP]\nSync = " + std::to_string(nSync) + "\nProtect = " + std::to_string(nProtect) + "\n");
    }

    testutil::TempDir m_root;
};

// Starts "etlmsg listen autoServer" and waits until it is registered.
class AutoServerListener {
public:
    AutoServerListener(const std::string& strRoot, int nCount = 0) : m_strRoot(strRoot)
    {
        std::vector<std::string> vecArgs{testutil::EtlmsgBin(), "listen", "autoServer"};
        if (nCount > 0) {
            vecArgs.push_back("--count");
            vecArgs.push_back(std::to_string(nCount));
        }
        m_child.Start(vecArgs, strRoot, strRoot);
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
