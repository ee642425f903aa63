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
    const CQLExceptionParser oFailed("In Open(), broken", 7);
    CQLExceptionParser oCopy(oFailed);
    oEmpty = oFailed;
    for (CQLExceptionParser* p : {&oCopy, &oEmpty}) {
        EXPECT_EQ(p->GetLastError(), "In Open(), broken");
        EXPECT_EQ(p->GetErrorCode(), 7);
    }
    oCopy.SetLastError("other"); // the code stays
    EXPECT_EQ(oCopy.GetLastError(), "other");
    EXPECT_EQ(oCopy.GetErrorCode(), 7);
}

TEST(SystemError, TranslatesErrnoNotTheArgument) {
    errno = ENOENT;
    EXPECT_EQ(CQLSystemError::GetStrError(EIO), strerror(ENOENT));
    errno = 123456; // a number the system has no name for still gives a text
    EXPECT_FALSE(CQLSystemError::GetStrError(0).empty());
    EXPECT_EQ(CDefineParser::GetVersion(), "1.00.0032");
}
