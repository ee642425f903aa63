#ifndef QLMAIL_MIME_QLMIMECONST_H
#define QLMAIL_MIME_QLMIMECONST_H

#include "foundation/QLExport.h"

/// Content types, subtypes and transfer encodings with the tables of their names.
///
/// CQLMimeMsg, its parts' records and the format string carry these values; compare
/// GetCT(), GetSubCT() and GetEncoder() against them. Names match as prefixes, so the order
/// of the tables matters ("rfc822-headers" before "rfc822").
class QLMAIL_EXPORT CQLMimeConst {
public:
    /// The content type. A fixed underlying type: stored format strings may carry any number
    /// here.
    enum CT : int { TEXT = 0, IMAGE, AUDIO, VIDEO, APPLICATION, MULTIPART, MESSAGE, CT_UNKNOWN };
    /// The subtype; any number may come from a stored format string too.
    enum SUBCT : int {
        PLAIN = 0,
        HTML,
        ALTERNATIVE,
        MIXED,
        REPORT,
        RFC822_HEADERS,
        OCTETSTREAM,
        DELIVERYSTATUS,
        RELATED,
        JPEG,
        GIF,
        RFC822,
        SUBCT_UNKNOWN = 13,
        MS_TNEF = 14
    };
    /// The transfer encoding. Values are the characters the format string carries.
    enum ENCODER : int {
        ENCODER_7BIT = '7',
        ENCODER_8BIT = '8',
        ENCODER_BASE64 = 'B',
        ENCODER_QP = 'Q',
        ENCODER_BINARY = 'b'
    };

    ///@{
    /// The names of the MIME header fields, with their lengths.
    static const char* const m_szContentType;
    static const int m_nContentTypeLen;
    static const char* const m_szTransferEncoding;
    static const int m_nTransferEncodingLen;
    static const char* const m_szDisposition;
    static const int m_nDisposionLen;
    static const char* const m_szMimeVersion;
    static const int m_nMimeVersionLen;
    static const char* const m_szBoundary;
    static const int m_nBoundaryLen;
    ///@}

    ///@{
    /// Null-terminated; the index of a name is its CT value.
    static const char* const m_szMIMEType[];
    static const int m_nMIMETypeLen[];
    ///@}
    ///@{
    /// Null-terminated; the index of a name is its SUBCT value, except that index 12 is MS_TNEF.
    static const char* const m_szSubMIMEType[];
    static const int m_nSubMIMETypeLen[];
    ///@}

private:
    QLMAIL_LOCAL CQLMimeConst();
};

#endif
