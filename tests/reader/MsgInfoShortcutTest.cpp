// The reading shortcuts give what the plain roads give: the stream decoded from lines where
// they lie in the file's buffer, against lines read one by one as strings.
#include "reader/ReaderTestUtil.h"

#include "codec/QLCodecParser.h"
#include "foundation/QLStringParser.h"

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
