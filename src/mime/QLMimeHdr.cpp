#include "mime/QLMimeHdr.h"

#include "codec/QLHdrCodec.h"
#include "foundation/QLScan.h"
#include "foundation/QLStringParser.h"
#include "mime/QLMimeFile.h"
#include "mime/QLMimeStr.h"

#include <cctype>
#include <cstring>
#include <strings.h>

namespace {

struct LineView {
    const char* p = nullptr;
    size_t n = 0;
    const char* pColon = nullptr; // the first ':' of the line, if any
};

inline bool IsBlankLine(const LineView& line) {
    return line.n == 0 || (line.n == 1 && line.p[0] == '\n') ||
           (line.n == 2 && line.p[0] == '\r' && line.p[1] == '\n');
}

// The value of a field less the white space around it, as a pointer into the value and a
// length. Table names hold no white space, so comparing them at the pointer reads no further
// than comparing them against a trimmed copy would.
struct TrimmedView {
    const char* p;
    size_t n;
    explicit TrimmedView(const std::string& strText) : p(strText.data()), n(strText.size()) {
        while (n > 0 && CQLStringParser::m_TableTrim[static_cast<unsigned char>(*p)]) ++p, --n;
        while (n > 0 && CQLStringParser::m_TableTrim[static_cast<unsigned char>(p[n - 1])]) --n;
    }
};

// The index of the first table name that begins the text, ignoring case; the index of the
// terminating null entry when none does.
int FindPrefix(const char* pText, const char* const* ppNames, const int* pnLens) {
    const int c = tolower(static_cast<unsigned char>(*pText));
    int i = 0;
    for (; ppNames[i] != nullptr; ++i)
        if (ppNames[i][0] == c && strncasecmp(pText, ppNames[i], pnLens[i]) == 0) break;
    return i;
}

// Lines of a message in memory: from the offset to the next LF, LF included, or to the end.
class MemLineReader {
public:
    explicit MemLineReader(const std::string& strData) : m_strData(strData) {}
    static bool Contiguous() { return true; }
    LineView operator()(unsigned long nPos) {
        LineView line;
        if (nPos >= m_strData.size()) return line;
        line.p = m_strData.data() + nPos;
        line.n = CQLScan::HeaderLine(line.p, m_strData.size() - nPos, line.pColon);
        return line;
    }

private:
    const std::string& m_strData;
};

// Lines of a file, read with their line break; empty at the end of the file.
class FileLineReader {
public:
    explicit FileLineReader(CQLMimeFile* pFile) : m_pFile(pFile) {}
    static bool Contiguous() { return false; }
    LineView operator()(unsigned long nPos) {
        LineView line;
        unsigned long nLine = 0;
        if (!m_pFile->LineAt(nPos, line.p, nLine, m_strLine)) return LineView();
        line.n = nLine;
        line.pColon = static_cast<const char*>(memchr(line.p, ':', line.n));
        return line;
    }

private:
    CQLMimeFile* m_pFile;
    std::string m_strLine;
};

} // namespace

CQLMimeHdr::CQLMimeHdr() : m_nHdrStart(0), m_nHdrEnd(0), m_nLineCnt(0), m_bAttachment(false) {}

void CQLMimeHdr::Init() {
    m_strLastError.clear();
    clear();
    m_nLineCnt = 0;
    m_bAttachment = false;
}

unsigned long CQLMimeHdr::Parse(CQLIMimeStr* pMimeStr, const unsigned long& nOffset) {
    if (pMimeStr == nullptr) {
        m_strLastError = "In Parse(), Invalid pMimeStr";
        return static_cast<unsigned long>(-1);
    }
    return pMimeStr->ParseHdr(*this, nOffset);
}

bool CQLMimeHdr::IsEmptyHdr(CQLIMimeStr* pMimeStr, const unsigned long& nOffset) {
    const char c = pMimeStr->GetChar(static_cast<int>(nOffset));
    if (c == '\n') return true;
    return c == '\r' && pMimeStr->GetChar(static_cast<int>(nOffset + 1)) == '\n';
}

unsigned long CQLMimeHdr::ParseMem(CQLIMimeStr* pMimeStr, const unsigned long& nOffset) {
    if (pMimeStr == nullptr) {
        m_strLastError = "In ParseMem(), Invalid pMimeStr";
        throw *this;
    }
    return pMimeStr->ParseHdr(*this, nOffset);
}

unsigned long CQLMimeHdr::ParseFile(CQLIMimeStr* pMimeStr, const unsigned long& nOffset) {
    if (pMimeStr == nullptr) {
        m_strLastError = "In ParseFile(), Invalid pMimeStr";
        throw *this;
    }
    return pMimeStr->ParseHdr(*this, nOffset);
}

unsigned long CQLMimeHdr::ParseLines(CQLMimeStr& source, unsigned long nOffset) {
    MemLineReader reader(source.GetData());
    return ParseBlock(source, reader, nOffset);
}

unsigned long CQLMimeHdr::ParseLines(CQLMimeFile& source, unsigned long nOffset) {
    FileLineReader reader(&source);
    return ParseBlock(source, reader, nOffset);
}

template <class LineReader>
unsigned long CQLMimeHdr::ParseBlock(CQLIMimeStr& source, LineReader& reader,
                                     unsigned long nOffset) {
    m_nHdrStart = nOffset;
    if (IsEmptyHdr(&source, nOffset)) {
        m_nHdrEnd = nOffset;
        return m_nHdrEnd;
    }
    unsigned long nPos = nOffset, nSize = 0;
    bool bAdded = false;
    try {
        while (ParseField(reader, nPos, source.GetLength(), nSize)) {
            nPos += nSize;
            bAdded = true;
        }
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In ParseFileLine, exception occured, " + e.GetLastError();
    }
    m_nHdrEnd = bAdded ? nPos : m_nHdrStart;
    return m_nHdrEnd;
}

template <class LineReader>
bool CQLMimeHdr::ParseField(LineReader& reader, unsigned long nOffset, unsigned long nSourceLen,
                            unsigned long& nSize) {
    LineView line = reader(nOffset);
    if (IsBlankLine(line) || line.p[0] == ' ') return false;
    const char* pColon = line.pColon;
    if (pColon == nullptr) return false;
    nSize = 0;
    const int nColon = static_cast<int>(pColon - line.p);
    // A message in memory holds the whole field in one piece; a file line may live in a
    // buffer that the next read replaces, so its lines are gathered as they come.
    const bool bGather = !reader.Contiguous();
    const char* pField = line.p;
    std::string strRaw;
    if (bGather) strRaw.assign(line.p, line.n);
    ++m_nLineCnt;
    unsigned long nPos = nOffset + line.n;
    while (nPos < nSourceLen) {
        line = reader(nPos);
        if (IsBlankLine(line)) break;
        if (!CQLStringParser::IsCSpace(line.p[0]) && line.pColon != nullptr) break;
        if (bGather) strRaw.append(line.p, line.n);
        ++m_nLineCnt;
        nPos += line.n;
    }
    nSize = nPos - nOffset;
    if (bGather)
        AddField(std::move(strRaw), nColon);
    else
        AddField(pField, nSize, nColon);
    return true;
}

bool CQLMimeHdr::ParseMemLine(CQLMimeStr* pMimeStr, const unsigned long& nOffset,
                              unsigned long& nSize) {
    MemLineReader reader(pMimeStr->GetData());
    try {
        return ParseField(reader, nOffset, pMimeStr->GetLength(), nSize);
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In ParseFileLine, exception occured, " + e.GetLastError();
        return false;
    }
}

bool CQLMimeHdr::ParseFileLine(CQLMimeFile* pMimeFile, const unsigned long& nOffset,
                               unsigned long& nSize) {
    FileLineReader reader(pMimeFile);
    try {
        return ParseField(reader, nOffset, pMimeFile->GetLength(), nSize);
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In ParseFileLine, exception occured, " + e.GetLastError();
        return false;
    }
}

void CQLMimeHdr::AddHdrItem(const std::string& strLine, int nColon) {
    AddField(strLine.data(), strLine.size(), nColon);
}

namespace {

// The raw text of a field ends before a final CR or CR LF; a bare LF at the end stays, so
// fields of LF-only mail keep it.
size_t RawLength(const char* p, size_t n) {
    if (n >= 1 && p[n - 1] == '\r') return n - 1;
    if (n >= 2 && p[n - 2] == '\r' && p[n - 1] == '\n') return n - 2;
    return n;
}

// Fields of headers that were destroyed, kept per thread for the headers parsed next: a
// thread that parses message after message then takes list nodes and the room of their texts
// from here instead of allocating three times per field. Bounded, so that little stays held.
class SpareFields {
public:
    static constexpr size_t MAX_FIELDS = 256;
    static constexpr size_t MAX_ROOM = 256; // a text with more room gives it back

    // The list of this thread, made on first use; null once the thread is ending.
    static std::list<CQLMimeHdrItem>* Get(bool bMake) {
        if (t_bGone) return nullptr;
        if (t_pList == nullptr && bMake) {
            static thread_local Owner owner; // frees the list when the thread ends
            t_pList = new std::list<CQLMimeHdrItem>;
        }
        return t_pList;
    }

    // Takes the fields of a list that is going away, as many as there is room for.
    static void Keep(std::list<CQLMimeHdrItem>& fields) {
        std::list<CQLMimeHdrItem>* pSpare = Get(false);
        if (pSpare == nullptr) return;
        while (!fields.empty() && pSpare->size() < MAX_FIELDS) {
            CQLMimeHdrItem& item = fields.front();
            for (std::string* pText : {&item.m_strName, &item.m_strValue, &item.m_strRaw})
                if (pText->capacity() > MAX_ROOM) std::string().swap(*pText);
            static_cast<CQLExceptionParser&>(item) = CQLExceptionParser();
            pSpare->splice(pSpare->end(), fields, fields.begin());
        }
    }

private:
    struct Owner {
        ~Owner() {
            delete t_pList;
            t_pList = nullptr;
            t_bGone = true;
        }
    };
    static thread_local std::list<CQLMimeHdrItem>* t_pList;
    static thread_local bool t_bGone;
};

thread_local std::list<CQLMimeHdrItem>* SpareFields::t_pList = nullptr;
thread_local bool SpareFields::t_bGone = false;

} // namespace

CQLMimeHdr::~CQLMimeHdr() {
    SpareFields::Keep(*this);
}

CQLMimeHdrItem& CQLMimeHdr::NewField() {
    std::list<CQLMimeHdrItem>* pSpare = SpareFields::Get(true);
    if (pSpare == nullptr || pSpare->empty()) return emplace_back();
    splice(end(), *pSpare, pSpare->begin());
    return back();
}

void CQLMimeHdr::AddField(const char* pRaw, size_t nRaw, int nColon) {
    CQLMimeHdrItem& item = NewField();
    item.m_strRaw.assign(pRaw, RawLength(pRaw, nRaw));
    SplitField(item, nColon);
}

void CQLMimeHdr::AddField(std::string&& strRaw, int nColon) {
    CQLMimeHdrItem& item = NewField();
    strRaw.resize(RawLength(strRaw.data(), strRaw.size()));
    item.m_strRaw.swap(strRaw);
    SplitField(item, nColon);
}

// The line end is off already: taking it off again would eat a CR of "\r\r\n".
void CQLMimeHdr::SplitField(CQLMimeHdrItem& item, int nColon) {
    const std::string& strRaw = item.m_strRaw;
    const size_t nCut = nColon < 0 ? 0 : std::min<size_t>(nColon, strRaw.size());
    size_t nFrom = 0, nTo = nCut;
    while (nFrom < nTo && CQLStringParser::m_TableTrim[static_cast<unsigned char>(strRaw[nFrom])])
        ++nFrom;
    while (nTo > nFrom && CQLStringParser::m_TableTrim[static_cast<unsigned char>(strRaw[nTo - 1])])
        --nTo;
    std::string& strName = item.m_strName;
    strName.assign(strRaw, nFrom, nTo - nFrom);

    std::string& strValue = item.m_strValue;
    strValue.clear();
    const size_t nValueAt = static_cast<size_t>(nColon) + 1;
    if (nColon >= 0 && nValueAt < strRaw.size()) {
        size_t nStart = nValueAt;
        if (strRaw[nStart] == ' ' && nValueAt + 1 < strRaw.size())
            while (nStart < strRaw.size() && strRaw[nStart] == ' ') ++nStart;
        strValue.assign(strRaw, nStart, std::string::npos);
    }

    // The value has lost its leading blanks already, unless it is one blank.
    if (!m_bAttachment && strName.size() >= 19 &&
        strncasecmp(strName.c_str(), "Content-Disposition", 19) == 0 && strValue.size() > 12 &&
        strncasecmp(strValue.c_str(), "attachment;", 11) == 0)
        m_bAttachment = true;
}

int CQLMimeHdr::GetCount(const char* pszName, const unsigned int& nLen) const {
    if (pszName == nullptr) return static_cast<int>(size());
    int nCount = 0;
    for (const CQLMimeHdrItem& item : *this)
        if (item.m_strName.size() == nLen &&
            strncasecmp(item.m_strName.c_str(), pszName, nLen) == 0)
            ++nCount;
    return nCount;
}

CQLMimeHdrItem* CQLMimeHdr::FindHdrItem(const char* pszName, const unsigned int& nLen) const {
    if (pszName == nullptr) return nullptr;
    for (const CQLMimeHdrItem& item : *this)
        if (item.m_strName.size() == nLen &&
            strncasecmp(item.m_strName.c_str(), pszName, nLen) == 0)
            return const_cast<CQLMimeHdrItem*>(&item);
    return nullptr;
}

void CQLMimeHdr::GetContentType(CQLMimeConst::CT& ct, CQLMimeConst::SUBCT& subct,
                                CQLMimeConst::ENCODER& enc) const {
    const CQLMimeHdrItem* pType = nullptr;
    const CQLMimeHdrItem* pEncoding = nullptr;
    for (const CQLMimeHdrItem& item : *this) {
        if (pType != nullptr && pEncoding != nullptr) break;
        const std::string& name = item.m_strName;
        if (pType == nullptr &&
            name.size() == static_cast<size_t>(CQLMimeConst::m_nContentTypeLen) &&
            strncasecmp(name.c_str(), CQLMimeConst::m_szContentType,
                        CQLMimeConst::m_nContentTypeLen) == 0)
            pType = &item;
        else if (pEncoding == nullptr &&
                 name.size() == static_cast<size_t>(CQLMimeConst::m_nTransferEncodingLen) &&
                 strncasecmp(name.c_str(), CQLMimeConst::m_szTransferEncoding,
                             CQLMimeConst::m_nTransferEncodingLen) == 0)
            pEncoding = &item;
    }
    ContentTypeOf(pType, pEncoding, ct, subct, enc);
}

void CQLMimeHdr::ContentTypeOf(const CQLMimeHdrItem* pType, const CQLMimeHdrItem* pEncoding,
                               CQLMimeConst::CT& ct, CQLMimeConst::SUBCT& subct,
                               CQLMimeConst::ENCODER& enc) {
    if (pType != nullptr) {
        const TrimmedView v(pType->m_strValue);
        ct = static_cast<CQLMimeConst::CT>(
            FindPrefix(v.p, CQLMimeConst::m_szMIMEType, CQLMimeConst::m_nMIMETypeLen));
        const char* pSlash = static_cast<const char*>(memchr(v.p, '/', v.n));
        if (pSlash != nullptr) {
            const int j = FindPrefix(pSlash + 1, CQLMimeConst::m_szSubMIMEType,
                                     CQLMimeConst::m_nSubMIMETypeLen);
            if (CQLMimeConst::m_szSubMIMEType[j] == nullptr)
                subct = CQLMimeConst::SUBCT_UNKNOWN;
            else
                subct = j == 12 ? CQLMimeConst::MS_TNEF : static_cast<CQLMimeConst::SUBCT>(j);
        }
    }
    if (pEncoding != nullptr) {
        const TrimmedView v(pEncoding->m_strValue);
        const char* p = v.p;
        switch (v.n) {
        case 16:
            enc = strncasecmp(p, "quoted-printable", 16) == 0 ? CQLMimeConst::ENCODER_QP
                                                              : CQLMimeConst::ENCODER_7BIT;
            break;
        case 6:
            if (strncasecmp(p, "base64", 6) == 0)
                enc = CQLMimeConst::ENCODER_BASE64;
            else if (strncasecmp(p, "binary", 6) == 0)
                enc = CQLMimeConst::ENCODER_BINARY;
            break;
        case 4:
            if (strncasecmp(p, "7bit", 4) == 0)
                enc = CQLMimeConst::ENCODER_7BIT;
            else if (strncasecmp(p, "8bit", 4) == 0)
                enc = CQLMimeConst::ENCODER_8BIT;
            break;
        default:
            enc = CQLMimeConst::ENCODER_7BIT;
        }
    }
}

std::string CQLMimeHdr::GetBoundary() const {
    const CQLMimeHdrItem* pItem =
        FindHdrItem(CQLMimeConst::m_szContentType, CQLMimeConst::m_nContentTypeLen);
    if (pItem == nullptr) return std::string();
    return pItem->GetParameter(CQLMimeConst::m_szBoundary, CQLMimeConst::m_nBoundaryLen);
}

std::string CQLMimeHdr::Encode(const std::string&, const std::string&, bool, int) {
    // Fields are encoded by CQLHdrCodec directly.
    return std::string();
}

std::string CQLMimeHdr::Decode(const std::string& strText, const std::string& strCharset,
                               bool bConvLtGt, bool bTrimDq) {
    if (strText.empty()) return std::string();
    int nOptions = CQLHdrCodec::O_HDRCODEC_NONE;
    if (bConvLtGt) nOptions |= CQLHdrCodec::O_CONV_LTGT;
    if (bTrimDq) nOptions |= CQLHdrCodec::O_TRIM_DQ;
    CQLHdrCodec codec;
    return codec.Decode(strText, strCharset, "", nOptions);
}
