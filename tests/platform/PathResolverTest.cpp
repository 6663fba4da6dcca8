// The system root: logical paths resolve below ETL_ROOT and never climb out of it.
#include "ETL_FileAccess.h"

#include <cstdlib>
#include <gtest/gtest.h>

using ETL_FileHelper::etlResolvePath;

TEST(PathResolver, ResolvesBelowTheRootAndNeverAbove)
{
    setenv("ETL_ROOT", "/srv/root/", 1);
    EXPECT_EQ(etlResolvePath("/config/a.cfg"), "/srv/root/config/a.cfg");
    EXPECT_EQ(etlResolvePath("/../../etc/x"), "/srv/root/etc/x");
    EXPECT_EQ(etlResolvePath("/config/../../../etc/passwd"), "/srv/root/etc/passwd");
    EXPECT_EQ(etlResolvePath("/phone/factory//data"), "/srv/root/phone/factory/data");
    EXPECT_EQ(etlResolvePath("/phone/factory/"), "/srv/root/phone/factory/");
    EXPECT_EQ(etlResolvePath("/a/./b/.."), "/srv/root/a");
    EXPECT_EQ(etlResolvePath("mac-local.cfg"), "mac-local.cfg") << "relative paths stay relative";

    setenv("ETL_ROOT", "", 1);
    EXPECT_EQ(etlResolvePath("/config/../tmp/x"), "/tmp/x");
    unsetenv("ETL_ROOT");
    EXPECT_EQ(etlResolvePath("/tmp/y"), "/tmp/y");
    EXPECT_EQ(etlResolvePath(nullptr), "");
}
