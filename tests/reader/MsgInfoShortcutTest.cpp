// The reading shortcuts give what the plain roads give: the top header block parsed from one
// read of the file, against the parse of the file as a source; and the stream decoded from
// lines where they lie in the file's buffer, against lines read one by one as strings.
#include "reader/ReaderTestUtil.h"

#include "codec/QLCodecParser.h"
#include "foundation/QLStringParser.h"
#include "mime/QLMimeFile.h"

#include <fstream>
#include <functional>
#include <random>

namespace {

// What GetAttachContentNext delivers, read the plain way: each line a string of its own,
// repaired, trimmed, carried and decoded by itself.
std::vector<std::string> PlainStream(const std::string& strPath, const CQLMimeAttachInfo& a,
                                     bool bDecode) {
    std::vector<std::string> v;
    CQLFileParser file(strPath, false);
    if (!file.Open(CQLFileParser::FILE_READ) ||
        !file.SetPos(static_cast<long>(a.m_nStartPos), CQLFileParser::POS_SET))
        return v;
    long long nRemain = static_cast<int>(a.m_nEndPos - a.m_nStartPos);
    CQLCodecParser codec;
    CQLStringParser str;
    std::string strLine;
    while (nRemain > 0) {
        std::string strBlock, strCarry;
        long long nBudget = std::min(nRemain, 10240LL);
        while (file.ReadLine(strLine, false)) {
            nRemain -= static_cast<long long>(strLine.size());
            nBudget -= static_cast<long long>(strLine.size());
            const size_t n = strLine.size();
            if (n > 0 && strLine[n - 1] == '\n' && (n < 2 || strLine[n - 2] != '\r'))
                strLine.insert(n - 1, "\r");
            if (bDecode && a.m_nEncoding == 'B') {
                strLine = strCarry + str.Trim(strLine, CQLStringParser::TRIM_BOTH);
                if (strLine.size() > 3) {
                    strCarry = strLine.substr(strLine.size() / 4 * 4);
                    strLine.resize(strLine.size() / 4 * 4);
                }
                strBlock += codec.DecodeB64(strLine, true);
            } else if (bDecode && a.m_nEncoding == 'Q') {
                strBlock += codec.DecodeQP(strLine, true);
            } else {
                strBlock += strLine;
            }
            if (nRemain <= 0 || nBudget <= 0) break;
        }
        if (strBlock.empty()) break;
        v.push_back(strBlock);
    }
    return v;
}

// A body of lines of every kind a damaged or unusual part has: base64 of odd lengths, padding
// in the middle, blanks, foreign and NUL bytes, quoted-printable escapes and soft breaks, CR
// LF, bare LF and CR CR LF ends, lines longer than the file's buffer and than a block.
std::string RandomBody(std::mt19937& gen) {
    static const std::string kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    static const std::string kOdd[] = {"=",    "==",  " ",     "\t",   "*", std::string(1, '\0'),
                                       "\xFF", "=41", "=\r\n", "= \n", "=Z"};
    static const char* const kEnds[] = {"\r\n", "\n", "\r\r\n", "\r\n", "\n"};
    auto pick = [&](size_t n) { return static_cast<size_t>(gen() % n); };
    std::string strBody;
    const size_t nLines = 50 + pick(400);
    for (size_t i = 0; i < nLines; ++i) {
        const size_t nRoll = pick(100);
        size_t nLen = nRoll < 60 ? 76 : nRoll < 90 ? pick(90) : nRoll < 97 ? 9000 : 12000;
        std::string strLine;
        for (size_t k = 0; k < nLen; ++k)
            strLine += pick(40) ? std::string(1, kAlphabet[pick(64)]) : kOdd[pick(11)];
        strBody += strLine + kEnds[pick(5)];
    }
    if (pick(2)) strBody += "QUJD=tail";
    return strBody;
}

void ExpectSameHeader(const std::string& strPath, const std::string& strFormat) {
    CQLMimeMsgInfo info(strPath, strFormat);
    std::string strOut;
    info.GetHeaderValue("Subject", strOut, false, "", "UTF-8", "");
    CQLMimeMsgInfo::CQLMimeMsgInfoItem item;
    item.Set(strFormat.c_str());
    CQLMimeFile file;
    file.SetData(strPath, true);
    const CQLMimeHdr want = [&] {
        CQLMimeHdr hdr;
        hdr.Parse(&file, static_cast<uint32_t>(item.m_nHSO));
        return hdr;
    }();

    const CQLMimeHdr& got = info.m_Hdr;
    ASSERT_EQ(got.size(), want.size());
    for (auto g = got.begin(), w = want.begin(); g != got.end(); ++g, ++w) {
        EXPECT_EQ(g->m_strName, w->m_strName);
        EXPECT_EQ(g->m_strValue, w->m_strValue);
        EXPECT_EQ(g->m_strRaw, w->m_strRaw);
    }
    EXPECT_EQ(got.m_nHdrStart, want.m_nHdrStart);
    EXPECT_EQ(got.m_nHdrEnd, want.m_nHdrEnd);
    EXPECT_EQ(got.m_nLineCnt, want.m_nLineCnt);
    EXPECT_EQ(got.m_bAttachment, want.m_bAttachment);
    EXPECT_EQ(got.GetLastError(), want.GetLastError());
}

} // namespace

TEST(MsgInfoShortcut, StreamAgreesWithLinesReadOneByOne) {
    std::mt19937 gen(20261123);
    CTempDir dir;
    for (int nMessage = 0; nMessage < 40; ++nMessage) {
        const std::string strBody = RandomBody(gen);
        const std::string strPath = dir.MakeFile(strBody);
        CQLMimeMsgInfo info(strPath, "");
        CQLMimeAttachInfo a;
        // The whole body, and ranges that start and end inside lines.
        const unsigned int nSize = static_cast<unsigned int>(strBody.size());
        const unsigned int nFrom = static_cast<unsigned int>(gen() % nSize);
        const std::pair<unsigned int, unsigned int> ranges[] = {
            {0, nSize}, {nFrom, nFrom + static_cast<unsigned int>(gen() % 30000)}};
        for (const auto& [nStart, nEnd] : ranges) {
            a.m_nStartPos = nStart;
            a.m_nEndPos = nEnd;
            for (int nEncoding : {'B', 'Q', '7'}) {
                a.m_nEncoding = nEncoding;
                for (bool bDecode : {true, false}) {
                    SCOPED_TRACE(std::to_string(nMessage) + " " + std::to_string(nStart) + "-" +
                                 std::to_string(nEnd) + " " + static_cast<char>(nEncoding) +
                                 (bDecode ? " decoded" : " raw"));
                    ASSERT_EQ(StreamBlocks(info, a, bDecode), PlainStream(strPath, a, bDecode));
                }
            }
        }
    }
}

TEST(MsgInfoShortcut, HeaderFromOneReadAgreesWithTheFileParse) {
    // A field folded across every boundary the read may have.
    std::string strFields;
    for (int i = 0; strFields.size() < 70000; ++i)
        strFields += "X-Trace-" + std::to_string(i) + ": relay" + std::to_string(i) +
                     ".example.net\n\tid " + PatternBytes(40) + "\n";
    const std::string strTop = "Subject: s\nContent-Disposition: attachment; filename=a\n";
    struct Case {
        const char* pszName;
        std::string strMsg;
        std::string strHSO, strHEO; // a record field replaced where not empty
        // The file as it stands when read, made from the stored bytes after the string was
        // written: shortened or replaced.
        std::function<std::string(const std::string&)> later = nullptr;
    } cases[] = {
        {"small", strTop + "\nbody\n", "", ""},
        {"no blank line, the file ends", strTop + "X-Last: v", "", ""},
        {"no blank line, the block ends at a line without colon",
         strTop + "no colon here\n" + strFields, "", ""},
        {"beyond the largest read", strTop + strFields + "\nbody\n", "", ""},
        {"sized from a stale end", strTop + strFields.substr(0, 6000) + "\nbody\n", "", "0"},
        // Lines that only look like the end: a blank and a CR to continue a field.
        {"lines like a blank one",
         strTop + "X-A: a\n \n\rX-B: b\n" + strFields.substr(0, 6000) + "\nbody\n", "", "0"},
        {"start inside a line", strTop + "X-A: one\n\nbody\n", "3", ""},
        {"start past the end", strTop + "\nbody\n", "100000", ""},
        {"end before start", strTop + "\nbody\n", "20", "5"},
        {"shortened inside a field", strTop + "X-A: one\n\nbody\n", "", "",
         [](const std::string& s) { return s.substr(0, 30); }},
        {"shortened before the blank line", strTop + "X-A: one\n\nbody\n", "", "",
         [](const std::string& s) { return s.substr(0, s.find('\n', s.find("X-A")) + 1); }},
        {"shortened to nothing", strTop + "\nbody\n", "", "",
         [](const std::string&) { return std::string(); }},
        {"shortened inside a long block", strTop + strFields + "\nbody\n", "", "",
         [](const std::string& s) { return s.substr(0, 50000); }},
        {"replaced by a longer block", strTop + "\nbody\n", "", "",
         [&](const std::string&) { return strTop + strFields + "\nbody\n"; }},
    };
    // Blank lines ending just before, across and just behind a read of 4096 bytes, which a
    // record with no end of the block asks for.
    std::vector<Case> all(std::begin(cases), std::end(cases));
    for (const std::string strEol : {"\n", "\r\n"}) {
        for (size_t nAt = 4092; nAt <= 4097; ++nAt) {
            std::string strMsg = "Subject: s" + strEol + "X-Fill: ";
            strMsg += std::string(nAt - strMsg.size() - strEol.size(), 'f') + strEol;
            all.push_back({"blank line near 4096", strMsg + strEol + "body" + strEol, "", "0"});
        }
    }
    CTempDir dir;
    for (const Case& c : all) {
        // The boundary cases are written in their own line ends already.
        auto forms = BothForms(c.strMsg);
        if (c.strMsg.find('\r') != std::string::npos) forms.resize(1);
        for (const auto& [strForm, strMsg] : forms) {
            SCOPED_TRACE(std::string(c.pszName) + " " + strForm + " " +
                         std::to_string(strMsg.size()));
            Stored s = Store(dir, strMsg);
            if (!c.strHSO.empty()) s.strFormat = SetField(s.strFormat, 0, 0, c.strHSO);
            if (!c.strHEO.empty()) s.strFormat = SetField(s.strFormat, 0, 1, c.strHEO);
            if (c.later)
                std::ofstream(s.strPath, std::ios::binary | std::ios::trunc) << c.later(strMsg);
            ExpectSameHeader(s.strPath, s.strFormat);
        }
    }
}
