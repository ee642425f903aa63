// Format and offset strings: writing, rebuilding a list from them, and the list cursors.
#include "mime/MimeTestUtil.h"

#include <sstream>

TEST(MimeFormat, RoundTripsThroughTheFormatString) {
    for (const NamedMessage& m : TestMessages()) {
        SCOPED_TRACE(m.strName);
        CQLMimeMsg parsed;
        parsed.Open(m.strBytes, false);
        const std::string strFormat = parsed.GetFormat();
        ASSERT_FALSE(strFormat.empty());
        for (bool bParseHdr : {false, true}) {
            CQLMimeMsg rebuilt;
            ASSERT_TRUE(rebuilt.Open(m.strBytes.c_str(), m.strBytes.size(), strFormat.c_str(),
                                     false, bParseHdr, bParseHdr));
            EXPECT_EQ(rebuilt.GetFormat(), strFormat);
            ExpectSameEntries(Entries(parsed), Entries(rebuilt), true, m.strName);
            if (bParseHdr) {
                // Every part reads its own header block again.
                for (size_t i = 0; i < parsed.size(); ++i)
                    EXPECT_EQ(rebuilt[i]->m_Hdr.size(), parsed[i]->m_Hdr.size()) << i;
            }
        }
    }
}

namespace {

// The record of one entry, written the plain way.
std::string Record(const Entry& e) {
    std::string s;
    for (uint32_t n : Offsets(e)) s += std::to_string(static_cast<int>(n)) + ",";
    return s + e.depth + "," + std::to_string(e.ct) + "," + std::to_string(e.subct) + "," + e.enc +
           "," + std::to_string(e.lines) + ",," + e.charset + "," + e.cid + "," + e.filename + ",";
}

// Each level a multipart around the next, with long part numbers at the bottom.
std::string NestedMessage(int nLevels) {
    std::string strHead, strTail;
    for (int i = 1; i < nLevels; ++i) {
        const std::string b = "lv" + std::to_string(i);
        strHead += "Content-Type: multipart/mixed; boundary=" + b + "\r\n\r\n--" + b + "\r\n";
        strTail = "\r\n--" + b + "--\r\n" + strTail;
    }
    return strHead + "Content-Type: text/plain\r\n\r\nbottom" + strTail;
}

} // namespace

TEST(MimeFormat, EveryRecordIsWrittenExactly) {
    std::vector<NamedMessage> vMessages = TestMessages();
    for (int nLevels : {40, 200}) vMessages.push_back({"nested", NestedMessage(nLevels)});
    for (const NamedMessage& m : vMessages) {
        CQLMimeMsg msg;
        ASSERT_TRUE(msg.Open(m.strBytes, false)) << m.strName;
        std::string strWant;
        for (const CQLMimeMsg* p : msg) strWant += Record(EntryOf(*p)) + "\x05";
        EXPECT_EQ(msg.GetFormat(), strWant) << m.strName;
        EXPECT_EQ(msg[msg.size() - 1]->GetOffSetStr() + "\x05",
                  Record(EntryOf(*msg[msg.size() - 1])) + "\x05")
            << m.strName;
    }
}

TEST(MimeFormat, RecordsAtTheirLongestComeBackWhole) {
    // Every number at its widest and every text long: the record is written back exactly.
    const std::string n = "-2147483648,";
    const std::string strLong(300, 'x');
    std::string strRecord;
    for (int i = 0; i < 8; ++i) strRecord += n;
    strRecord += "1.2.3.," + n + n + "B," + n;
    for (int i = 0; i < 4; ++i) strRecord += strLong + std::to_string(i) + ",";
    const std::string strFormat = strRecord + "\x05" + strRecord + "\x05";
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("From: a\r\n\r\nb\r\n", 0, strFormat.c_str(), false, false, false));
    EXPECT_EQ(msg.GetFormat(), strFormat);
    EXPECT_EQ(msg[1]->GetOffSetStr(), strRecord);
}

TEST(MimeFormat, WithoutHeadersTheFieldsStillStand) {
    const std::string s = "Subject: =?UTF-8?B?7JWI64WV?=\r\nContent-Type: text/plain; "
                          "charset=euc-kr\r\n\r\nbody\r\n";
    CQLMimeMsg parsed;
    ASSERT_TRUE(parsed.Open(s, false));
    CQLMimeMsg rebuilt;
    ASSERT_TRUE(rebuilt.Open(s.c_str(), 0, parsed.GetFormat().c_str(), false, false, false));
    EXPECT_TRUE(rebuilt.GetHdrPtr()->empty());
    EXPECT_EQ(rebuilt.GetSubject(), "");
    EXPECT_EQ(rebuilt[0]->m_strCharSet, "euc-kr");
    EXPECT_FALSE(rebuilt.m_bHasAttach);
}

TEST(MimeFormat, DamagedFormatStrings) {
    const std::string s = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b--\n";
    CQLMimeMsg parsed;
    ASSERT_TRUE(parsed.Open(s, false));
    const std::string strFormat = parsed.GetFormat();
    ASSERT_EQ(parsed.size(), 2u);

    // A record without its 0x05 is not seen.
    CQLMimeMsg cut;
    ASSERT_TRUE(cut.Open(s.c_str(), 0, strFormat.substr(0, strFormat.size() - 1).c_str(), false,
                         true, true));
    EXPECT_EQ(cut.size(), 1u);

    CQLMimeMsg empty;
    EXPECT_FALSE(empty.Open(s.c_str(), 0, "", false, false, false));
    EXPECT_EQ(empty.GetLastError(), "In CQLMimeMsg::Open(), Fail to open main offset info");
    EXPECT_FALSE(empty.Open(s.c_str(), 0, nullptr, false, false, false));
    EXPECT_EQ(empty.GetLastError(), "In CQLMimeMsg::Open(), pszOffSet is null");
    // A message file that can't be opened leaves no entries behind.
    CTempDir dir;
    EXPECT_FALSE(empty.Open(dir.Path("missing").c_str(), 0, strFormat.c_str(), true, true, true));
    EXPECT_EQ(empty.GetLastError().rfind("In CQLMimeMsg::Open(), In SetData(), ", 0), 0u)
        << empty.GetLastError();
    EXPECT_TRUE(empty.empty());

    // Short records keep what the entry held; an empty encoding reads as the comma.
    CQLMimeMsg node;
    node.m_nBEO = 77;
    EXPECT_TRUE(node.SetOffSetStr("", 0, false));
    EXPECT_EQ(node.m_nBEO, 77u);
    EXPECT_TRUE(node.SetOffSetStr("1,2,3", 5, false));
    EXPECT_EQ(node.m_nTSO, 3u);
    EXPECT_EQ(node.m_nBEO, 77u);
    const std::string strRecord = "0,0,0,0,0,0,0,0,1.2.,99,3,,x7,,c,<i>,f.txt,extra,";
    EXPECT_TRUE(node.SetOffSetStr(strRecord.c_str(), strRecord.size(), true));
    EXPECT_EQ(node.m_strDepth, "1.2.");
    EXPECT_EQ(node.m_CT, 99);
    EXPECT_EQ(node.m_Encoder, ',');
    EXPECT_EQ(node.m_nLineCnt, 0);
    EXPECT_EQ(node.m_strFilename, "f.txt");
    // Negative numbers come back as the same 32 bits.
    EXPECT_TRUE(node.SetOffSetStr("-1,", 3, false));
    EXPECT_EQ(node.m_nHSO, 0xFFFFFFFFu);
    EXPECT_EQ(node.GetOffSetStr().substr(0, 3), "-1,");

    // A Content-ID with a comma shifts the file name out of reach.
    CQLMimeMsg shifted;
    ASSERT_TRUE(shifted.Open("From: a\n\nb\n", false));
    shifted[0]->m_strCID = "<a,b>";
    shifted[0]->m_strFilename = "name.txt";
    CQLMimeMsg reread;
    ASSERT_TRUE(reread.Open("x", 0, shifted.GetFormat().c_str(), false, false, false));
    EXPECT_EQ(reread[0]->m_strCID, "<a");
    EXPECT_EQ(reread[0]->m_strFilename, "b>");
}

TEST(MimeFormat, CursorAndLevels) {
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\n"
                         "Content-Type: multipart/alternative; boundary=c\n\n--c\n\ntwo\n--c--\n"
                         "--b--\n",
                         false));
    std::vector<std::string> depths;
    CQLMimeMsg node;
    msg.InitMsgCursor();
    while (msg.GetNextMsg(node)) depths.push_back(node.GetDepth());
    EXPECT_EQ(depths, (std::vector<std::string>{"", "1.", "2.", "2.1."}));
    EXPECT_FALSE(msg.GetNextMsg(node));
    // A copy handed out by the cursor reads through the main message's source.
    std::string strBody;
    msg.InitMsgCursor();
    msg.GetNextMsg(node);
    msg.GetNextMsg(node);
    ASSERT_TRUE(node.GetBody(strBody, false));
    EXPECT_EQ(strBody, "one");

    struct Case {
        const char *a, *b;
        bool same;
    } cases[] = {{"", "1.", true},       {"", "10.", false},      {"1.", "2.", true},
                 {"1.1.", "1.2.", true}, {"1.1.", "2.1.", false}, {"10.", "11.", true},
                 {"9.", "10.", false},   {"1.", "", false},       {"x", "y", false}};
    for (const Case& c : cases) {
        CQLMimeMsg a, b;
        a.m_strDepth = c.a;
        b.m_strDepth = c.b;
        EXPECT_EQ(a.IsSameLevel(b), c.same) << c.a << " " << c.b;
    }
}

TEST(MimeFormat, PrintOffSetNamesTypes) {
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("Content-Type: application/ms-tnef\n\nx\n", false));
    testing::internal::CaptureStdout();
    msg.PrintOffSet();
    const std::string strOut = testing::internal::GetCapturedStdout();
    EXPECT_EQ(strOut, "[0] , ContentType[APPLICATION], SubType[MS-TNEF], MSO[0], MEO[34], HSO[0], "
                      "HEO[34], BSO[35], BEO[37], TSO[35], TEO[37]\n");
    // A top of the message that is itself TNEF raises no flag in the main message.
    EXPECT_FALSE(msg.m_bTNEF);
}
