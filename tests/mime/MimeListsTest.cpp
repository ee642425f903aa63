// Attachment lists and text part selection on a parsed tree.
#include "mime/MimeTestUtil.h"

#include "codec/QLCodecParser.h"

namespace {

// 100000 bytes in base64 lines of 76 characters: the size walk's 65536-byte pieces end inside
// a line. The last line holds 22 bytes.
std::string Base64Lines() {
    CQLCodecParser codec;
    const std::string strB64 = codec.EncodeB64(PatternBytes(100000), false, true, 0);
    std::string strOut;
    for (size_t i = 0; i < strB64.size(); i += 76) strOut += strB64.substr(i, 76) + "\n";
    return strOut;
}

std::string ListsMessage() {
    return "Subject: lists\nContent-Type: multipart/mixed; boundary=\"m\"\n\n"
           "--m\nContent-Type: text/plain; charset=UTF-8\n\ntext\n"
           "--m\nContent-Type: application/pdf; name=\"a.pdf\"\nContent-Transfer-Encoding: "
           "base64\n\n" +
           Base64Lines() +
           "--m\nContent-Type: image/gif\nContent-ID: <inline1>\n\nGIF89a\n"
           "--m\nContent-Type: image/gif; name=\"att.gif\"\nContent-ID: <inline2>\n"
           "Content-Disposition: attachment; filename=\"att.gif\"\n"
           "Content-Transfer-Encoding: base64\n\nR0lGODlh\n"
           "--m\nContent-Type: image/png; name=\"nocid.png\"\n\nPNG\n"
           "--m\nContent-Type: message/rfc822\n\nSubject: =?UTF-8?B?UmU6IGEvYg==?=\nFrom: x\n\n"
           "inner\n"
           "--m\nContent-Type: message/rfc822\n\nFrom: y\n\nno subject\n"
           "--m\nContent-Type: message/delivery-status\n\nStatus: 5.0.0\n"
           "--m\nContent-Type: text/rfc822\n\nnot a message\n"
           "--m\nContent-Type: text/plain; charset=UTF-8; name=\"note.txt\"\n"
           "Content-Transfer-Encoding: quoted-printable\n\ncaf=C3=A9=\n soft\n--m--\n";
}
// Entries: 0 mixed, 1 text, 2 pdf, 3 inline gif, 4 attached gif, 5 png, 6 and 7 rfc822, 8 a
// delivery status and 9 a text/rfc822, neither an embedded message, 10 note.

const std::vector<std::string> kNames = {"a.pdf",       "att.gif",    "nocid.png",
                                         "Re_ a_b.eml", "noname.eml", "note.txt"};
const int kSelected[] = {2, 4, 5, 6, 7, 10};

} // namespace

TEST(MimeLists, FourFormsOnMemoryAndFile) {
    CTempDir dir;
    for (bool bCRLF : {false, true}) {
        for (bool bFile : {false, true}) {
            SCOPED_TRACE(std::string(bFile ? "file" : "memory") + (bCRLF ? "/crlf" : "/lf"));
            const std::string strBytes = bCRLF ? ToCRLF(ListsMessage()) : ListsMessage();
            CQLMimeMsg msg;
            ASSERT_TRUE(bFile ? msg.Open(dir.MakeFile(strBytes), true) : msg.Open(strBytes, false));
            long long nRaw = 0;
            for (int i : kSelected) nRaw += msg[i]->m_nBEO - msg[i]->m_nBSO;

            std::vector<std::string> vNames{"stale"};
            long long nTotal = -1;
            EXPECT_EQ(msg.GetAttachFileList(vNames, nTotal), 6);
            EXPECT_EQ(vNames, kNames);
            EXPECT_EQ(nTotal, nRaw);

            std::vector<CQLMimeMsg::TFileList> vFiles;
            EXPECT_EQ(msg.GetAttachFileList(vFiles, nTotal), 6);
            EXPECT_EQ(nTotal, nRaw);
            ASSERT_EQ(vFiles.size(), 6u);
            const CQLMimeMsg::TFileList& pdf = vFiles[0];
            EXPECT_EQ(pdf.strFileName, "a.pdf");
            EXPECT_EQ(pdf.nEncoder, 'B');
            EXPECT_EQ(pdf.nContentType, CQLMimeConst::APPLICATION);
            EXPECT_EQ(pdf.nStartPos, msg[2]->m_nBSO);
            EXPECT_EQ(pdf.nEndPos, msg[2]->m_nBEO);
            EXPECT_EQ(pdf.nLineCnt, msg[2]->m_nLineCnt);
            EXPECT_EQ(pdf.strDepth, "2.");
            // Decoded in pieces; before a bare LF the body's last line has no line end inside
            // the body and is left out.
            EXPECT_EQ(pdf.nSize, bCRLF ? 100000 : 100000 - 22);
            EXPECT_EQ(vFiles[1].nSize, 6);                               // "R0lGODlh"
            EXPECT_EQ(vFiles[2].nSize, msg[5]->m_nBEO - msg[5]->m_nBSO); // raw
            EXPECT_EQ(vFiles[5].nSize, bCRLF ? 12 : 5); // "café soft\r\n" or "café"

            // The list of records walks the entries themselves and leaves the cursor alone.
            msg.m_nMsgCursor = 3;
            std::vector<CQLMimeMsg::TAttachList> vAttach(2);
            EXPECT_EQ(msg.GetAttachFileList(vAttach), 1);
            EXPECT_EQ(msg.m_nMsgCursor, 3);
            ASSERT_EQ(vAttach.size(), 6u);
            for (size_t i = 0; i < vAttach.size(); ++i) {
                EXPECT_EQ(vAttach[i].nType, 1);
                EXPECT_EQ(vAttach[i].strFileName, kNames[i]);
                EXPECT_EQ(vAttach[i].nSize, static_cast<uint32_t>(vFiles[i].nSize));
                EXPECT_EQ(vAttach[i].strDepth, msg[kSelected[i]]->GetDepth());
                EXPECT_EQ(vAttach[i].strReserved1 + vAttach[i].strReserved2, "");
            }
            EXPECT_EQ(vAttach[0].strContentType, "application/pdf; name=\"a.pdf\"");
            EXPECT_EQ(vAttach[0].strTransferEncoding, "base64");
            EXPECT_EQ(vAttach[0].strMimeHdr, bCRLF ? ToCRLF("Content-Type: application/pdf; "
                                                            "name=\"a.pdf\"\nContent-Transfer-"
                                                            "Encoding: base64")
                                                   : "Content-Type: application/pdf; "
                                                     "name=\"a.pdf\"\nContent-Transfer-"
                                                     "Encoding: base64");
            EXPECT_EQ(vAttach[0].nEncoder, 'B');
            EXPECT_EQ(vAttach[0].nStartPos, msg[2]->m_nBSO);
            EXPECT_EQ(vAttach[1].strCID, bCRLF ? "<inline2>" : "<inline2>\n"); // raw value
            EXPECT_EQ(vAttach[2].strTransferEncoding, "None");

            std::string strList = "stale";
            unsigned int nCount = 0;
            EXPECT_EQ(msg.GetAttachFileList(strList, nCount, nTotal, ';'), 6);
            EXPECT_EQ(nCount, 6u);
            EXPECT_EQ(strList, "a.pdf;att.gif;nocid.png;Re_ a_b.eml;noname.eml;note.txt;");
            for (char cSep : {'\0', static_cast<char>(0x80)}) {
                msg.GetAttachFileList(strList, nCount, nTotal, cSep);
                EXPECT_EQ(strList, "a.pdf,att.gif,nocid.png,Re_ a_b.eml,noname.eml,note.txt,");
            }
        }
    }
}

TEST(MimeLists, NothingToListAndAttachmentFlag) {
    CQLMimeMsg closed;
    std::vector<std::string> vNames{"x"};
    std::vector<CQLMimeMsg::TFileList> vFiles(1);
    std::vector<CQLMimeMsg::TAttachList> vAttach(1);
    std::string strList = "x";
    unsigned int nCount = 9;
    long long nTotal = 9;
    EXPECT_EQ(closed.GetAttachFileList(vNames, nTotal), 0);
    EXPECT_EQ(closed.GetAttachFileList(vFiles, nTotal), 0);
    EXPECT_EQ(closed.GetAttachFileList(strList, nCount, nTotal, ','), 0);
    EXPECT_EQ(closed.GetAttachFileList(vAttach), 1);
    EXPECT_TRUE(vNames.empty() && vFiles.empty() && vAttach.empty() && strList.empty());
    EXPECT_EQ(nCount + nTotal, 0);

    CQLMimeMsg plain;
    ASSERT_TRUE(plain.Open("Subject: s\n\nno attachments\n", false));
    EXPECT_EQ(plain.GetAttachFileList(strList, nCount, nTotal, ','), 0);
    EXPECT_EQ(strList + std::to_string(nTotal), "0");
    EXPECT_FALSE(plain.HasAttachFileInPart());

    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(ListsMessage(), false));
    EXPECT_FALSE(msg.HasAttachFileInPart());
    EXPECT_TRUE(msg[4]->HasAttachFileInPart());
    EXPECT_FALSE(msg[2]->HasAttachFileInPart());
    CQLMimeMsg whole;
    ASSERT_TRUE(whole.Open("Content-Disposition: attachment; filename=x.bin\n\nx\n", false));
    EXPECT_TRUE(whole.HasAttachFileInPart());
    EXPECT_EQ(whole.GetAttachFileList(strList, nCount, nTotal, ','), 1);
    EXPECT_EQ(strList + std::to_string(nCount), "x.bin,1");
    CQLMimeMsg failed;
    EXPECT_FALSE(failed.Open("/nonexistent/qlmail", true));
    try {
        failed.HasAttachFileInPart();
        ADD_FAILURE() << "no exception";
    } catch (CQLExceptionParser& e) {
        EXPECT_EQ(e.GetLastError(), "In HasAttachFileInPart(), invalid mime msg.");
    }
}

TEST(MimeLists, TextPartsTwoArguments) {
    const struct {
        const char* pszParts; // the parts of a mixed message, delimiters included
        bool bFound;
        const char* pszPlain;
        const char* pszHtml;
    } kCases[] = {
        // A part named in its type field is no body text; the walk stops at the html part.
        {"--m\nContent-Type: text/plain; name=n.txt\n\nnamed\n--m\n\nfirst\n"
         "--m\nContent-Type: text/html\nContent-Transfer-Encoding: base64\n\nPGI+aDwvYj4=\n"
         "--m\n\nthird\n--m--\n",
         true, "first", "<b>h</b>"},
        // The later of two plain parts; the html argument keeps what it held.
        {"--m\n\none\n--m\n\ntwo\n--m--\n", true, "two", "kept"},
        {"--m\nContent-Disposition: inline; filename=a.txt\n\nfile\n--m--\n", false, "kept",
         "kept"},
    };
    for (const auto& c : kCases) {
        CQLMimeMsg msg;
        ASSERT_TRUE(msg.Open(
            std::string("Content-Type: multipart/mixed; boundary=m\n\n") + c.pszParts, false));
        msg.SetLastError("old");
        std::string strPlain = "kept", strHtml = "kept";
        EXPECT_EQ(msg.GetTextPart(strPlain, strHtml), c.bFound) << c.pszParts;
        EXPECT_EQ(strPlain, c.pszPlain);
        EXPECT_EQ(strHtml, c.pszHtml);
        EXPECT_EQ(msg.GetLastError(), "");
    }
}

TEST(MimeLists, TextPartsConvertedWithTheirHeaders) {
    CQLMimeMsg msg;
    // A picture between the two does not end the walk.
    ASSERT_TRUE(msg.Open("Content-Type: multipart/mixed; boundary=a\r\n\r\n"
                         "--a\r\nContent-Type: text/plain; charset=euc-kr\r\n\r\n\xC7\xD1\r\n"
                         "--a\r\nContent-Type: image/gif\r\n\r\nGIF89a\r\n"
                         "--a\r\nContent-Type: text/html\r\nX-Note: \xC3\xA9\r\n"
                         "Content-Transfer-Encoding: base64\r\n\r\nPHA+aDwvcD4NCg==\r\n--a--\r\n",
                         false));
    std::string strPlainHdr, strPlain, strHtmlHdr, strHtml;
    EXPECT_TRUE(msg.GetTextPart(strPlainHdr, strPlain, strHtmlHdr, strHtml));
    EXPECT_EQ(strPlainHdr, "Content-Type: text/plain; charset=euc-kr");
    EXPECT_EQ(strPlain, "\xED\x95\x9C\r\n"); // 한
    EXPECT_EQ(strHtmlHdr, "Content-Type: text/html\r\nX-Note: \xC3\xA9\r\n"
                          "Content-Transfer-Encoding: base64");
    EXPECT_EQ(strHtml, "<p>h</p>\r\n"); // decoded
    // Neither kind is no success; one kind is enough.
    CQLMimeMsg image;
    ASSERT_TRUE(image.Open("Content-Type: image/gif\r\n\r\nGIF89a\r\n", false));
    EXPECT_FALSE(image.GetTextPart(strPlainHdr, strPlain, strHtmlHdr, strHtml));
    CQLMimeMsg plain;
    ASSERT_TRUE(plain.Open("Subject: s\r\n\r\nonly plain\r\n", false));
    strHtml = "kept";
    EXPECT_TRUE(plain.GetTextPart(strPlainHdr, strPlain, strHtmlHdr, strHtml));
    EXPECT_EQ(strPlain + strPlainHdr + strHtml, "only plain\r\nSubject: skept");

    // An unknown charset ends the walk with the converter's text.
    CQLMimeMsg bad;
    ASSERT_TRUE(bad.Open("Content-Type: text/plain; charset=x-no-such-cs\r\n\r\nbody\r\n", false));
    strPlain = "kept";
    EXPECT_FALSE(bad.GetTextPart(strPlainHdr, strPlain, strHtmlHdr, strHtml));
    EXPECT_EQ(bad.GetLastError().rfind("In GetTextPart, In Open, ", 0), 0u) << bad.GetLastError();
    EXPECT_EQ(strPlain, "kept");
}

TEST(MimeLists, QuotedPrintableSizeOverPieces) {
    // 77000 bytes of lines that decode to themselves: pieces of 65536 bytes end inside a line,
    // whose rest is decoded with the next piece.
    std::string strBody;
    for (int i = 0; i < 1000; ++i) strBody += std::string(75, 'a') + "\r\n";
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("Content-Type: text/plain; name=q.txt\r\nContent-Transfer-Encoding: "
                         "quoted-printable\r\n\r\n" +
                             strBody,
                         false));
    std::vector<CQLMimeMsg::TFileList> vFiles;
    long long nTotal = 0;
    ASSERT_EQ(msg.GetAttachFileList(vFiles, nTotal), 1);
    EXPECT_EQ(vFiles[0].nSize, 77000);
}
