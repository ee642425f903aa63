#ifndef QLMAIL_FOUNDATION_QLSYSTEMERROR_H
#define QLMAIL_FOUNDATION_QLSYSTEMERROR_H

#include "foundation/QLExport.h"

#include <string>

/// The system's text for an error number, thread-safe.
class QLMAIL_EXPORT CQLSystemError {
public:
    /// The system's text for the current errno.
    ///
    /// The argument is not used: callers pass errno itself, and reading errno here keeps the
    /// two from drifting apart. Call it right after the failing system call.
    static std::string GetStrError(int nErrno);
};

#endif
