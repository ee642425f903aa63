// Attachment lists and text part selection on a parsed tree, and the part walk that these and
// the banner and tag operations share.

#include "mime/QLMimeMsg.h"

#include "codec/QLCodecParser.h"
#include "codec/QLConvParser.h"
#include "codec/QLHdrCodec.h"
#include "foundation/QLStringParser.h"

#include <algorithm>

namespace {

const unsigned long kSizePiece = 65536;

std::string TrimmedValue(const CQLMimeHdrItem* pItem) {
    CQLStringParser str;
    return pItem ? str.Trim(pItem->m_strValue, CQLStringParser::TRIM_BOTH) : std::string();
}

// The raw header block of a part, trimmed.
std::string RawHeader(const CQLMimeMsg& part) {
    CQLStringParser str;
    return str.Trim(part.SubStr(part.m_nMSO, part.m_nMEO - part.m_nMSO),
                    CQLStringParser::TRIM_BOTH);
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Part walk and named parts

CQLMimeMsg* CQLMimeMsg::MainMsg() const {
    return m_pTop;
}

void CQLMimeMsg::WalkParts(const std::function<bool(CQLMimeMsg&)>& fn) {
    CQLMimeMsg* pMain = MainMsg();
    if (pMain == nullptr) return;
    pMain->InitMsgCursor();
    CQLMimeMsg part;
    while (pMain->GetNextMsg(part))
        if (!fn(part)) return;
}

bool CQLMimeMsg::IsNamedPart(unsigned int nTypeFieldLen) const {
    const CQLMimeHdrItem* pDisposition =
        FindHdrItem(CQLMimeConst::m_szDisposition, CQLMimeConst::m_nDisposionLen);
    if (pDisposition != nullptr && !pDisposition->GetParameter("filename", 8).empty()) return true;
    const CQLMimeHdrItem* pType = FindHdrItem(CQLMimeConst::m_szContentType, nTypeFieldLen);
    return pType != nullptr && !pType->GetParameter("name", 4).empty();
}

// ---------------------------------------------------------------------------------------------
// Attachment lists

bool CQLMimeMsg::SelectAttach(CQLMimeMsg& part, std::string& strName) {
    const std::string strCID = part.GetCID();
    bool bAttach = false;
    strName = part.GetFilename(bAttach);
    if (!strName.empty())
        return bAttach || strCID.empty() ||
               (part.m_CT != CQLMimeConst::IMAGE && !IsImageExtention(strName));
    if (part.m_CT != CQLMimeConst::MESSAGE || part.m_SubCT != CQLMimeConst::RFC822) return false;
    // An embedded message is named after its subject.
    std::string strBody;
    part.GetBody(strBody, true);
    if (!strBody.empty()) {
        CQLMimeStr inner;
        inner.SetData(strBody, false);
        CQLMimeHdr hdr;
        const CQLMimeHdrItem* pSubject = hdr.Parse(&inner, 0) != CQLIMimeStr::NOT_FOUND
                                             ? hdr.FindHdrItem("subject", 7)
                                             : nullptr;
        if (pSubject != nullptr) {
            CQLHdrCodec codec;
            CQLStringParser str;
            strName = FixFilename(codec.Decode(pSubject->m_strValue, "UTF-8", m_strCharSet,
                                               CQLHdrCodec::O_HDRCODEC_NONE));
            strName = str.ReplaceAll(str.ReplaceAll(strName, "\r", ""), "\n", "");
            if (!strName.empty()) strName += ".eml";
        }
    }
    if (strName.empty()) strName = "noname.eml";
    return true;
}

long long CQLMimeMsg::DecodedSize(const CQLMimeMsg& part) {
    CQLCodecParser codec;
    const bool bB64 = part.m_Encoder == CQLMimeConst::ENCODER_BASE64;
    const bool bQP = part.m_Encoder == CQLMimeConst::ENCODER_QP;
    std::string strChunk, strCarry;
    unsigned long nPos = part.m_nBSO;
    int32_t nLeft = static_cast<int32_t>(part.m_nBEO - part.m_nBSO);
    long long nSize = 0;
    while (nLeft >= 1) {
        const unsigned long nGot =
            part.SubStr(nPos, std::min<unsigned long>(nLeft, kSizePiece), strChunk);
        if (nGot == 0) break;
        if (bB64 || bQP) {
            // Whole lines are decoded; the rest waits for the next piece.
            strChunk = strCarry + strChunk;
            const size_t nLF = strChunk.rfind('\n');
            if (nLF != std::string::npos) {
                strCarry = strChunk.substr(nLF + 1);
                strChunk.resize(nLF + 1);
            } else {
                strCarry.clear();
            }
            strChunk = bB64 ? codec.DecodeB64(strChunk, true) : codec.DecodeQP(strChunk, true);
        }
        nPos += nGot;
        nLeft -= static_cast<int32_t>(nGot);
        nSize += static_cast<long long>(strChunk.size());
    }
    return nSize;
}

long long CQLMimeMsg::GetAttachFileList(std::vector<TFileList>& List, long long& nTotal) {
    List.clear();
    nTotal = 0;
    WalkParts([&](CQLMimeMsg& part) {
        std::string strName;
        if (!SelectAttach(part, strName)) return true;
        List.push_back(TFileList{strName, part.m_Encoder, part.m_CT, part.m_nBSO, part.m_nBEO,
                                 part.m_nLineCnt, part.GetDepth(), DecodedSize(part)});
        if (part.m_nBEO > part.m_nBSO) nTotal += part.m_nBEO - part.m_nBSO;
        return true;
    });
    return static_cast<long long>(List.size());
}

long long CQLMimeMsg::GetAttachFileList(std::vector<std::string>& List, long long& nTotal) {
    List.clear();
    nTotal = 0;
    WalkParts([&](CQLMimeMsg& part) {
        std::string strName;
        if (!SelectAttach(part, strName)) return true;
        List.push_back(strName);
        if (part.m_nBEO > part.m_nBSO) nTotal += part.m_nBEO - part.m_nBSO;
        return true;
    });
    return static_cast<long long>(List.size());
}

long long CQLMimeMsg::GetAttachFileList(std::string& strList, unsigned int& nCount,
                                        long long& nTotal, char cSep) {
    strList.clear();
    nCount = 0;
    std::vector<std::string> vNames;
    const long long nNames = GetAttachFileList(vNames, nTotal);
    if (nNames == 0) return 0;
    nCount = static_cast<unsigned int>(nNames);
    const char cDelim = static_cast<signed char>(cSep) <= 0 ? ',' : cSep;
    for (const std::string& strName : vNames) {
        if (strName.empty()) continue;
        strList += strName;
        strList += cDelim;
    }
    return nNames;
}

int CQLMimeMsg::GetAttachFileList(std::vector<TAttachList>& List) {
    List.clear();
    std::vector<TAttachList> vList;
    const CQLMimeMsg* pMain = MainMsg() ? MainMsg() : this;
    // The entries themselves, not copies: the cursor of the main message stays where it is.
    for (CQLMimeMsg* pPart : *pMain) {
        std::string strName;
        if (!SelectAttach(*pPart, strName)) continue;
        const CQLMimeHdrItem* pEncoding = pPart->FindHdrItem(CQLMimeConst::m_szTransferEncoding,
                                                             CQLMimeConst::m_nTransferEncodingLen);
        TAttachList item;
        item.nType = 1;
        item.nStartPos = pPart->m_nBSO;
        item.nEndPos = pPart->m_nBEO;
        item.nSize = static_cast<uint32_t>(DecodedSize(*pPart));
        item.nEncoder = pPart->m_Encoder;
        item.strFileName = strName;
        item.strContentType = TrimmedValue(
            pPart->FindHdrItem(CQLMimeConst::m_szContentType, CQLMimeConst::m_nContentTypeLen));
        item.strCID = pPart->GetCID();
        item.strTransferEncoding = pEncoding ? TrimmedValue(pEncoding) : "None";
        item.strMimeHdr = RawHeader(*pPart);
        item.strDepth = pPart->GetDepth();
        vList.push_back(std::move(item));
    }
    List = std::move(vList);
    return 1;
}

bool CQLMimeMsg::HasAttachFileInPart() {
    if (!m_bWrapper) return m_Hdr.m_bAttachment;
    if (empty() || front() == this)
        throw CQLExceptionParser("In HasAttachFileInPart(), invalid mime msg.", 0);
    return front()->m_Hdr.m_bAttachment;
}

// ---------------------------------------------------------------------------------------------
// Text part selection

bool CQLMimeMsg::GetTextPart(std::string& strPlain, std::string& strHtml) {
    m_strLastError.clear();
    bool bPlain = false, bHtml = false;
    std::string strBody;
    WalkParts([&](CQLMimeMsg& part) {
        if (part.IsNamedPart(CQLMimeConst::m_nContentTypeLen)) return true;
        if (part.m_CT != CQLMimeConst::TEXT) return true;
        if (part.m_SubCT == CQLMimeConst::HTML) {
            if (!part.GetBody(strBody, true)) return true;
            strHtml.swap(strBody);
            bHtml = true;
        } else if (part.m_SubCT == CQLMimeConst::PLAIN) {
            if (!part.GetBody(strBody, true)) return true;
            strPlain.swap(strBody);
            bPlain = true;
        }
        return !(bPlain && bHtml);
    });
    return bPlain || bHtml;
}

bool CQLMimeMsg::GetTextPart(std::string& strPlainHdr, std::string& strPlain,
                             std::string& strHtmlHdr, std::string& strHtml) {
    m_strLastError.clear();
    bool bPlain = false, bHtml = false, bFailed = false;
    WalkParts([&](CQLMimeMsg& part) {
        if (part.IsNamedPart(CQLMimeConst::m_nContentTypeLen)) return true;
        const std::string strHdr = RawHeader(part);
        if (part.m_CT != CQLMimeConst::TEXT) return !(bPlain && bHtml);
        CQLConvParser conv;
        std::string strFrom = part.GetCharSet();
        if (strFrom.empty()) strFrom = "UTF-8";
        if (!conv.Open(strFrom, "UTF-8", true)) {
            m_strLastError = "In GetTextPart, " + conv.GetLastError();
            bFailed = true;
            return false;
        }
        try {
            const bool bIsHtml = part.m_SubCT == CQLMimeConst::HTML;
            if (bIsHtml || part.m_SubCT == CQLMimeConst::PLAIN) {
                std::string strBody;
                if (part.GetBody(strBody, true)) {
                    (bIsHtml ? strHtml : strPlain) = conv.Conv(strBody);
                    // A part counts only with a header to go with it.
                    if (!strHdr.empty()) {
                        (bIsHtml ? strHtmlHdr : strPlainHdr) = conv.Conv(strHdr);
                        (bIsHtml ? bHtml : bPlain) = true;
                    }
                }
            }
        } catch (CQLExceptionParser& e) {
            conv.Close();
            m_strLastError = "In GetTextPart, " + e.GetLastError();
            bFailed = true;
            return false;
        }
        conv.Close();
        return !(bPlain && bHtml);
    });
    return !bFailed && (bPlain || bHtml);
}
