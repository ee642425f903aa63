// Rewriting a stored message in place: header edits and their write-back, body replacement,
// banners and tracking tags. The offsets of the tree are moved by the change in length rather
// than parsed again.

#include "mime/QLMimeMsg.h"

#include "codec/QLCodecParser.h"
#include "codec/QLConvParser.h"
#include "codec/QLMimeCodec.h"
#include "foundation/QLStringParser.h"
#include "foundation/QLSystemError.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <strings.h>
#include <unistd.h>

namespace {

// How an offset moves when a node of the list changes length.
enum Move : unsigned char {
    STAY,
    ALWAYS, // by delta
    IF_SET, // by delta when it is not 0
    BOTH,   // TSO and TEO together, when both are not 0
};

// One row of a patching table. Hdr is the node's header block (m_nHdrStart, m_nHdrEnd).
struct PatchRow {
    Move hso, heo, hdr, tso, teo, mso, meo, bso, beo;
};

// Rows, in this order: a node before the changed one, the changed node, a node after it; each
// first as a container (multipart or message), then as a leaf.
//
// After a header write-back. Every earlier container moves its end, whether it encloses the
// changed node or not, and a later leaf keeps its HSO although its header has moved.
// clang-format off
const PatchRow kHdrTable[6] = {
    // HSO   HEO     Hdr   TSO     TEO     MSO     MEO     BSO     BEO
    {STAY,   STAY,   STAY, STAY,   ALWAYS, STAY,   STAY,   STAY,   ALWAYS}, // earlier container
    {STAY,   STAY,   STAY, STAY,   STAY,   STAY,   STAY,   STAY,   STAY},   // earlier leaf
    {STAY,   IF_SET, STAY, IF_SET, IF_SET, STAY,   IF_SET, ALWAYS, ALWAYS}, // this container
    {STAY,   IF_SET, STAY, IF_SET, IF_SET, STAY,   IF_SET, ALWAYS, ALWAYS}, // this leaf
    {IF_SET, IF_SET, STAY, IF_SET, IF_SET, IF_SET, IF_SET, ALWAYS, ALWAYS}, // later container
    {STAY,   IF_SET, STAY, BOTH,   BOTH,   ALWAYS, IF_SET, ALWAYS, ALWAYS}, // later leaf
};

// After a body replacement: a set of its own, which differs from the one above on purpose. A
// later leaf keeps HSO, HEO and TSO, and the changed leaf moves only its end.
const PatchRow kBodyTable[6] = {
    // HSO   HEO     Hdr     TSO     TEO     MSO     MEO     BSO     BEO
    {STAY,   STAY,   STAY,   STAY,   ALWAYS, STAY,   STAY,   STAY,   ALWAYS}, // earlier container
    {STAY,   STAY,   STAY,   STAY,   STAY,   STAY,   STAY,   STAY,   STAY},   // earlier leaf
    {STAY,   STAY,   STAY,   IF_SET, IF_SET, IF_SET, IF_SET, ALWAYS, ALWAYS}, // this container
    {STAY,   STAY,   STAY,   STAY,   IF_SET, STAY,   STAY,   STAY,   ALWAYS}, // this leaf
    {IF_SET, IF_SET, ALWAYS, IF_SET, IF_SET, IF_SET, IF_SET, ALWAYS, ALWAYS}, // later container
    {STAY,   STAY,   ALWAYS, STAY,   IF_SET, ALWAYS, ALWAYS, ALWAYS, ALWAYS}, // later leaf
};
// clang-format on

template <class T> void Apply(T& nOffset, Move eMove, int32_t nDelta, bool bBothSet) {
    const bool bMove =
        eMove == ALWAYS || (eMove == IF_SET && nOffset != 0) || (eMove == BOTH && bBothSet);
    // Unsigned arithmetic: a shrinking node moves offsets down modulo the width.
    if (bMove) nOffset = static_cast<T>(nOffset + static_cast<T>(static_cast<int64_t>(nDelta)));
}

std::string SysError() {
    return CQLSystemError::GetStrError(errno);
}

// Pieces in which a file is copied into a temporary file: big enough that a copy costs few
// system calls, small enough that memory stays flat.
const unsigned long kCopyPiece = 1 << 20;

// Copies nLen bytes of the source at nOffset to the file. On failure strError tells why: the
// source's text for a read, the file's for a write, as the source's own copy would report it.
bool CopyRange(CQLIMimeStr* pSource, unsigned long nOffset, unsigned long nLen, CQLFileParser& file,
               std::string& strError) {
    const bool bMem = pSource->GetType() == 0;
    const char* const pszPrefix = bMem ? "In CQLMimeStr::SubStr(), " : "In CQLMimeFile::SubStr(), ";
    if (nOffset > pSource->GetLength() || nLen > pSource->GetLength() - nOffset) {
        strError = std::string(pszPrefix) + "the range lies outside the message";
        return false;
    }
    if (bMem) {
        // One write straight from the message; the source reports a failed write itself.
        if (pSource->SubStr(nOffset, nLen, file) == nLen) return true;
        strError = pSource->GetLastError();
        return false;
    }
    // Between two files the kernel copies, as cp does; where it cannot (a file system without
    // the call, or across two of them), the bytes go through a buffer.
    const int nIn = static_cast<CQLMimeFile*>(pSource)->GetFileObject()->GetFD();
    loff_t nFrom = static_cast<loff_t>(nOffset);
    unsigned long nDone = 0;
    while (nDone < nLen) {
        const ssize_t n = copy_file_range(nIn, &nFrom, file.GetFD(), nullptr, nLen - nDone, 0);
        if (n > 0) {
            nDone += static_cast<unsigned long>(n);
            continue;
        }
        if (n == 0) {
            strError = std::string(pszPrefix) + "the file ended early";
            return false;
        }
        if (errno == EINTR) continue;
        if (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP ||
            errno == EBADF)
            break;
        strError = pszPrefix + SysError();
        return false;
    }
    std::string strPiece;
    while (nDone < nLen) {
        const unsigned long nWant = std::min(kCopyPiece, nLen - nDone);
        if (pSource->SubStr(nOffset + nDone, nWant, strPiece) != nWant) {
            // A file that shrank since it was opened must not give a message with a hole.
            strError = strPiece.empty() ? pSource->GetLastError()
                                        : std::string(pszPrefix) + "the file ended early";
            return false;
        }
        try {
            file.Write(strPiece);
        } catch (CQLExceptionParser& e) {
            strError = pszPrefix + e.GetLastError();
            return false;
        }
        nDone += nWant;
    }
    return true;
}

// The temporary file beside a message: unique to the second only.
std::string TempName(const std::string& strPath) {
    return strPath + "." + std::to_string(static_cast<long>(time(nullptr))) + ".tmp";
}

// Opens the temporary file beside a message. It is truncated: a stale one of the same name
// must not leave its tail behind the new message.
bool OpenTemp(CQLFileParser& tmp, const std::string& strTmp) {
    try {
        tmp.SetFileName(strTmp, false);
        return tmp.Open(CQLFileParser::FILE_WRITE | CQLFileParser::FILE_TRUNC |
                        CQLFileParser::FILE_BINARY);
    } catch (CQLExceptionParser&) {
        return false;
    }
}

// A field value as it is stored: raw, or one encoded word with no folding of its own.
std::string FieldValue(const std::string& strValue, CQLMimeConst::ENCODER eEncoder,
                       const char* pszCharset, bool bEncode) {
    if (!bEncode) return strValue;
    CQLCodecParser codec;
    std::string strOut = "=?" + std::string(pszCharset ? pszCharset : "");
    if (eEncoder == CQLMimeConst::ENCODER_BASE64)
        strOut += "?B?" + codec.EncodeB64(strValue, true, true, 54);
    else if (eEncoder == CQLMimeConst::ENCODER_QP)
        strOut += "?Q?" + codec.EncodeQP(strValue, true, true, 54);
    return strOut + "?=";
}

bool SameName(const std::string& strA, const std::string& strB) {
    return strA.size() == strB.size() && strncasecmp(strA.c_str(), strB.c_str(), strA.size()) == 0;
}

// Base URL, the port unless it is the scheme's default, and the path.
std::string UrlBase(const std::string& strBaseURL, int nPort, const std::string& strPath) {
    const bool bHttps = strBaseURL.size() > 4 && strncasecmp(strBaseURL.c_str(), "https", 5) == 0;
    std::string strURL = strBaseURL;
    if (nPort != (bHttps ? 443 : 80)) strURL += ":" + std::to_string(nPort);
    return strURL + strPath;
}

// A value in a tag's URL: base64 without line breaks, then percent-coded.
std::string UrlValue(const std::string& strValue) {
    if (strValue.empty()) return std::string();
    CQLCodecParser codec;
    CQLMimeCodec mime;
    return mime.URLEncode(codec.EncodeB64(strValue, false, true, 54).c_str());
}

// The last "</body>" at byte 1 or later, "body" in any case; npos when there is none.
size_t FindBodyEnd(const std::string& strBody) {
    const size_t nTag = 7;
    if (strBody.size() < nTag + 1) return std::string::npos;
    for (size_t i = strBody.size() - nTag; i >= 1; --i)
        if (strBody.compare(i, 2, "</") == 0 &&
            strncasecmp(strBody.c_str() + i + 2, "body", 4) == 0 && strBody[i + 6] == '>')
            return i;
    return std::string::npos;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Offset patching

void CQLMimeMsg::PatchOffsets(PatchTable eTable, int nIndex, int32_t nDelta) {
    const PatchRow* pTable = eTable == PATCH_HDR ? kHdrTable : kBodyTable;
    for (size_t i = 0; i < size(); ++i) {
        CQLMimeMsg* p = (*this)[i];
        const bool bContainer =
            p->m_CT == CQLMimeConst::MULTIPART || p->m_CT == CQLMimeConst::MESSAGE;
        const long long nAt = static_cast<long long>(i);
        const int nRow = (nAt < nIndex ? 0 : nAt == nIndex ? 2 : 4) + (bContainer ? 0 : 1);
        const PatchRow& row = pTable[nRow];
        const bool bBoth = p->m_nTSO != 0 && p->m_nTEO != 0;
        Apply(p->m_nHSO, row.hso, nDelta, bBoth);
        Apply(p->m_nHEO, row.heo, nDelta, bBoth);
        Apply(p->m_Hdr.m_nHdrStart, row.hdr, nDelta, bBoth);
        Apply(p->m_Hdr.m_nHdrEnd, row.hdr, nDelta, bBoth);
        Apply(p->m_nTSO, row.tso, nDelta, bBoth);
        Apply(p->m_nTEO, row.teo, nDelta, bBoth);
        Apply(p->m_nMSO, row.mso, nDelta, bBoth);
        Apply(p->m_nMEO, row.meo, nDelta, bBoth);
        Apply(p->m_nBSO, row.bso, nDelta, bBoth);
        Apply(p->m_nBEO, row.beo, nDelta, bBoth);
    }
}

// ---------------------------------------------------------------------------------------------
// Header editing

bool CQLMimeMsg::AddHdrItem(const std::string& strName, const std::string& strValue,
                            CQLMimeConst::ENCODER eEncoder, const char* pszCharset, bool bEncode,
                            bool bFront, bool bWriteBack) {
    CQLMimeHdr* pHdr = GetQLMimeMsgPtr()->GetHdr();
    const std::string strStored = FieldValue(strValue, eEncoder, pszCharset, bEncode);
    CQLMimeHdrItem item(strName, strStored, strName + ": " + strStored);
    if (bFront)
        pHdr->push_front(std::move(item));
    else
        pHdr->push_back(std::move(item));
    m_bHdrChanged = true;
    return bWriteBack ? UpdateHdr() : true;
}

bool CQLMimeMsg::ModifyHdrItem(const std::string& strName, const std::string& strValue,
                               CQLMimeConst::ENCODER eEncoder, const char* pszCharset, bool bEncode,
                               bool bWriteBack) {
    for (CQLMimeHdrItem& item : *GetHdr()) {
        if (!SameName(item.m_strName, strName)) continue;
        item.m_strName = strName;
        item.m_strValue = FieldValue(strValue, eEncoder, pszCharset, bEncode);
        item.m_strRaw = strName + ": " + item.m_strValue;
        m_bHdrChanged = true;
        break;
    }
    // A write-back without a match still flushes earlier edits.
    return m_bHdrChanged && bWriteBack ? UpdateHdr() : true;
}

bool CQLMimeMsg::DelHdrItem(const std::string& strName, bool bWriteBack) {
    CQLMimeHdr* pHdr = GetHdr();
    for (auto it = pHdr->begin(); it != pHdr->end(); ++it) {
        if (!SameName(it->m_strName, strName)) continue;
        pHdr->erase(it);
        m_bHdrChanged = true;
        break;
    }
    return m_bHdrChanged && bWriteBack ? UpdateHdr() : true;
}

bool CQLMimeMsg::CreateMsgID(const std::string& strMsgID) {
    if (!m_bWrapper) return false;
    if (!GetMsgID().empty()) return true;
    return AddHdrItem("Message-ID", strMsgID, CQLMimeConst::ENCODER_7BIT, "euc-kr", false, false,
                      true);
}

bool CQLMimeMsg::SetHdr(const CQLMimeHdr& hdr) {
    *GetHdr() = hdr;
    m_bHdrChanged = true;
    return UpdateHdr();
}

void CQLMimeMsg::InitHdrCursor(const std::string& strFilter) {
    m_strHdrFilter = strFilter;
    m_itHdrCursor = GetHdrPtr()->begin();
}

bool CQLMimeMsg::GetNextHdrItem(CQLMimeHdrItem& item) {
    CQLMimeHdr* pHdr = GetHdrPtr();
    // The cursor is looked up in the list it walks: an edit may have removed its item, and a
    // cursor never set points nowhere.
    auto it = pHdr->begin();
    while (it != pHdr->end() && it != m_itHdrCursor) ++it;
    for (; it != pHdr->end(); ++it)
        if (m_strHdrFilter.empty() || SameName(it->m_strName, m_strHdrFilter)) break;
    m_itHdrCursor = it;
    if (it == pHdr->end()) return false;
    item = *it;
    ++m_itHdrCursor;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Header write-back

bool CQLMimeMsg::UpdateHdr() {
    if (!m_bHdrChanged) return true;
    CQLMimeMsg* pNode = GetQLMimeMsgPtr();
    const CQLMimeHdr* pHdr = pNode->GetHdr();
    CQLIMimeStr* pSource = pNode->m_pSource;
    if (pSource == nullptr) {
        m_strLastError = "In UpdateHdr(), the message is not open";
        return false;
    }
    const bool bPartRange =
        pNode->m_nHSO == 0 && pNode->m_nHEO == 0 && pNode->m_nMSO != 0 && pNode->m_nMEO != 0;
    const unsigned long nStart = bPartRange ? pNode->m_nMSO : pNode->m_nHSO;
    const unsigned long nEnd = bPartRange ? pNode->m_nMEO : pNode->m_nHEO;
    const unsigned long nLength = pSource->GetLength();
    m_strLastError.clear();
    if (nStart > nEnd || nEnd > nLength) {
        m_strLastError = "In UpdateHdr(), the header lies outside the message";
        return false;
    }

    std::string strBlock;
    for (const CQLMimeHdrItem& item : *pHdr) {
        strBlock += item.m_strName;
        strBlock += ": ";
        // A field parsed from mail with LF line ends keeps that LF in its value; written in
        // front of the CR LF below it would end the header block there.
        const size_t nKeep = item.m_strValue.find_last_not_of("\r\n");
        strBlock.append(item.m_strValue, 0, nKeep == std::string::npos ? 0 : nKeep + 1);
        strBlock += "\r\n";
    }
    const int32_t nDelta = static_cast<int32_t>(nStart + strBlock.size() - nEnd);

    if (pSource->GetType() == 0) {
        const std::string& strData = pSource->GetData();
        std::string strText;
        strText.reserve(nStart + strBlock.size() + (nLength - nEnd));
        strText.append(strData, 0, nStart)
            .append(strBlock)
            .append(strData, nEnd, std::string::npos);
        pSource->SetData(strText, false);
    } else {
        const std::string strPath = pSource->GetData();
        const std::string strTmp = TempName(strPath);
        CQLFileParser tmp;
        if (!OpenTemp(tmp, strTmp)) {
            m_strLastError = "In UpdateHdr(), fail to open tmp file, " + tmp.GetLastError();
            return false;
        }
        std::string strError;
        try {
            if (nStart > 0 && !CopyRange(pSource, 0, nStart, tmp, strError)) {
                m_strLastError = "In UpdateHdr(), " + strError;
            } else {
                tmp.Write(strBlock);
                if (nEnd != nLength && !CopyRange(pSource, nEnd, nLength - nEnd, tmp, strError))
                    m_strLastError = "In UpdateHdr(), " + strError;
                else
                    tmp.Close();
            }
        } catch (CQLExceptionParser& e) {
            m_strLastError = "In UpdateHdr(), exception occured, " + e.GetLastError();
        }
        if (!m_strLastError.empty()) {
            try {
                tmp.Close();
            } catch (CQLExceptionParser&) {
            }
            unlink(strTmp.c_str());
            return false;
        }

        // The old message is moved aside first, so that some whole version exists on disk at
        // every moment.
        pSource->Close();
        const std::string strAside = strTmp + ".tmp";
        if (rename(strPath.c_str(), strAside.c_str()) != 0) {
            m_strLastError = "In UpdateHdr(), fail to rename to source temp file, " + SysError();
            pSource->SetData(strPath, true);
            return false;
        }
        if (rename(strTmp.c_str(), strPath.c_str()) != 0) {
            m_strLastError = "In UpdateHdr(), fail to rename tmp to src file, " + SysError();
            unlink(strTmp.c_str());
            std::string strCopyError;
            bool bCopied = false;
            try {
                bCopied = CQLFileParser::Copy(strAside, strPath, strCopyError, true);
            } catch (CQLExceptionParser& e) {
                strCopyError = e.GetLastError();
            }
            if (bCopied) {
                unlink(strAside.c_str());
                pSource->SetData(strPath, true);
            } else {
                // A part copy at the message's path would pass for the message.
                unlink(strPath.c_str());
                pSource->SetData(strAside, true);
                m_strLastError += ", " + strCopyError;
            }
            return false;
        }
        unlink(strAside.c_str());
        if (!pSource->SetData(strPath, true)) {
            m_strLastError = "In UpdateHdr(), fail to SetData, " + pSource->GetLastError();
            return false;
        }
    }

    CQLMimeMsg* pMain = MainMsg() ? MainMsg() : this;
    pMain->PatchOffsets(PATCH_HDR, pNode->m_nIndex, nDelta);
    m_bHdrChanged = false;
    // The main message mirrors its first entry; its own main charset stays.
    const std::string strMainCharSet = pMain->m_strMainCharSet;
    if (!pMain->empty()) pMain->Sync(pMain->front());
    pMain->m_strMainCharSet = strMainCharSet;
    pMain->m_bSynced = true;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Body replacement

bool CQLMimeMsg::SetBody(const std::string& strData, bool bFile, CQLMimeConst::ENCODER eEncoder) {
    const char* const kPrefix = "In CQLMimeMsg::SetBody(), ";
    CQLMimeFile dataFile;
    CQLMimeStr dataMem;
    CQLIMimeStr* pData = bFile ? static_cast<CQLIMimeStr*>(&dataFile) : &dataMem;
    if (!pData->SetData(strData, bFile)) {
        m_strLastError = kPrefix + ("fail to set a date : " + pData->GetLastError());
        return false;
    }
    if (pData->GetLength() == 0) {
        m_strLastError = kPrefix + std::string("strData is empty.");
        return false;
    }
    CQLMimeMsg* pNode = GetQLMimeMsgPtr();
    CQLIMimeStr* pSource = pNode->m_pSource;
    if (pSource == nullptr) {
        m_strLastError = kPrefix + std::string("the message is not open");
        return false;
    }
    const unsigned long nBSO = pNode->m_nBSO;
    const unsigned long nBEO = pNode->m_nBEO;
    const unsigned long nLength = pSource->GetLength();
    const bool bEncode =
        eEncoder == CQLMimeConst::ENCODER_BASE64 || eEncoder == CQLMimeConst::ENCODER_QP;
    auto encode = [&](const std::string& strRaw) {
        CQLCodecParser codec;
        return eEncoder == CQLMimeConst::ENCODER_BASE64 ? codec.EncodeB64(strRaw, true, true, 54)
                                                        : codec.EncodeQP(strRaw, true, false, 54);
    };
    // An encoded body that doesn't end in a line end gets a blank line behind it. The test
    // looks at the end of whatever text it is given.
    auto needsLineEnd = [](const std::string& strText) {
        const size_t n = strText.size();
        return n > 3 && strText[n - 2] != '\r' && strText[n - 1] != '\n';
    };
    unsigned long nNewLen = 0;

    if (pSource->GetType() == 0) {
        // Offsets of a damaged tree may lie past the end.
        if (nBSO > nLength || nBEO > nLength) {
            m_strLastError =
                kPrefix +
                std::string("fail to substring : In CQLMimeStr::SubStr, invalid parameter");
            return false;
        }
        std::string strText(pSource->GetData(), 0, nBSO);
        // A message in memory takes the argument itself as its body, also when it names a file.
        if (bEncode) {
            strText += encode(strData);
            if (needsLineEnd(strText)) strText += "\r\n\r\n";
        } else {
            strText += strData;
        }
        nNewLen = strText.size() - nBSO;
        strText.append(pSource->GetData(), nBEO, std::string::npos);
        pSource->SetData(strText, false);
    } else {
        const std::string strPath = pSource->GetData();
        const std::string strTmp = TempName(strPath);
        CQLFileParser tmp;
        if (!OpenTemp(tmp, strTmp)) {
            m_strLastError = kPrefix + ("fail to open a file : " + tmp.GetLastError());
            return false;
        }
        // A failed copy leaves the temporary file where it is; a failed write throws.
        std::string strError;
        if (nBSO != 0 && !CopyRange(pSource, 0, nBSO, tmp, strError)) {
            m_strLastError = kPrefix + ("fail to substring : " + strError);
            return false;
        }
        if (bEncode) {
            std::string strRaw;
            if (pData->SubStr(0, pData->GetLength(), strRaw) != pData->GetLength()) {
                m_strLastError = kPrefix + ("fail to substring : " + pData->GetLastError());
                return false;
            }
            std::string strBody = encode(strRaw);
            if (needsLineEnd(strBody)) strBody += "\r\n\r\n";
            tmp.Write(strBody);
            nNewLen = strBody.size();
        } else {
            if (!CopyRange(pData, 0, pData->GetLength(), tmp, strError)) {
                m_strLastError = kPrefix + ("fail to substring : " + strError);
                return false;
            }
            nNewLen = pData->GetLength();
        }
        if (nBEO != nLength && !CopyRange(pSource, nBEO, nLength - nBEO, tmp, strError)) {
            m_strLastError = kPrefix + ("fail to substring : " + strError);
            return false;
        }
        tmp.Close();
        pSource->Close();

        // Here the stored message goes first and the new one takes its name.
        if (unlink(strPath.c_str()) != 0) {
            m_strLastError = kPrefix + ("fail to unlink : " + SysError());
            if (unlink(strTmp.c_str()) != 0) m_strLastError += " / fail to unlink : " + SysError();
            return false;
        }
        if (rename(strTmp.c_str(), strPath.c_str()) != 0) {
            // The temporary file now holds the only copy of the message: it stays.
            m_strLastError = kPrefix + ("fail to rename : " + SysError());
            return false;
        }
        if (!pSource->SetData(strPath, true)) {
            m_strLastError = kPrefix + ("fail to set a data : " + pSource->GetLastError());
            return false;
        }
    }

    const int32_t nDelta = static_cast<int32_t>(nNewLen + nBSO - nBEO);
    CQLMimeMsg* pMain = MainMsg() ? MainMsg() : this;
    pMain->PatchOffsets(PATCH_BODY, pNode->m_nIndex, nDelta);
    if (!pMain->empty()) pMain->Sync(pMain->front());
    return true;
}

// ---------------------------------------------------------------------------------------------
// Banners and tracking tags

bool CQLMimeMsg::FindTagPart(CQLMimeMsg& part) {
    bool bFound = false;
    WalkParts([&](CQLMimeMsg& candidate) {
        if (candidate.m_CT != CQLMimeConst::TEXT || candidate.m_SubCT != CQLMimeConst::HTML ||
            candidate.IsNamedPart(CQLMimeConst::m_nContentTypeLen))
            return true;
        part = candidate;
        bFound = true;
        return false;
    });
    return bFound;
}

bool CQLMimeMsg::EditTagPart(const char* pszOp, int& nStatus,
                             const std::function<bool(std::string&)>& edit) {
    const std::string strPrefix = std::string("In ") + pszOp + "(), ";
    nStatus = 0;
    CQLMimeMsg part;
    if (!FindTagPart(part)) {
        // A message without an html part is no failure.
        nStatus = 1;
        m_strLastError = strPrefix + "fail to find text/html type.";
        return true;
    }
    nStatus = 2;
    std::string strBody;
    if (!part.GetBody(strBody, true)) {
        m_strLastError = strPrefix + part.GetLastError();
        return false;
    }
    if (!edit(strBody)) return false;
    if (!part.SetBody(strBody, false, part.m_Encoder)) {
        m_strLastError = strPrefix + part.GetLastError();
        return false;
    }
    return true;
}

bool CQLMimeMsg::AddEDMTag(const std::string& strBaseURL, int nPort, const std::string& strPath,
                           const std::string& strData, int& nStatus) {
    return EditTagPart("AddEDMTag", nStatus, [&](std::string& strBody) {
        const std::string strMacro = "##EDM_REJECT_URL##";
        if (strBody.empty()) {
            m_strLastError = "In AddEDMTag(), body is empty";
            return false;
        }
        if (strBody.find(strMacro) == std::string::npos) {
            m_strLastError = "In AddEDMTag(), '##EDM_REJECT_URL##' macro is not exist";
            return false;
        }
        const std::string strURL =
            UrlBase(strBaseURL, nPort, strPath) + "/rejectedm.ql?data=" + UrlValue(strData);
        CQLStringParser str;
        strBody = str.ReplaceAll(strBody, strMacro, strURL);
        return true;
    });
}

bool CQLMimeMsg::AddConfirmTag(const std::string& strBaseURL, int nPort, const std::string& strPath,
                               const std::string& strMsgID, const std::string& strSender,
                               const std::string& strReceiver, const std::string& strSubject,
                               int& nStatus) {
    return EditTagPart("AddConfirmTag", nStatus, [&](std::string& strBody) {
        const std::string strTag =
            "<table style='display:none'><tr><td> <img src='" +
            UrlBase(strBaseURL, nPort, strPath) + "/historySent.ql?act=confirm" +
            "&sender=" + UrlValue(strSender) + "&receiver=" + UrlValue(strReceiver) +
            "&subject=" + UrlValue(strSubject) + "&msgid=" + UrlValue(strMsgID) +
            "' width='0' height='0'> </td></tr></table>";
        if (strBody.empty()) {
            strBody = strTag;
        } else {
            const size_t nAt = FindBodyEnd(strBody);
            const std::string strLine = "\r\n" + strTag + "\r\n";
            if (nAt == std::string::npos)
                strBody += strLine;
            else
                strBody.insert(nAt, strLine);
        }
        return true;
    });
}

bool CQLMimeMsg::CanInsertConfirmTag() const {
    const CQLMimeMsg* pMain = MainMsg();
    if (pMain == nullptr) return false;
    for (size_t i = 0; i < pMain->size(); ++i) {
        const CQLMimeMsg* pPart = (*pMain)[i];
        if (pPart->m_CT != CQLMimeConst::TEXT) continue;
        if (pPart->m_SubCT == CQLMimeConst::HTML) return true;
        // A plain part followed by an html one, as in an alternative.
        return i + 1 < pMain->size() && (*pMain)[i + 1]->m_SubCT == CQLMimeConst::HTML;
    }
    return false;
}

bool CQLMimeMsg::AddBanner(const std::string& strBanner, int nType) {
    if (strBanner.empty()) {
        m_strLastError = "In AddBanner(),  no banner exist";
        return false;
    }
    const CQLMimeConst::SUBCT eWanted = nType == 0   ? CQLMimeConst::PLAIN
                                        : nType == 1 ? CQLMimeConst::HTML
                                                     : CQLMimeConst::SUBCT_UNKNOWN;
    CQLMimeMsg part;
    bool bFound = false;
    WalkParts([&](CQLMimeMsg& candidate) {
        // The type field is asked for with the disposition's name length, so it is never
        // found and only a file name in the disposition passes a part over.
        if (candidate.m_CT != CQLMimeConst::TEXT ||
            candidate.IsNamedPart(CQLMimeConst::m_nDisposionLen))
            return true;
        if (eWanted == CQLMimeConst::SUBCT_UNKNOWN || candidate.m_SubCT != eWanted) return true;
        part = candidate;
        bFound = true;
        return false;
    });
    return bFound ? AddBanner(part, strBanner, nType) : true;
}

bool CQLMimeMsg::AddBanner(CQLMimeMsg& part, std::string strBanner, int nType) {
    std::string strBody;
    if (!part.GetBody(strBody, true)) {
        m_strLastError = "In AddBanner, fail to get msg body";
        return false;
    }
    // The banner comes in UTF-8 and goes into the part's own charset.
    CQLConvParser conv;
    if (!conv.Open("UTF-8", part.GetCharSet(), true)) {
        m_strLastError = "In AddBanner, " + conv.GetLastError();
        return false;
    }
    try {
        strBanner = conv.Conv(strBanner);
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In AddBanner, " + e.GetLastError();
        return false;
    }
    conv.Close();
    if (nType == 1)
        strBody += "<BR>\r\n" + strBanner + "<BR>\r\n";
    else
        strBody += "\r\n" + strBanner + "\r\n";
    if (!part.SetBody(strBody, false, part.m_Encoder)) {
        m_strLastError = "In AddBanner(), " + part.GetLastError();
        return false;
    }
    return true;
}
