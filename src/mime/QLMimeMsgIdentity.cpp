#include "mime/QLMimeMsg.h"

#include "codec/QLCodecParser.h"
#include "codec/QLHdrCodec.h"

#include <chardet/chardet.h>

#include <algorithm>
#include <cstring>
#include <strings.h>

namespace {

// Characters that a path or the format string can't hold become "_" in a file name.
char StorableChar(char c) {
    switch (c) {
    case '/':
    case '\\':
    case ':':
    case '"':
    case '*':
    case '<':
    case '>':
    case '|':
    case '?':
    case ',': // a comma would shift the fields of the format string
        return '_';
    default:
        return c;
    }
}

// FixFilename in place, and the line breaks of a folded value removed.
void MakeStorableName(std::string& strName) {
    for (char& c : strName) c = StorableChar(c);
    strName.erase(std::remove_if(strName.begin(), strName.end(),
                                 [](char c) { return c == '\r' || c == '\n'; }),
                  strName.end());
}

} // namespace

CQLMimeMsg::PartFields CQLMimeMsg::FindPartFields(const CQLMimeHdr& hdr) {
    // The first field of each name, as FindHdrItem would find it, in one walk.
    PartFields fields;
    auto take = [](const CQLMimeHdrItem& item, const CQLMimeHdrItem*& pFound, const char* pszName,
                   size_t nLen) {
        if (pFound == nullptr && strncasecmp(item.m_strName.c_str(), pszName, nLen) == 0)
            pFound = &item;
    };
    for (const CQLMimeHdrItem& item : hdr) {
        switch (item.m_strName.size()) {
        case 12:
            take(item, fields.pType, CQLMimeConst::m_szContentType, 12);
            break;
        case 19:
            take(item, fields.pDisposition, CQLMimeConst::m_szDisposition, 19);
            break;
        case 10:
            take(item, fields.pCID, "Content-ID", 10);
            break;
        case 7:
            take(item, fields.pSubject, "subject", 7);
            break;
        case 25:
            take(item, fields.pEncoding, CQLMimeConst::m_szTransferEncoding, 25);
            break;
        default:
            break;
        }
    }
    return fields;
}

CQLMimeMsg::PartFields CQLMimeMsg::FindPartFields() const {
    return FindPartFields(*GetQLMimeMsgPtr()->GetHdrPtr());
}

std::string CQLMimeMsg::GetCID() {
    const CQLMimeHdrItem* pItem = FindPartFields().pCID;
    return pItem ? pItem->m_strValue : std::string();
}

std::string CQLMimeMsg::GetSubject() {
    const CQLMimeHdrItem* pItem = FindPartFields().pSubject;
    return pItem ? pItem->m_strValue : std::string();
}

std::string CQLMimeMsg::GetCharSet() {
    return CharSetOf(FindPartFields());
}

std::string CQLMimeMsg::CharSetOf(const PartFields& fields) {
    std::string strCharset =
        fields.pType ? fields.pType->GetParameter("charset", 7) : std::string();
    if (!strCharset.empty()) {
        if (strCharset.front() == '\'') strCharset.erase(0, 1);
        if (!strCharset.empty() && strCharset.back() == '\'') strCharset.pop_back();
        if (strcasecmp(strCharset.c_str(), "x-unknown") == 0) strCharset = "UTF-8";
        return strCharset;
    }
    if (!m_strMainCharSet.empty()) return m_strMainCharSet;
    if (fields.pSubject == nullptr || fields.pSubject->m_strValue.empty()) return std::string();
    const std::string& strSubject = fields.pSubject->m_strValue;
    // Decode with O_ITEM_CS throws its text away: only the word charset is worked out.
    CQLHdrCodec codec;
    const std::string strWordCharset = codec.GetWordCharset(strSubject);
    if (!strWordCharset.empty()) return strWordCharset;
    return DetectCharset(strSubject);
}

std::string CQLMimeMsg::DetectCharset(const std::string& strText) {
    std::string strResult;
    // Seven-bit text without ESC or "~" is ASCII to the detector, an answer never given back,
    // so the detector need not be started for it.
    if (std::all_of(strText.begin(), strText.end(),
                    [](unsigned char c) { return c < 0x80 && c != 0x1B && c != '~'; }))
        return strResult;
    Detect* pDetect = detect_init();
    if (pDetect == nullptr) return strResult;
    detect_reset(&pDetect);
    DetectObj* pObj = detect_obj_init();
    if (pObj != nullptr) {
        // The detector reads text up to its first NUL byte.
        const std::string strCopy(strText.c_str());
        const short nRet = detect_handledata(&pDetect, strCopy.c_str(), &pObj);
        if (nRet != CHARDET_OUT_OF_MEMORY && nRet != CHARDET_NULL_OBJECT && pObj != nullptr &&
            pObj->encoding != nullptr && strcmp(pObj->encoding, "ASCII") != 0 &&
            pObj->confidence > 0.8f)
            strResult = pObj->encoding;
        if (nRet != CHARDET_NULL_OBJECT) detect_obj_free(&pObj);
    }
    detect_destroy(&pDetect);
    return strResult;
}

std::string CQLMimeMsg::GetFilename(bool& bAttachment) {
    return FilenameOf(FindPartFields(), bAttachment);
}

std::string CQLMimeMsg::FilenameOf(const PartFields& fields, bool& bAttachment) {
    bAttachment = false;
    std::string strName;
    const CQLMimeHdrItem* pDisposition = fields.pDisposition;
    if (pDisposition != nullptr) {
        bAttachment = pDisposition->m_strValue.find("attachment") != std::string::npos;
        strName = pDisposition->GetParameter("filename", 8);
    }
    if (strName.empty() && fields.pType != nullptr) strName = fields.pType->GetParameter("name", 4);
    if (strName.empty()) {
        switch (m_CT) {
        case CQLMimeConst::IMAGE:
        case CQLMimeConst::AUDIO:
        case CQLMimeConst::VIDEO:
        case CQLMimeConst::APPLICATION: {
            const size_t nDot = m_strDepth.rfind('.');
            return "noname_" +
                   (nDot == std::string::npos ? m_strDepth : m_strDepth.substr(0, nDot));
        }
        default:
            return std::string();
        }
    }
    CQLHdrCodec codec;
    strName = codec.Decode(strName, "UTF-8", m_strCharSet, CQLHdrCodec::O_HDRCODEC_NONE);
    MakeStorableName(strName);
    return strName;
}

std::string CQLMimeMsg::FixFilename(const std::string& strName) {
    std::string strOut(strName);
    for (char& c : strOut) c = StorableChar(c);
    return strOut;
}

bool CQLMimeMsg::IsImageExtention(const std::string& strName) {
    const size_t nDot = strName.rfind('.');
    if (nDot == std::string::npos || strName.size() - nDot - 1 != 3) return false;
    const char* pszExt = strName.c_str() + nDot + 1;
    return strcasecmp(pszExt, "jpg") == 0 || strcasecmp(pszExt, "gif") == 0 ||
           strcasecmp(pszExt, "png") == 0 || strcasecmp(pszExt, "bmp") == 0;
}

void CQLMimeMsg::NameEmbeddedMessage(unsigned long nHdr, unsigned long nEnd) {
    unsigned long nPos = nHdr;
    for (;;) {
        char szTwo[3] = {0, 0, 0};
        if (m_pSource->SubStr(szTwo, nPos, 2) == 0) break;
        if (szTwo[0] == '\r' && szTwo[1] == '\n')
            nPos += 2;
        else if (szTwo[0] == '\n')
            nPos += 1;
        else
            break;
    }
    std::string strRest = nPos < nEnd ? m_pSource->SubStr(nPos, nEnd - nPos) : std::string();
    CQLCodecParser codec;
    if (m_Encoder == CQLMimeConst::ENCODER_BASE64)
        strRest = codec.DecodeB64(strRest, true);
    else if (m_Encoder == CQLMimeConst::ENCODER_QP)
        strRest = codec.DecodeQP(strRest, true);
    if (!strRest.empty()) {
        CQLMimeStr inner;
        inner.SetData(strRest, false);
        CQLMimeHdr hdr;
        if (hdr.Parse(&inner, 0) != CQLIMimeStr::NOT_FOUND) {
            const CQLMimeHdrItem* pSubject = hdr.FindHdrItem("subject", 7);
            if (pSubject != nullptr) {
                CQLHdrCodec hdrCodec;
                std::string strName = hdrCodec.Decode(pSubject->m_strValue, "UTF-8", m_strCharSet,
                                                      CQLHdrCodec::O_HDRCODEC_NONE);
                MakeStorableName(strName);
                if (!strName.empty()) m_strFilename = strName + ".eml";
            }
        }
    }
    if (m_strFilename.empty()) m_strFilename = "noname.eml";
    m_bHasAttach = true;
}
