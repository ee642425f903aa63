// Records of the format string, the record cursor, and format strings that do not fit the
// file they are read with.
#include "reader/ReaderTestUtil.h"

#include <filesystem>

using Item = CQLMimeMsgInfo::CQLMimeMsgInfoItem;

TEST(MsgInfoRecord, SetReadsFieldsByCommas) {
    struct Case {
        std::string strRecord;
        std::vector<int> numbers;       // HSO..BEO, CT, SubCT, Encoder, lines
        std::vector<std::string> texts; // depth, level, charset, cid, file name
    } cases[] = {
        {"1,2,3,4,5,6,7,8,1.2.,4,14,B,9,lv,euc-kr,<c@d>,a.pdf,",
         {1, 2, 3, 4, 5, 6, 7, 8, 4, 14, 'B', 9},
         {"1.2.", "lv", "euc-kr", "<c@d>", "a.pdf"}},
        // Numbers read as strtol reads them, then cut to 32 bits: blanks and signs, a value
        // clamped to LONG_MAX, one that wraps, no hexadecimal.
        {" 7,+8,-9,99999999999999999999,4294967297,123456789012345678,1234567890123456780,"
         "1234567890123456789,1.,4,14,B,0x10,,,,,",
         {7, 8, -9, -1, 1, -1506741426, 2112454924, 2112454933, 4, 14, 'B', 0},
         {"1.", "", "", "", ""}},
        // A short record leaves zeros; an empty encoding reads as the comma behind it.
        {"10,-20,", {10, -20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {"", "", "", "", ""}},
        {"0,0,0,0,0,0,0,0,,0,0,,0,,,,,",
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ',', 0},
         {"", "", "", "", ""}},
        // A comma in the Content-ID shifts the file name; an unclosed last field is not read.
        {"0,0,0,0,0,0,0,0,1.,0,0,7,3,,cs,<a,b>,f.txt,",
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '7', 3},
         {"1.", "", "cs", "<a", "b>"}},
        {"0,0,0,0,0,0,0,0,1.,0,0,7,3,,cs,,f.txt",
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '7', 3},
         {"1.", "", "cs", "", ""}},
        // Too few fields run on into the next record, whose 0x05 leads the next token.
        {"1,2,3,\x05"
         "9,9,9,9,9,9,9,9,1.,0,0,7,0,,,,,\x05",
         {1, 2, 3, 0, 9, 9, 9, 9, 9, 9, '1', 0},
         {"9", "0", "7", "0", ""}},
        {"", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {"", "", "", "", ""}},
    };
    Item item; // reused: every record reads as into a fresh item
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strRecord);
        EXPECT_TRUE(item.Set(c.strRecord.c_str()));
        EXPECT_EQ((std::vector<int>{item.m_nHSO, item.m_nHEO, item.m_nTSO, item.m_nTEO, item.m_nMSO,
                                    item.m_nMEO, item.m_nBSO, item.m_nBEO, item.m_CT, item.m_SubCT,
                                    item.m_Encoder, item.m_nLineCnt}),
                  c.numbers);
        EXPECT_EQ((std::vector<std::string>{item.m_strDepth, item.m_strReserved, item.m_strCharSet,
                                            item.m_strCID, item.m_strFilename}),
                  c.texts);
        EXPECT_EQ(item.GetLastError(), "");
    }
    EXPECT_TRUE(item.Set(nullptr));
    EXPECT_EQ(item.m_strFilename, "");
}

TEST(MsgInfoRecord, CursorRuleAndDefaultCharset) {
    CTempDir dir;
    // A message that is itself the attachment: its only part is the first record.
    const Stored s = Store(dir, "Content-Type: application/pdf; name=a.pdf; charset=euc-kr\n"
                                "Content-Transfer-Encoding: base64\n\nQUJD\n");
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    EXPECT_EQ(info.m_strDefaultFromCharset, "euc-kr");
    CQLMimeAttachInfo a;
    EXPECT_EQ(a.m_nStartPos + a.m_nEndPos + a.m_nMSO + a.m_nMEO + a.m_nLineCnt + a.m_nEncoding, 0u);
    EXPECT_FALSE(info.GetNextAttach(a, "", "UTF-8", ""));
    EXPECT_EQ(info.GetLastError(), "No Such Attachment");
    EXPECT_EQ(a.m_nEndPos, 0u);
    info.InitAttachCursor();
    ASSERT_TRUE(info.GetNextAttach(a, "", "UTF-8", ""));
    EXPECT_EQ(a.m_strFileName, "a.pdf");
    EXPECT_EQ(a.m_strAttachId, "");
    EXPECT_EQ(Joined(StreamBlocks(info, a, true)), "ABC");

    CQLMimeMsgInfo empty("");
    EXPECT_EQ(empty.m_strDefaultFromCharset, "");
}

// Whatever the format string says, every operation answers without reading outside the file.
TEST(MsgInfoRecord, DamagedAndStaleFormatStrings) {
    CTempDir dir;
    const std::string strMsg = "Subject: s\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n"
                               "--b\r\nContent-Type: text/plain\r\n\r\nhello\r\n"
                               "--b\r\nContent-Type: image/png; name=a.png\r\nContent-ID: <c>\r\n"
                               "Content-Transfer-Encoding: base64\r\n\r\nQUJDRA==\r\n--b--\r\n";
    const Stored s = Store(dir, strMsg);
    // Records of every kind that the operations pick, behind the offsets of each case.
    const char* const pszTails[] = {",1.,0,0,B,0,,,,,", ",2.,0,1,Q,0,,,,,",
                                    ",3.,1,0,7,0,,,<y>,y.gif,", ",4.,4,14,B,0,,,,w.dat,",
                                    ",5.,4,6,Q,0,,,,q.txt,"};
    auto fill = [&](const std::string& strOffsets) {
        std::string f;
        for (const char* pszTail : pszTails) f += strOffsets + pszTail + '\x05';
        return f;
    };
    std::vector<std::string> formats = {
        "",
        "\x05",
        ",,,,\x05",
        "garbage\x05\x05,\x05",
        std::string("\xff\x00\x05", 3),
        fill("9,1,0,0,0,0,9,1"),                       // BEO below BSO, HEO below HSO
        fill("0,2000000000,0,0,0,0,0,2000000000"),     // past the end
        fill("-40,-1,0,0,-1,-1,-40,-1"),               // wrapped to 4 GiB
        fill("60,4100,0,0,4000,4100,60,4100"),         // running past the end
        fill("4000,4100,0,0,4000,4100,4000,4100"),     // starting past the end
        s.strFormat.substr(0, s.strFormat.size() / 2), // cut in the middle
        SetField(s.strFormat, 2, 15, "<a,b>"),         // a comma inside a field
    };
    auto exercise = [](const std::string& strPath, const std::string& strFormat) {
        CQLMimeMsgInfo info(strPath, strFormat);
        std::string strOut;
        info.GetHeader(strOut, "");
        EXPECT_LE(strOut.size(), 4096u);
        info.GetHeaderValue("Subject", strOut, true, "", "UTF-8", "");
        info.GetText(strOut, false, "", "", "UTF-8", true, "");
        EXPECT_LE(strOut.size(), 4096u);
        info.GetText(strOut, true, "", "", "UTF-8", true, "");
        bool bMixed = false;
        info.IsRelated(bMixed);
        info.IsTNEF();
        for (int nList = 0; nList < 2; ++nList) {
            info.InitAttachCursor();
            CQLMimeAttachInfo a;
            while (nList == 0 ? info.GetNextAttach(a, "", "UTF-8", "")
                              : info.GetNextCID(a, "", "UTF-8", "")) {
                for (bool bDecode : {false, true}) {
                    info.GetAttachContentSize(a, bDecode);
                    EXPECT_LE(Joined(StreamBlocks(info, a, bDecode)).size(), 4096u);
                }
            }
        }
    };
    for (const std::string& f : formats) {
        SCOPED_TRACE(::testing::PrintToString(f));
        exercise(s.strPath, f);
    }
    // A reversed range, and one that starts past the end, read nothing.
    for (const char* pszOffsets : {"9,1,0,0,0,0,9,1", "4000,4100,0,0,4000,4100,4000,4100"}) {
        CQLMimeMsgInfo info(s.strPath, fill(pszOffsets));
        std::string strOut = "x";
        EXPECT_TRUE(info.GetHeader(strOut, ""));
        EXPECT_EQ(strOut, "");
        EXPECT_TRUE(info.GetText(strOut, false, "", "", "UTF-8", true, ""));
        EXPECT_EQ(strOut, "");
    }

    // The file shortened, replaced by other bytes, and deleted after the string was written.
    const std::string strPath = dir.MakeFile(strMsg);
    for (const std::string& strNow : {strMsg.substr(0, 70), std::string(), std::string("x")}) {
        SCOPED_TRACE(strNow);
        std::ofstream(strPath, std::ios::binary | std::ios::trunc) << strNow;
        exercise(strPath, s.strFormat);
    }
    CQLMimeMsgInfo info(strPath, s.strFormat);
    std::string strOut;
    EXPECT_TRUE(info.GetHeader(strOut, ""));
    EXPECT_EQ(strOut, "x");
    std::filesystem::remove(strPath);
    exercise(strPath, s.strFormat);
}
