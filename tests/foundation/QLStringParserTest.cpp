#include "foundation/DefineParser.h"
#include "foundation/QLStringParser.h"

#include <gtest/gtest.h>

TEST(StringParser, Version) {
    EXPECT_EQ(CDefineParser::GetVersion(), "1.00.0032");
}
