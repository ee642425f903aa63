#ifndef QLMAIL_FOUNDATION_QLEXCEPTIONPARSER_H
#define QLMAIL_FOUNDATION_QLEXCEPTIONPARSER_H

#include "foundation/QLExport.h"

#include <string>

// Base of nearly every class of the library, and the one type that is thrown.
// A failing class stores its text in m_strLastError and throws a copy of itself.
class QLMAIL_EXPORT CQLExceptionParser {
public:
    // Inline: every header field and every part constructs one.
    CQLExceptionParser() : m_nErrorCode(0) {}
    CQLExceptionParser(const std::string& strMessage, int nCode);
    CQLExceptionParser(const CQLExceptionParser& other);
    CQLExceptionParser& operator=(const CQLExceptionParser& other);

    virtual std::string GetLastError() const;
    virtual int GetErrorCode();
    virtual void SetLastError(const std::string& strError);
    virtual ~CQLExceptionParser() {}

protected:
    std::string m_strLastError;
    int m_nErrorCode;
};

#endif
