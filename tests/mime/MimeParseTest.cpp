// The tree parser's offset rules, on messages built byte by byte.
#include "mime/MimeTestUtil.h"

#include <pthread.h>

namespace {

using CT = CQLMimeConst;

std::vector<Entry> ParseMem(const std::string& strMsg, bool* pbOpen = nullptr,
                            std::string* pstrError = nullptr) {
    CQLMimeMsg msg;
    const bool bOpen = msg.Open(strMsg, false);
    if (pbOpen) *pbOpen = bOpen;
    if (pstrError) *pstrError = msg.GetLastError();
    return Entries(msg);
}

uint32_t At(const std::string& s, const std::string& what, size_t from = 0) {
    const size_t n = s.find(what, from);
    EXPECT_NE(n, std::string::npos) << what;
    return static_cast<uint32_t>(n);
}

} // namespace

TEST(MimeParse, ExampleRecordIsExact) {
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("From: a\r\n\r\nhello\r\n", false));
    EXPECT_EQ(msg.GetFormat(), std::string("0,9,11,18,0,9,11,18,,0,0,7,1,,,,,\x05"));
    // The main message reads like its entry 0.
    EXPECT_EQ(msg.GetOffSetStr(), "0,9,11,18,0,9,11,18,,0,0,7,1,,,,,");
}

TEST(MimeParse, LeafMessagesAndHeaderToTheEnd) {
    struct Case {
        const char* pszMsg;
        std::vector<uint32_t> offsets;
        int lines;
    } cases[] = {
        // No Content-Type: a text/plain 7bit leaf; BEO is the length of the source.
        {"From: a\n\nbody", {0, 8, 9, 13, 0, 8, 9, 13}, 0},
        {"From: a\n\nbody\n", {0, 8, 9, 14, 0, 8, 9, 14}, 1},
        // A header that reaches the end: BSO, BEO are HSO, HEO and TSO, TEO are 0.
        {"Subject: x\nFrom: y", {0, 18, 0, 0, 0, 18, 0, 18}, 0},
        {"Subject: x\r\nFrom: y\r\n", {0, 21, 0, 0, 0, 21, 0, 21}, 0},
        // A blank first line: an empty header block at 0, the body behind the blank line.
        {"\nbody\n", {0, 0, 1, 6, 0, 0, 1, 6}, 1},
        {"\r\nbody\r\n", {0, 0, 2, 8, 0, 0, 2, 8}, 1},
        // A first line without a colon is left to the body, which starts at its second byte.
        {"no colon here\nmore\n", {0, 0, 1, 19, 0, 0, 1, 19}, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszMsg);
        const std::vector<Entry> v = ParseMem(c.pszMsg);
        ASSERT_EQ(v.size(), 1u);
        EXPECT_EQ(Offsets(v[0]), c.offsets);
        EXPECT_EQ(v[0].lines, c.lines);
        EXPECT_EQ(v[0].depth, "");
        EXPECT_EQ(v[0].ct, CT::TEXT);
        EXPECT_EQ(v[0].subct, CT::PLAIN);
        EXPECT_EQ(v[0].enc, '7');
    }
}

TEST(MimeParse, TwoPartsWithBothLineEnds) {
    const std::string strLF =
        "Content-Type: multipart/mixed; boundary=\"b\"\n\npreamble\n--b\nContent-Type: "
        "text/plain\n\none\n--b\nContent-Type: text/html\n\n<p>two</p>\n--b--\nepilogue\n";
    for (bool bCRLF : {false, true}) {
        SCOPED_TRACE(bCRLF ? "CR LF" : "LF");
        const std::string s = bCRLF ? ToCRLF(strLF) : strLF;
        const std::string eol = bCRLF ? "\r\n" : "\n";
        const std::vector<Entry> v = ParseMem(s);
        ASSERT_EQ(v.size(), 3u);
        EXPECT_EQ(v[0].depth, "");
        EXPECT_EQ(v[1].depth, "1.");
        EXPECT_EQ(v[2].depth, "2.");

        const uint32_t nHdrEnd = At(s, eol + eol) + static_cast<uint32_t>(eol.size());
        const uint32_t nClose = At(s, "--b--") + 5;
        EXPECT_EQ(Offsets(v[0]), (std::vector<uint32_t>{0, nHdrEnd, nHdrEnd, nClose, 0, nHdrEnd,
                                                        nHdrEnd, nClose}));
        EXPECT_EQ(v[0].ct, CT::MULTIPART);
        EXPECT_EQ(v[0].subct, CT::MIXED);

        const uint32_t nPart1 = At(s, "--b" + eol) + 3 + static_cast<uint32_t>(eol.size());
        const uint32_t nDelim2 = At(s, "--b" + eol, nPart1);
        const uint32_t nPart2 = nDelim2 + 3 + static_cast<uint32_t>(eol.size());
        const uint32_t nBlank1 = At(s, eol + eol, nPart1) + static_cast<uint32_t>(eol.size());
        const uint32_t nBlank2 = At(s, eol + eol, nPart2) + static_cast<uint32_t>(eol.size());
        // A part ends behind the CR LF before a delimiter, but before a bare LF.
        const uint32_t nEnd1 = bCRLF ? nDelim2 : nDelim2 - 1;
        const uint32_t nEnd2 = bCRLF ? At(s, "--b--") : At(s, "--b--") - 1;
        const uint32_t nEol = static_cast<uint32_t>(eol.size());
        EXPECT_EQ(Offsets(v[1]),
                  (std::vector<uint32_t>{0, 0, 0, 0, nPart1, nBlank1, nBlank1 + nEol, nEnd1}));
        EXPECT_EQ(Offsets(v[2]),
                  (std::vector<uint32_t>{0, 0, 0, 0, nPart2, nBlank2, nBlank2 + nEol, nEnd2}));
        EXPECT_EQ(v[1].subct, CT::PLAIN);
        EXPECT_EQ(v[2].subct, CT::HTML);
        EXPECT_EQ(v[1].lines, 1);
    }
}

TEST(MimeParse, NestedThreeDeepIsFlatAndDepthFirst) {
    for (const NamedMessage& m : TestMessages()) {
        if (m.strName.rfind("nested-3/", 0) != 0) continue;
        SCOPED_TRACE(m.strName);
        const std::vector<Entry> v = ParseMem(m.strBytes);
        std::vector<std::string> depths;
        for (const Entry& e : v) depths.push_back(e.depth);
        EXPECT_EQ(depths,
                  (std::vector<std::string>{"", "1.", "1.1.", "1.2.", "1.2.1.", "1.2.2.", "2."}));
        // A multipart inside a multipart: TSO, TEO equal BSO, BEO; MSO, MEO its header.
        for (size_t i : {1u, 3u}) {
            EXPECT_EQ(v[i].ct, CT::MULTIPART);
            EXPECT_EQ(v[i].tso, v[i].bso);
            EXPECT_EQ(v[i].teo, v[i].beo);
            EXPECT_EQ(v[i].bso, v[i].meo);
            EXPECT_EQ(v[i].hso, 0u);
            EXPECT_EQ(m.strBytes.substr(v[i].beo - 2, 2), "--"); // behind its closing delimiter
        }
        EXPECT_EQ(v[4].subct, CT::HTML);
        EXPECT_EQ(v[5].ct, CT::IMAGE);
        EXPECT_EQ(v[5].subct, CT::GIF);
        EXPECT_EQ(v[5].enc, 'B');
        // Values keep a bare LF line end, and so does the format string.
        const bool bLF = m.strName.find("/lf") != std::string::npos;
        EXPECT_EQ(v[5].cid, bLF ? "<g1>\n" : "<g1>");
        EXPECT_EQ(m.strBytes.substr(v[5].bso, 8), "R0lGODlh");
        EXPECT_EQ(v[6].ct, CT::APPLICATION);
        EXPECT_EQ(v[6].filename, "a.pdf");
        // Every part lies inside the top's range.
        for (const Entry& e : v) EXPECT_LE(e.beo, v[0].beo);
    }
}

TEST(MimeParse, EmbeddedMessageIsOneLeaf) {
    const std::string s =
        "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: "
        "message/rfc822\r\n\r\nFrom: x\r\n\r\ninner body\r\nline 2\r\n--b--\r\n";
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(s, false));
    ASSERT_EQ(msg.size(), 2u);
    const CQLMimeMsg& part = *msg[1];
    EXPECT_EQ(part.m_CT, CT::MESSAGE);
    EXPECT_EQ(part.m_SubCT, CT::RFC822);
    // The whole embedded message is the body; nothing below it is listed.
    EXPECT_EQ(s.substr(part.m_nBSO, part.m_nBEO - part.m_nBSO),
              "From: x\r\n\r\ninner body\r\nline 2\r\n");
    EXPECT_EQ(part.m_strFilename, "noname.eml");
    EXPECT_TRUE(part.m_bHasAttach);
    EXPECT_TRUE(msg.m_bHasAttach);
    // The delimiter search counted 7 newlines from behind the first delimiter's "-" through
    // the LF before the closing one; less 3, less the part's one header line.
    EXPECT_EQ(part.m_nLineCnt, 3);
}

TEST(MimeParse, DamagedStructureIsTolerated) {
    bool bOpen = false;
    std::string strError;

    // No first delimiter: a multipart without parts that runs to the end.
    const std::string strNoFirst =
        "Content-Type: multipart/mixed; boundary=\"b\"\n\nno delimiter at all\n";
    std::vector<Entry> v = ParseMem(strNoFirst, &bOpen, &strError);
    EXPECT_TRUE(bOpen);
    ASSERT_EQ(v.size(), 1u);
    EXPECT_EQ(v[0].beo, strNoFirst.size());
    EXPECT_EQ(v[0].teo, strNoFirst.size());
    EXPECT_EQ(strError, "In Parse(), Fail to find next boundary. \n--b");

    // No closing delimiter: the last part runs to the end of the source.
    const std::string strNoClose = "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\none\n"
                                   "--b\n\ntwo runs to the end\n";
    v = ParseMem(strNoClose, &bOpen, &strError);
    EXPECT_TRUE(bOpen);
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(v[2].beo, strNoClose.size());
    EXPECT_EQ(v[0].beo, strNoClose.size());
    EXPECT_EQ(strError, "In Parse(), Fail to find next boundary \n--b");

    // "--b--" and blanks at the very end close the multipart.
    const std::string strBlanks =
        "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\none\n--b--   ";
    v = ParseMem(strBlanks);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[1].beo, At(strBlanks, "\n--b--"));
    EXPECT_EQ(v[0].beo, At(strBlanks, "--b--") + 5);

    // A boundary that is only the prefix of a longer line is no delimiter.
    const std::string strPrefix = "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\nfirst\n"
                                  "--bx\n--b --\n--b\n\ntwo\n--b--\n";
    v = ParseMem(strPrefix);
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(strPrefix.substr(v[1].bso, v[1].beo - v[1].bso), "first\n--bx\n--b --");

    // A multipart without a boundary parameter has no parts; nested, BSO and BEO stay 0.
    v = ParseMem("Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: "
                 "multipart/alternative\n\nx\n--b--\n");
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[1].ct, CT::MULTIPART);
    EXPECT_EQ(v[1].bso, 0u);
    EXPECT_EQ(v[1].beo, 0u);
}

TEST(MimeParse, LeafLineCountsAreTheNewlinesOfTheirBodies) {
    // A leaf counts the newlines from its body's first byte through BEO, that byte included,
    // whatever the search for its delimiter had to skip.
    for (const NamedMessage& m : TestMessages()) {
        CQLMimeMsg msg;
        ASSERT_TRUE(msg.Open(m.strBytes, false)) << m.strName;
        for (const Entry& e : Entries(msg)) {
            if (e.depth.empty() || e.ct == CT::MULTIPART || e.ct == CT::MESSAGE) continue;
            EXPECT_EQ(static_cast<unsigned long>(e.lines),
                      CQLIMimeStr::GetLineCnt(m.strBytes, e.bso, e.beo))
                << m.strName << " part " << e.depth;
        }
    }
}

TEST(MimeParse, PartHeaderSwallowsTheNextDelimiter) {
    const std::string s = "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\nContent-Type: "
                          "text/plain\n--b\nX-Next: 1\n\nbody\n--b--\n";
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(s, false));
    ASSERT_EQ(msg.size(), 3u);
    // Headers are not bounded by their part: the delimiter line is a continuation without
    // a colon, and the next part's field joins the block.
    const CQLMimeHdr& hdr = msg[1]->m_Hdr;
    ASSERT_EQ(hdr.size(), 2u);
    EXPECT_EQ(hdr.front().m_strValue, "text/plain\n--b\n");
    EXPECT_EQ(hdr.back().m_strName, "X-Next");
    EXPECT_EQ(msg[1]->m_nBSO, msg[1]->m_nBEO);
    EXPECT_EQ(msg[2]->m_Hdr.size(), 1u);
}

TEST(MimeParse, PartWhoseHeaderReachesTheEnd) {
    const std::string s =
        "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\none\n--b\nX-Last: field";
    const std::vector<Entry> v = ParseMem(s);
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(Offsets(v[2]), (std::vector<uint32_t>{0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(v[2].depth, "2.");
}

namespace {

std::string ManyParts(int nParts) {
    std::string s = "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n";
    for (int i = 0; i < nParts; ++i) s += "--b\r\n\r\nx\r\n";
    return s + "--b--\r\n";
}

// Each level is a multipart holding the next; the innermost entity is a text leaf.
std::string Nested(int nLevels) {
    std::string strHead, strTail;
    for (int i = 1; i < nLevels; ++i) {
        const std::string b = "=_level" + std::to_string(i) + "_=";
        strHead += "Content-Type: multipart/mixed; boundary=\"" + b + "\"\r\n\r\n--" + b + "\r\n";
        strTail = "\r\n--" + b + "--\r\n" + strTail;
    }
    return strHead + "Content-Type: text/plain\r\n\r\ndeepest" + strTail;
}

} // namespace

TEST(MimeParse, EntityLimitOf2000) {
    bool bOpen = false;
    std::string strError;
    // The top and 1999 parts are 2000 entities.
    std::vector<Entry> v = ParseMem(ManyParts(1999), &bOpen, &strError);
    EXPECT_TRUE(bOpen);
    EXPECT_EQ(v.size(), 2000u);
    EXPECT_EQ(v.back().depth, "1999.");

    v = ParseMem(ManyParts(2000), &bOpen, &strError);
    EXPECT_FALSE(bOpen);
    EXPECT_EQ(strError, "In Open(), stack overflow.");
    ASSERT_EQ(v.size(), 2001u);
    // The entity over the limit stays in its initial state, but for its number.
    EXPECT_EQ(Offsets(v.back()), (std::vector<uint32_t>{0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(v.back().depth, "2000.");
    EXPECT_NE(v[1999].beo, 0u);
}

namespace {

struct DeepResult {
    std::string strMsg;
    bool bOpen = false;
    size_t nEntries = 0;
    std::string strLastDepth;
    std::string strBody;
    std::string strError;
};

void* ParseDeep(void* pArg) {
    DeepResult* r = static_cast<DeepResult*>(pArg);
    CQLMimeMsg msg;
    r->bOpen = msg.Open(r->strMsg, false);
    r->nEntries = msg.size();
    if (!msg.empty()) {
        r->strLastDepth = msg.back()->m_strDepth;
        msg.back()->GetBody(r->strBody, true);
    }
    r->strError = msg.GetLastError();
    return nullptr;
}

// Runs on a thread with a 256 KiB stack, as a Java thread might have.
void ParseOnSmallStack(DeepResult& r) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attr, ParseDeep, &r), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

} // namespace

TEST(MimeParse, DeepNestingOnASmallStack) {
    DeepResult deep;
    deep.strMsg = Nested(2000);
    ParseOnSmallStack(deep);
    EXPECT_TRUE(deep.bOpen) << deep.strError;
    EXPECT_EQ(deep.nEntries, 2000u);
    std::string strDepth;
    for (int i = 1; i < 2000; ++i) strDepth += "1.";
    EXPECT_EQ(deep.strLastDepth, strDepth);
    EXPECT_EQ(deep.strBody, "deepest\r\n");

    DeepResult over;
    over.strMsg = Nested(2001);
    ParseOnSmallStack(over);
    EXPECT_FALSE(over.bOpen);
    EXPECT_EQ(over.strError, "In Open(), stack overflow.");
    EXPECT_EQ(over.nEntries, 2001u);
}

TEST(MimeParse, ReopenAndCloseResetTheList) {
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(ManyParts(3), false));
    EXPECT_EQ(msg.size(), 4u);
    ASSERT_TRUE(msg.Open("From: a\n\nb\n", false));
    EXPECT_EQ(msg.size(), 1u);
    msg.Close();
    EXPECT_TRUE(msg.empty());
    EXPECT_EQ(msg.GetFormat(), "");
    EXPECT_FALSE(msg.Open("", false));
    EXPECT_EQ(msg.GetLastError(), "In Open(), strData is empty.");
}
