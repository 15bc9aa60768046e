// Creating and ending applet instances through the exported entry points.
#include "AppletHost.h"
#include "pelagon_errors.h"

TEST(AppletLifecycle, CreatesAnInstanceOnAVirtualBoardAndEndsIt) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    EXPECT_EQ(host.error, 0);
    EXPECT_EQ(host.api.Fg_getNrOfParameter(host.fg), 135);
}
