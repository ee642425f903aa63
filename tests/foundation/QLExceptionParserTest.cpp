#include "foundation/DefineParser.h"
#include "foundation/QLExceptionParser.h"
#include "foundation/QLSystemError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

TEST(ExceptionParser, TextAndCodeTravelWithCopies) {
    CQLExceptionParser oEmpty;
    EXPECT_EQ(oEmpty.GetLastError(), "");
    EXPECT_EQ(oEmpty.GetErrorCode(), 0);

    CQLExceptionParser oFailed("In Open(), broken", 7);
    CQLExceptionParser oCopy(oFailed);
    EXPECT_EQ(oCopy.GetLastError(), "In Open(), broken");
    EXPECT_EQ(oCopy.GetErrorCode(), 7);
    oEmpty = oFailed;
    EXPECT_EQ(oEmpty.GetLastError(), "In Open(), broken");
    EXPECT_EQ(oEmpty.GetErrorCode(), 7);

    oCopy.SetLastError("other");
    EXPECT_EQ(oCopy.GetLastError(), "other");
    EXPECT_EQ(oCopy.GetErrorCode(), 7);
    EXPECT_EQ(oFailed.GetLastError(), "In Open(), broken");
}

TEST(SystemError, TranslatesErrnoNotTheArgument) {
    errno = ENOENT;
    EXPECT_EQ(CQLSystemError::GetStrError(EIO), strerror(ENOENT));
    errno = EACCES;
    EXPECT_EQ(CQLSystemError::GetStrError(EACCES), strerror(EACCES));
    errno = 0;
    EXPECT_EQ(CQLSystemError::GetStrError(ENOENT), strerror(0));
    // A number the system has no name for still gives a text.
    errno = 123456;
    EXPECT_FALSE(CQLSystemError::GetStrError(0).empty());
}

TEST(DefineParser, Version) {
    EXPECT_EQ(CDefineParser::GetVersion(), "1.00.0032");
}
