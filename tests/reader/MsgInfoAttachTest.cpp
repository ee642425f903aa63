// Attachments and inline images: listing, names, structure tests, streaming and sizes.
#include "reader/ReaderTestUtil.h"

#include "codec/QLCodecParser.h"

#include <filesystem>

namespace {

std::string Part(const std::string& strFields, const std::string& strBody) {
    return "--b\n" + strFields + "\n\n" + strBody + "\n";
}

// Base64 of the data in lines of 76 characters.
std::string Base64Lines(const std::string& strData) {
    CQLCodecParser codec;
    const std::string strB64 = codec.EncodeB64(strData, false, true, 76);
    std::string strOut;
    for (size_t i = 0; i < strB64.size(); i += 76) strOut += strB64.substr(i, 76) + "\n";
    if (!strOut.empty()) strOut.pop_back();
    return strOut;
}

// The descriptor of the first record: the body of a message without parts.
CQLMimeAttachInfo FirstRecord(const std::string& strFormat) {
    CQLMimeMsgInfo::CQLMimeMsgInfoItem item;
    item.Set(strFormat.c_str());
    CQLMimeAttachInfo a;
    a.m_nStartPos = item.m_nBSO, a.m_nEndPos = item.m_nBEO, a.m_nEncoding = item.m_Encoder;
    a.m_nLineCnt = item.m_nLineCnt;
    return a;
}

std::vector<std::pair<std::string, std::string>> List(CQLMimeMsgInfo& info, bool bCID) {
    std::vector<std::pair<std::string, std::string>> v;
    info.InitAttachCursor();
    CQLMimeAttachInfo a;
    while (bCID ? info.GetNextCID(a, "", "UTF-8", "") : info.GetNextAttach(a, "", "UTF-8", "")) {
        v.emplace_back(a.m_strFileName, Joined(StreamBlocks(info, a, true)));
        EXPECT_EQ(a.m_nMSO == 0, bCID) << a.m_strFileName;
        EXPECT_LT(a.m_nMSO, a.m_nStartPos);
    }
    EXPECT_EQ(info.GetLastError(), bCID ? "No Such Content-ID" : "No Such Attachment");
    return v;
}

} // namespace

TEST(MsgInfoAttach, AttachmentsAgainstInlineImages) {
    const std::string strMsg =
        "Content-Type: multipart/related; boundary=b\n\n" +
        Part("Content-Type: text/html", "<img src=\"cid:a@x\">") +
        Part("Content-Type: image/png; name=a.png\nContent-ID: <a@x>\n"
             "Content-Transfer-Encoding: base64",
             "QUJD") +
        Part("Content-Type: image/gif; name=b.gif\nContent-ID: <b@x>\n"
             "Content-Disposition: attachment; filename=b.gif",
             "GIF") +
        Part("Content-Type: application/pdf; name=c.pdf\nContent-ID: <c@x>", "PDF") +
        Part("Content-Type: application/octet-stream; name=d.JPG\nContent-ID: <d@x>", "JPG") +
        Part("Content-Type: application/octet-stream; name=e.jpeg\nContent-ID: <e@x>", "JPEG") +
        Part("Content-Type: application/octet-stream; name=f.txt", "F") +
        Part("Content-Type: image/png\nContent-ID: <g/h:i?>", "G") +
        Part("Content-Type: image/png; name=k.png\nContent-ID: <k@x>\n"
             "Content-Disposition: ATTACHMENT; filename=k.png",
             "K") +
        Part("Content-Type: image/png; name=n.png", "N") + "--b--\n";
    for (const auto& [strForm, strBytes] : BothForms(strMsg)) {
        SCOPED_TRACE(strForm);
        CTempDir dir;
        const Stored s = Store(dir, strBytes);
        // A decoded name loses the characters a file system or the format string can't take.
        const std::string strFormat = SetField(s.strFormat, 7, 16, "=?utf-8?B?YS9iOmM/LHQudHh0?=");
        CQLMimeMsgInfo info(s.strPath, strFormat);
        // The last line of a part comes whole, with CR LF.
        const std::string strEnd = "\r\n";
        using V = std::vector<std::pair<std::string, std::string>>;
        EXPECT_EQ(List(info, false), (V{{"b.gif", "GIF" + strEnd},
                                        {"c.pdf", "PDF" + strEnd},
                                        {"e.jpeg", "JPEG" + strEnd},
                                        {"a_b_c__t.txt", "F" + strEnd},
                                        {"n.png", "N" + strEnd}}));
        EXPECT_EQ(List(info, true), (V{{"<a@x>", "ABC"},
                                       {"<b@x>", "GIF" + strEnd},
                                       {"<d@x>", "JPG" + strEnd},
                                       {"<g/h:i?>", "G" + strEnd},
                                       {"<k@x>", "K" + strEnd}}));
        bool bMixed = true;
        EXPECT_TRUE(info.IsRelated(bMixed));
        EXPECT_FALSE(bMixed);
        info.SetDefaultFromCharset(); // leaves an error text alone
        EXPECT_FALSE(info.IsTNEF());
        EXPECT_EQ(info.GetLastError(), "No Such Content-ID");
    }
}

TEST(MsgInfoAttach, NamesAndStructureTests) {
    CQLMimeMsgInfo info("");
    EXPECT_EQ(info.FixFilename("a/b\\c:d\"e*f<g>h|i?j,k l.txt"), "a_b_c_d_e_f_g_h_i_j_k l.txt");
    EXPECT_EQ(info.FixFilename(""), "");
    for (const char* pszName : {"a.jpg", "b.GIF", "c.d.Png", ".bmp", "x.JpG"})
        EXPECT_TRUE(info.IsImageExtention(pszName)) << pszName;
    for (const char* pszName : {"", "jpg", "a.jpeg", "a.jp", "a.png.txt", "a.pn g", "png."})
        EXPECT_FALSE(info.IsImageExtention(pszName)) << pszName;

    // IsRelated reads the subtypes of the first records; IsTNEF looks at every record.
    struct Case {
        std::vector<int> subtypes;
        bool bRelated, bMixed;
    } cases[] = {
        {{}, false, false},       {{8}, true, false},         {{3, 8}, true, true},
        {{3, 2, 8}, false, true}, {{3}, false, true},         {{2, 1, 0, 8}, true, false},
        {{2, 3, 8}, true, true},  {{2, 3, 0, 8}, true, true}, {{2, 0, 3}, false, true},
        {{0, 8}, false, false},   {{2, 0}, false, false},     {{2, 3, 0}, false, true},
        {{14, 8}, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.subtypes));
        std::string strFormat;
        for (int nSub : c.subtypes)
            strFormat += "0,0,0,0,0,0,0,0,,4," + std::to_string(nSub) + ",7,0,,,,,\x05";
        CQLMimeMsgInfo msg(strFormat);
        bool bMixed = !c.bMixed;
        EXPECT_EQ(msg.IsRelated(bMixed), c.bRelated);
        EXPECT_EQ(bMixed, c.bMixed);
        EXPECT_EQ(msg.IsTNEF(), !c.subtypes.empty() && c.subtypes[0] == 14);
    }
    // IsRelated leaves the record cursor where it was; IsTNEF leaves it behind its find.
    CQLMimeMsgInfo tnef("0,0,0,0,0,0,0,0,,5,3,7,0,,,,,\x05"
                        "0,0,0,0,0,0,0,0,1.,4,14,B,0,,,,w.dat,\x05"
                        "0,0,0,0,0,0,0,0,2.,1,0,B,0,,,<c>,,\x05");
    bool bMixed = false;
    EXPECT_FALSE(tnef.IsRelated(bMixed));
    CQLMimeAttachInfo a;
    ASSERT_TRUE(tnef.GetNextAttach(a, "", "UTF-8", ""));
    EXPECT_EQ(a.m_strAttachId, "1.");
    ASSERT_TRUE(tnef.IsTNEF());
    ASSERT_TRUE(tnef.GetNextCID(a, "", "UTF-8", ""));
    EXPECT_EQ(a.m_strAttachId, "2.");
    EXPECT_FALSE(tnef.GetNextCID(a, "", "UTF-8", ""));
}

// Base64 parts with each kind of padding: the streamed bytes, the blocks, and the size
// worked out from the stored figures agree in both line-end styles.
TEST(MsgInfoAttach, StreamingAndSizesOfBase64) {
    for (size_t nLen : {10240u, 10241u, 10242u, 1u}) {
        const std::string strData = PatternBytes(nLen);
        const std::string strB64 = Base64Lines(strData);
        for (const auto& [strForm, strMsg] :
             BothForms("Content-Type: multipart/mixed; boundary=b\n\n" +
                       Part("Content-Type: application/octet-stream; name=a.bin\n"
                            "Content-Transfer-Encoding: base64",
                            strB64) +
                       "--b--\n")) {
            SCOPED_TRACE(strForm + " " + std::to_string(nLen));
            CTempDir dir;
            const Stored s = Store(dir, strMsg);
            CQLMimeMsgInfo info(s.strPath, s.strFormat);
            info.InitAttachCursor();
            CQLMimeAttachInfo a;
            ASSERT_TRUE(info.GetNextAttach(a, "", "UTF-8", ""));
            const std::vector<std::string> blocks = StreamBlocks(info, a, true);
            EXPECT_EQ(Joined(blocks), strData);
            EXPECT_EQ(info.GetAttachContentSize(a, true), nLen);
            EXPECT_EQ(info.GetAttachContentSize(a, false), a.m_nEndPos - a.m_nStartPos);
            // Blocks of at least 10240 source bytes in whole lines, each decoding by itself.
            const size_t nLineBytes = strForm == "LF" ? 77 : 78;
            for (size_t i = 0; i + 1 < blocks.size(); ++i)
                EXPECT_EQ(blocks[i].size(), (10240 + nLineBytes - 1) / nLineBytes * 57) << i;
            // Raw, every line comes with CR LF, the last one whole past the part's end.
            const std::string strRaw = Joined(StreamBlocks(info, a, false));
            EXPECT_EQ(strRaw, ToCRLF(strB64 + "\n"));
        }
    }
}

// Lines that are not whole groups carry their rest to the next line of the same block only.
TEST(MsgInfoAttach, Base64LinesOfAnyLength) {
    struct Case {
        std::string strBody;
        std::string strWant;
    } cases[] = {
        {"QUJD\nQUJDR\nUZHSA==", "ABCABCEFGH"},
        {"QQ==\nQUJD", "AABC"},  // each line stops at its own padding
        {"QU*J\nD", ""},         // a foreign byte breaks the group of its line
        {"QUJDQ\nU\nJD", "ABC"}, // short lines keep the rest they were given
        {" QUJD\n\tQUJD \n", "ABCABC"},
    };
    for (const Case& c : cases) {
        for (const auto& [strForm, strMsg] :
             BothForms("Content-Transfer-Encoding: base64\n\n" + c.strBody + "\n")) {
            SCOPED_TRACE(strForm + " " + c.strBody);
            CTempDir dir;
            const Stored s = Store(dir, strMsg);
            CQLMimeMsgInfo info(s.strPath, s.strFormat);
            EXPECT_EQ(Joined(StreamBlocks(info, FirstRecord(s.strFormat), true)), c.strWant);
        }
    }
    // Lines of 77 characters: within a block the rests join, at its end the rest is lost.
    const std::string strData = PatternBytes(30000);
    CQLCodecParser codec;
    const std::string strB64 = codec.EncodeB64(strData, false, true, 76);
    std::string strBody;
    for (size_t i = 0; i < strB64.size(); i += 77) strBody += strB64.substr(i, 77) + "\r\n";
    CTempDir dir;
    const Stored s = Store(dir, "Content-Transfer-Encoding: base64\r\n\r\n" + strBody);
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    const std::vector<std::string> blocks = StreamBlocks(info, FirstRecord(s.strFormat), true);
    ASSERT_GE(blocks.size(), 2u);
    // 130 lines of 79 bytes make the first block: 10010 characters, 2502 whole groups.
    EXPECT_EQ(blocks[0], strData.substr(0, 2502 * 3));
    EXPECT_NE(Joined(blocks), strData);
}

TEST(MsgInfoAttach, SizesFromTheTailAndReadThrough) {
    struct Case {
        std::string strMsg;
        unsigned int nSize;
    } cases[] = {
        // A tail that reaches into the header takes its "=" for padding.
        {"Content-Type: application/x; name=a\nContent-Transfer-Encoding: base64\n"
         "X-Pad: z=1\n\nQUJD",
         0},
        // A part ending below offset 40 reads its tail past the end: no correction.
        {"Content-Transfer-Encoding: base64\n\nQUJD", 3},
        {"Content-Transfer-Encoding: base64\n\n", 0},
        {"Content-Transfer-Encoding: quoted-printable\n\ncaf=C3=A9 =\nsoft\nline\n",
         sizeof("café soft\r\nline\r\n") - 1},
        // The whole tail when its last "=" is too close to its start for a group.
        {"Content-Transfer-Encoding: base64\n\nQQ=" + std::string(37, 'A'), 28},
        {"Content-Transfer-Encoding: 8bit\n\nline=3D\nend", 12},
    };
    CTempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strMsg);
        const Stored s = Store(dir, c.strMsg);
        CQLMimeMsgInfo info(s.strPath, s.strFormat);
        const CQLMimeAttachInfo a = FirstRecord(s.strFormat);
        // Reading through ends the stream that was open.
        ASSERT_TRUE(info.OpenAttach(a));
        EXPECT_EQ(info.GetAttachContentSize(a, true), c.nSize);
        std::string strBlock;
        if (a.m_nEncoding != 'B') {
            EXPECT_FALSE(info.GetAttachContentNext(strBlock, true));
        }
    }
}

TEST(MsgInfoAttach, StreamEndsAndFailures) {
    CTempDir dir;
    const std::string strMsg = "Content-Transfer-Encoding: base64\n\nQUJD\nQUJD\n";
    const Stored s = Store(dir, strMsg);
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    CQLMimeAttachInfo a;
    std::string strBlock = "x";
    EXPECT_FALSE(info.GetAttachContentNext(strBlock, true)); // nothing opened
    EXPECT_EQ(strBlock, "");
    a.m_nStartPos = a.m_nEndPos = static_cast<unsigned int>(strMsg.find("QUJD"));
    a.m_nEncoding = 'B';
    ASSERT_TRUE(info.OpenAttach(a));
    EXPECT_FALSE(info.GetAttachContentNext(strBlock, true));
    EXPECT_EQ(info.GetLastError(), "");
    // A range past the end of the file: what is there, then "attach is empty".
    a.m_nEndPos = 1000;
    ASSERT_TRUE(info.OpenAttach(a));
    ASSERT_TRUE(info.GetAttachContentNext(strBlock, true));
    EXPECT_EQ(strBlock, "ABCABC");
    EXPECT_FALSE(info.GetAttachContentNext(strBlock, true));
    EXPECT_EQ(info.GetLastError(), "In CQLMimeMsgInfo::GetAttachContentNext, attach is empty");
    ASSERT_TRUE(info.OpenAttach(a));
    info.CloseAttach();
    EXPECT_FALSE(info.GetAttachContentNext(strBlock, true));

    // A read error in the loop passes through as a plain CQLExceptionParser.
    std::filesystem::remove(s.strPath);
    std::filesystem::create_directory(s.strPath);
    ASSERT_TRUE(info.OpenAttach(a));
    try {
        info.GetAttachContentNext(strBlock, true);
        ADD_FAILURE() << "no exception";
    } catch (CQLFileParser&) {
        ADD_FAILURE() << "a CQLFileParser";
    } catch (CQLExceptionParser& e) {
        EXPECT_NE(e.GetLastError().find("Is a directory"), std::string::npos);
        EXPECT_EQ(strBlock, "");
    }
    CQLMimeMsgInfo slash(dir.Dir() + "/", "");
    EXPECT_FALSE(slash.OpenAttach(a));
    EXPECT_EQ(slash.GetLastError(),
              "In CQLMimeMsgInfo::GetHeader, In SetFileName(), invalid filename[" + dir.Dir() +
                  "/]");
    EXPECT_FALSE(slash.GetAttachContentNext(strBlock, true));
    std::filesystem::remove(s.strPath);
    EXPECT_FALSE(info.OpenAttach(a));
    EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetHeader, In Open(", 0), 0u);
    EXPECT_FALSE(info.GetAttachContentNext(strBlock, true));
    EXPECT_EQ(info.GetAttachContentSize(a, true), 4294967295u);
    EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetAttachContentSize, In Open(", 0),
              0u);
    a.m_nEncoding = 'Q';
    EXPECT_EQ(info.GetAttachContentSize(a, true), 0u);
}
