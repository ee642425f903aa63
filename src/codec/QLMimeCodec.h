#ifndef QLMAIL_CODEC_QLMIMECODEC_H
#define QLMAIL_CODEC_QLMIMECODEC_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

/// Percent coding for the URLs of tracking tags and for RFC 2231 parameter values. Made for
/// one value and dropped; nothing here fails.
class QLMAIL_EXPORT CQLMimeCodec : public CQLExceptionParser {
public:
    CQLMimeCodec() {}
    virtual ~CQLMimeCodec() {}

    /// "+" is a blank; "%" takes the next two bytes as digits without checking them.
    std::string URLDecode(const char* pszText);
    /// Keeps 0-9, A-Z, a-z and ".@_/-"; every other byte becomes "%" and two lower-case digits.
    std::string URLEncode(const char* pszText);
    /// URLDecode() of the text up to its first NUL byte.
    std::string DecParam(const std::string& strText);
    /// name*0*=charset''value cut into segments name*1*=, name*2*= ... after nLimit bytes.
    std::string EncParam(const std::string& strName, const std::string& strValue,
                         const std::string& strCharset, int nLimit);
};

#endif
