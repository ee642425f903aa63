// The delimiter index of a parse gives what the direct searches give: the same parts, line
// counts and error text, in memory and from a file, and a file source's scratch buffer is left
// as the block reads leave it, which a later search into the end of the file can see.
#include "mime/MimeTestUtil.h"

#include <climits>
#include <random>

namespace {

enum class Use { Direct, Index, Switch };

// A source whose parses index no message, every message from the start, or every message once
// the direct searches have passed over it as often as they do by default.
template <class Source> class Tuned : public Source {
public:
    explicit Tuned(Use use) {
        this->m_nIndexFrom = use == Use::Direct ? ULONG_MAX : 0;
        if (use == Use::Index) this->m_nIndexAfter = 0;
    }
};

struct Parsed {
    std::vector<Entry> vEntries;
    std::string strError;
    unsigned long nResult = 0;
    std::vector<unsigned long> vProbes; // searches into the end of the file after the parse
};

// The boundaries named in the message, as patterns.
std::vector<std::string> Patterns(const std::string& strMsg) {
    std::vector<std::string> v{"\n--", "\n"};
    for (size_t n = strMsg.find("boundary="); n != std::string::npos;
         n = strMsg.find("boundary=", n + 1)) {
        size_t nFrom = n + 9, nTo = nFrom;
        if (nFrom < strMsg.size() && strMsg[nFrom] == '"')
            nTo = strMsg.find('"', ++nFrom);
        else
            nTo = strMsg.find_first_of(";\r\n", nFrom);
        if (nTo == std::string::npos) nTo = strMsg.size();
        v.push_back("\n--" + strMsg.substr(nFrom, nTo - nFrom));
    }
    return v;
}

Parsed ParseWith(CQLIMimeStr& source, const std::string& strMsg) {
    Parsed out;
    CQLMimeMsg tmp;
    CQLFixedObjPoolParser<CQLMimeMsg> pool;
    int nPartCnt = 0, nParseCnt = 0;
    out.nResult = tmp.Parse(&source, 0, source.GetLength(), nPartCnt, pool, nParseCnt, false);
    out.vEntries = Entries(tmp);
    out.strError = tmp.GetLastError();
    if (source.GetType() == 1) {
        const unsigned long nLen = source.GetLength();
        for (const std::string& strFind : Patterns(strMsg)) {
            for (unsigned long nBack : {1ul, 90ul, 2000ul, 4000ul, 6000ul}) {
                int nLine = 0, bCRLF = 0;
                const unsigned long nFrom = nLen > nBack ? nLen - nBack : 0;
                out.vProbes.push_back(source.Find(strFind, nFrom, &nLine, &bCRLF));
                out.vProbes.push_back(static_cast<unsigned long>(nLine));
            }
        }
    }
    return out;
}

void ExpectSameParse(const std::string& strMsg, const std::string& strWhat, const CTempDir& dir) {
    SCOPED_TRACE(strWhat);
    {
        Tuned<CQLMimeStr> direct(Use::Direct);
        direct.SetData(strMsg, false);
        const Parsed a = ParseWith(direct, strMsg);
        for (Use use : {Use::Index, Use::Switch}) {
            Tuned<CQLMimeStr> indexed(use);
            indexed.SetData(strMsg, false);
            const Parsed b = ParseWith(indexed, strMsg);
            ExpectSameEntries(a.vEntries, b.vEntries, true, "memory");
            EXPECT_EQ(a.strError, b.strError);
            EXPECT_EQ(a.nResult, b.nResult);
        }
    }
    const std::string strPath = dir.MakeFile(strMsg);
    Tuned<CQLMimeFile> direct(Use::Direct), indexed(Use::Index);
    ASSERT_TRUE(direct.SetData(strPath, true));
    ASSERT_TRUE(indexed.SetData(strPath, true));
    const Parsed a = ParseWith(direct, strMsg), b = ParseWith(indexed, strMsg);
    ExpectSameEntries(a.vEntries, b.vEntries, true, "file");
    EXPECT_EQ(a.strError, b.strError);
    EXPECT_EQ(a.nResult, b.nResult);
    EXPECT_EQ(a.vProbes, b.vProbes) << "scratch buffer after the parse";
}

std::string Lines(const std::string& strLine, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += strLine;
    return s;
}

const char* const kTop = "Content-Type: multipart/mixed; boundary=\"b\"\n\n";

} // namespace

TEST(MimeIndex, TestMessagesAndShapes) {
    CTempDir dir;
    for (const NamedMessage& m : TestMessages()) ExpectSameParse(m.strBytes, m.strName, dir);

    const std::string strRfc822 =
        "--b\nContent-Type: message/rfc822\n\nSubject: inner\nX: 1\n\nline\nline\n";
    struct Case {
        const char* pszName;
        std::string strMsg;
    } cases[] = {
        // Lines that begin like the delimiter but go on, near the end and far from it.
        {"prefix lines", kTop + Lines("--bX\n", 900) + "--b\n\nx\n" + Lines("--bb\n", 30) +
                             "--b\n\ny\n--bZ\n--b--\n"},
        // The last part is an embedded message without a closing delimiter, a little behind a
        // part that ends in delimiter-like lines: its search runs into the end of the file,
        // where the previous blocks can still match.
        {"embedded message at the end",
         kTop + std::string("--b\n\n") + Lines("text\n", 1500) + Lines("--b\n\n", 3) + strRfc822},
        {"embedded message behind a small part", kTop + std::string("--b\n\n") +
                                                     Lines("text\n", 1500) + "--b\n\nsmall\n" +
                                                     strRfc822 + Lines("--bX\n", 3)},
        {"embedded message far from the end",
         kTop + strRfc822 + Lines("--bX\n", 2000) + "--b\n\n" + Lines("tail\n", 2000)},
        // The closing delimiter with blanks behind it counts only close to the end.
        {"closing with blanks",
         kTop + std::string("--b\n\nx\n--b-- \nmore\n") + Lines("filler\n", 1000) + "--b--  \t \n"},
        {"closing with blanks far from the end",
         kTop + std::string("--b\n\nx\n--b-- \n") + Lines("filler\n", 1000)},
        // A boundary that ends in dashes, and one that is a prefix of the other.
        {"boundary with dashes",
         "Content-Type: multipart/mixed; boundary=\"b--\"\n\n--b--\n\nx\n--b----\n" +
             Lines("pad\n", 5000)},
        {"nested prefixes", kTop +
                                std::string("--b\nContent-Type: multipart/mixed; "
                                            "boundary=\"bb\"\n\n--bb\n\ninner\n--bb--\n") +
                                Lines("pad\n", 3000) + "--b\n" + strRfc822 + "--b--\n"},
        // Line breaks and NUL bytes in boundaries.
        {"boundary with CR",
         "Content-Type: multipart/mixed; boundary=\"a\rb\"\n\n--a\rb\n\nx\n--a\rbc\n--a\n" +
             Lines("pad\n", 5000) + "--a\rb--\n"},
        {"boundary with LF", "Content-Type: multipart/mixed; boundary*=''a%0A--a\n\n--a\n--a\n\n"
                             "x\n--a\n--a\n--a\n--a--\n" +
                                 Lines("pad\n", 5000)},
        // A line break in the boundary lets a match begin inside the one before it: behind a
        // match that is no delimiter the search goes on after it, past a delimiter inside it.
        {"boundary with overlapping matches",
         "Content-Type: multipart/mixed; boundary*=''a%0A--a%0A-\n\n--a\n--a\n-\n\nx\n--a\n--a"
         "\n--a\n-\nmore\n--a\n--a\n-\n\ny\n--a\n--a\n---\n" +
             Lines("pad\n", 100)},
        {"boundary with NUL",
         std::string("Content-Type: multipart/mixed; boundary=\"a\0b\"\n\n--a\0b"
                     "\n\nx\n--a\0b--\n",
                     62) +
             Lines("pad\n", 5000)},
        {"boundary ending in NUL",
         std::string("Content-Type: multipart/mixed; boundary=\"ab\0\"\n\n--ab\0\n\nx\n", 53) +
             Lines("pad\n", 1100) + std::string("--ab\0\n\ny\n", 10) + Lines("pad\n", 1000)},
        {"line longer than a block",
         kTop + std::string("--b\n\nx\n--") + std::string(5000, 'b') + "\n--b\n\ny\n--b--\n"},
        {"dash lines", kTop + std::string("--b\n\n") + Lines("--\n---\n-- \n", 3000) + "--b--\n"},
        {"CR LF",
         ToCRLF(kTop + std::string("--b\n\n") + Lines("text\n", 1500) + "--b\n" + strRfc822)},
    };
    for (const Case& c : cases) ExpectSameParse(c.strMsg, c.pszName, dir);
}

namespace {

// Random nested messages around the edges that matter: parts across block edges, lines that
// begin like delimiters, embedded messages, missing delimiters and cut ends.
class RandomMessages {
public:
    explicit RandomMessages(unsigned nSeed) : m_rng(nSeed) {}

    std::string Next() {
        m_strEol = Pick(2) ? "\r\n" : "\n";
        std::string s = Part(0);
        if (Pick(4) == 0) s.resize(Pick(static_cast<unsigned>(s.size()) + 1));
        return s;
    }

private:
    unsigned Pick(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(m_rng); }

    std::string Body(const std::string& strBoundary) {
        static const char* const kLines[] = {"text", "--", "-- ", "--x", "=20", ""};
        std::string s;
        const unsigned nLines = Pick(3) == 0 ? Pick(1500) : Pick(40);
        for (unsigned i = 0; i < nLines; ++i) {
            const unsigned k = Pick(12);
            if (k < 6)
                s += kLines[k];
            else if (k < 8 && !strBoundary.empty())
                s += "--" + strBoundary + (k == 6 ? "X" : "- ");
            else
                s += std::string(Pick(90), 'a' + static_cast<char>(Pick(26)));
            s += m_strEol;
        }
        return s;
    }

    std::string Part(unsigned nDepth) {
        const unsigned nKind = nDepth >= 4 ? Pick(2) : Pick(4);
        if (nKind == 0) return "Content-Type: text/plain" + m_strEol + m_strEol + Body("b");
        if (nKind == 1)
            return "Content-Type: message/rfc822" + m_strEol + m_strEol + "Subject: s" + m_strEol +
                   m_strEol + Body("b");
        // The parameter and the boundary it gives; the last holds line breaks.
        static const char* const kBoundaries[][2] = {
            {"=\"b\"", "b"},     {"=\"bb\"", "bb"},   {"=\"b-\"", "b-"},
            {"=\"b--\"", "b--"}, {"=\"=_b\"", "=_b"}, {"*=''b%0A--b%0A-", "b\n--b\n-"}};
        const unsigned nBoundary = Pick(6);
        const std::string b = kBoundaries[nBoundary][1];
        std::string s = std::string("Content-Type: multipart/mixed; boundary") +
                        kBoundaries[nBoundary][0] + m_strEol + m_strEol + Body(b);
        const unsigned nParts = Pick(5);
        for (unsigned i = 0; i < nParts; ++i) s += "--" + b + m_strEol + Part(nDepth + 1);
        if (Pick(3) != 0) s += "--" + b + "--" + (Pick(4) == 0 ? " " : "") + m_strEol;
        return s + Body(b);
    }

    std::mt19937 m_rng;
    std::string m_strEol;
};

} // namespace

TEST(MimeIndex, RandomMessages) {
    CTempDir dir;
    RandomMessages gen(12);
    for (int i = 0; i < 400; ++i) {
        const std::string strMsg = gen.Next();
        ExpectSameParse(strMsg, "random message " + std::to_string(i), dir);
        if (HasFailure()) break;
    }
}
