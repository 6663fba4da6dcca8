// The platform's INI parser against SimpleIni, which read the same documents before it: same
// sections, keys, values and order for odd inputs (the fuzz target compares generated ones).
#include "ETL_FileHelper.h"
#include "IniBackend.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// One line per section and per key, in document order: enough to show any difference.
std::string Dump(ETL_FileHelper::iniFile& ini)
{
    std::string strOut;
    for (size_t s = 0; s < ini.GetSectionCount(); ++s) {
        ETL_FileHelper::iniSection* pSection = ini.GetSection(s);
        strOut += "[" + std::string(pSection->GetName()) + "]\n";
        for (size_t k = 0; k < pSection->GetKeyCount(); ++k)
            strOut += std::string(pSection->GetKey(k)->GetName()) + "=" + pSection->GetKey(k)->GetValue("") + "\n";
    }
    return strOut;
}

std::string DumpBySimpleIni(const std::string& strText)
{
    CIniBackend ini(true, false, false);
    EXPECT_GE(ini.LoadData(strText.data(), strText.size()), 0);
    std::string strOut;
    CIniBackend::TNamesDepend sections;
    ini.GetAllSections(sections);
    sections.sort(CIniBackend::Entry::LoadOrder());
    for (const CIniBackend::Entry& section : sections) {
        strOut += "[" + std::string(section.pItem) + "]\n";
        CIniBackend::TNamesDepend keys;
        ini.GetAllKeys(section.pItem, keys);
        keys.sort(CIniBackend::Entry::LoadOrder());
        for (const CIniBackend::Entry& key : keys)
            strOut += std::string(key.pItem) + "=" + ini.GetValue(section.pItem, key.pItem, "") + "\n";
    }
    return strOut;
}

void ExpectSameAsSimpleIni(const std::string& strText)
{
    ETL_FileHelper::iniFile ini;
    ASSERT_EQ(ini.LoadFromText(strText), 1);
    ASSERT_EQ(Dump(ini), DumpBySimpleIni(strText)) << "input: \"" << strText << "\"";
}

TEST(IniParserAgreement, OddInputsReadAsSimpleIniReadThem)
{
    using namespace std::string_literals;
    const std::vector<std::string> vecInputs = {
        "",
        "\xEF\xBB\xBF",
        "\xEF\xBB\xBF[a]\nk=v\n",
        "\xEF\xBB",
        "k=v\n[a]\nk=w\n",
        "[a]\nk=1\nj=2\n[b]\nx=3\n[a]\nk=4\nz=5\n",
        "[a]\r\n  key  =  some value \t\r\nother=\r\n=novalue\r\nnoequals\r\n",
        "[a]\rk=v\rj = w",
        "; first\n# second\n\n  ; indented\n[s]\nk=v ; not a comment\n#k2=v2\n",
        "[ spaced name ] trailing text\nk=v\n",
        "[]\nk=v\n[  ]\nj=w\n",
        "[\n\nk=v\n]\nj=w\n",
        "[open\nk=v\nj=w\n[closed]\nx=y\n",
        "[open\n; a comment\r\n\r\n  # another\nk=v\n",
        "[open\nnoequals\n[again\n=empty\nk=v\n",
        "[a]\nq=\"quoted\"\nm=<<<END\nline\nEND\n",
        "[a]\nk=v\0[b]\nj=w\n"s,
        "\0[a]\nk=v\n"s,
        "[a]\nk==v=w\nk2 = = \n",
        "[a]]\nk=v\n[[b]\nj=w\n",
    };
    for (const std::string& strText : vecInputs)
        ExpectSameAsSimpleIni(strText);
}

} // namespace
