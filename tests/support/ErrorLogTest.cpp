// The last-error store and the log writer: what each records, the exact
// bytes of each line, and silence without a stream.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "Fg_Error.h"
#include "Fg_Log.h"

TEST(SupportError, StoresOnlyWhatSetErrRecords) {
    Fg_Error error;
    EXPECT_EQ(error.getErrorNumberBuffer(), 0);
    EXPECT_EQ(error.setErr(-6000), -6000);
    // The level-2 entry answers "not supported" and records nothing.
    EXPECT_EQ(error.setErrLevel2(5, "x"), -2130);
    EXPECT_EQ(error.setErrLevel2(5, nullptr), -2130);
    EXPECT_EQ(error.getErrorNumberBuffer(), -6000);
}

TEST(SupportLog, WritesNothingWithoutStream) {
    const std::string path = ::testing::TempDir() + "pelagon_support_never_written.log";
    std::remove(path.c_str());
    Fg_Log log(path.c_str());
    EXPECT_FALSE(log.isOpen());
    log.WriteWelcome();
    log.Error("e");
    log.Info("i", 1);
    log.ErrorInt("w", "t", 1);
    log.ErrorDouble("w", nullptr, 1.0);
    log.UsrDbg("%d", 1);
    log.CloseLogFile();
    EXPECT_NE(access(path.c_str(), F_OK), 0) << "the log must not create a file";
}

class SupportLogStream : public ::testing::Test {
protected:
    void SetUp() override {
        FILE* stream = open_memstream(&mBuffer, &mLength);
        ASSERT_NE(stream, nullptr);
        mLog.attachStream(stream);
    }
    void TearDown() override {
        mLog.CloseLogFile();
        std::free(mBuffer);
    }
    // A memory stream publishes its contents on every flush.
    std::string written() const { return mBuffer != nullptr ? std::string(mBuffer, mLength) : std::string(); }

    char* mBuffer = nullptr;
    size_t mLength = 0;
    Fg_Log mLog{nullptr};
};

// Doubles get twelve significant digits; the widest must still fit the
// fixed buffer untruncated.
TEST_F(SupportLogStream, LinesHaveTheirExactFormat) {
    mLog.Func("entry");
    mLog.Info("dropped");
    mLog.Error("bad key");
    mLog.Info("value", -5);
    mLog.ErrorInt("readInt", "out of range", -2147483647 - 1);
    mLog.Error(nullptr);
    for (double d : {0.1, 1e20, -std::numeric_limits<double>::max()}) mLog.ErrorDouble("w", "t", d);
    EXPECT_EQ(written(), "varionixIV::Error >> bad key;\n"
                         "varionixIV::Info >> value >> -5;\n"
                         "varionixIV::Error >> readInt >> out of range >> -2147483648;\n"
                         "varionixIV::Error >> (null);\n"
                         "varionixIV::Error >> w >> t >> 0.1;\n"
                         "varionixIV::Error >> w >> t >> 1e+20;\n"
                         "varionixIV::Error >> w >> t >> -1.79769313486e+308;\n");
}

TEST_F(SupportLogStream, UsrDbgIsVerbatimAndClosingEndsWriting) {
    mLog.UsrDbg("%d|%s|%.2f", 7, "raw", 1.5);
    mLog.UsrDbg(nullptr);
    mLog.CloseLogFile();  // UsrDbg does not flush; closing does
    EXPECT_FALSE(mLog.isOpen());
    mLog.Error("after");
    mLog.WriteWelcome();
    EXPECT_EQ(written(), "7|raw|1.50");
}

// Rule, one ownership line, contents, the 25-character asctime stamp, rule.
TEST_F(SupportLogStream, WelcomeBanner) {
    mLog.WriteWelcome();
    const std::string rule(73, '-'), text = written();
    const size_t contents = text.find("\nContents: Log details for varionix Dll\n");
    ASSERT_NE(contents, std::string::npos);
    EXPECT_EQ(text.substr(0, 74), rule + "\n");
    EXPECT_GT(contents, 74u);
    EXPECT_EQ(text.find('\n', 74), contents);
    EXPECT_EQ(text.substr(contents + 40 + 24), "\n" + rule + "\n");
    EXPECT_EQ(Fg_Log::GetTimestamp().size(), 25u);
}
