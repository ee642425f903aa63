#ifndef QLMAIL_READER_QLMIMEATTACHINFO_H
#define QLMAIL_READER_QLMIMEATTACHINFO_H

#include "foundation/QLExport.h"

#include <string>

/// Describes one attachment or inline image of a stored message: where its body lies in the
/// file, what it is, and its decoded name. Travels out to Java and back, so every field is a
/// plain value; MSO and MEO do not survive that trip.
///
/// CQLMimeMsgInfo::GetNextAttach() and GetNextCID() fill one; OpenAttach() and
/// GetAttachContentNext() then read its body.
class QLMAIL_EXPORT CQLMimeAttachInfo {
public:
    /// Every number 0, both texts empty.
    CQLMimeAttachInfo();
    virtual ~CQLMimeAttachInfo() {}

    ///@{
    /// The body's offsets.
    unsigned int m_nStartPos;
    unsigned int m_nEndPos;
    ///@}
    ///@{
    /// The part's header block, set by GetNextAttach only.
    unsigned int m_nMSO;
    unsigned int m_nMEO;
    ///@}
    int m_nContentType;        ///< CQLMimeConst::CT
    int m_nSubContentType;     ///< CQLMimeConst::SUBCT
    int m_nEncoding;           ///< the ENCODER character, 0 when unknown
    int m_nLineCnt;            ///< Lines of the body.
    std::string m_strAttachId; ///< part number, "1.2."
    std::string m_strFileName; ///< decoded file name, or the Content-ID for an inline image
};

#endif
