#ifndef QLMAIL_READER_QLMIMEATTACHINFO_H
#define QLMAIL_READER_QLMIMEATTACHINFO_H

#include "foundation/QLExport.h"

#include <string>

// Describes one attachment or inline image of a stored message: where its body lies in the
// file, what it is, and its decoded name. Travels out to Java and back, so every field is a
// plain value; MSO and MEO do not survive that trip.
class QLMAIL_EXPORT CQLMimeAttachInfo {
public:
    CQLMimeAttachInfo();
    virtual ~CQLMimeAttachInfo() {}

    unsigned int m_nStartPos; // body offsets
    unsigned int m_nEndPos;
    unsigned int m_nMSO; // the part's header block, set by GetNextAttach only
    unsigned int m_nMEO;
    int m_nContentType;    // CQLMimeConst::CT
    int m_nSubContentType; // CQLMimeConst::SUBCT
    int m_nEncoding;       // the ENCODER character, 0 when unknown
    int m_nLineCnt;
    std::string m_strAttachId; // part number, "1.2."
    std::string m_strFileName; // decoded file name, or the Content-ID for an inline image
};

#endif
