// Header edits, body replacement, banners and tags, on messages in memory and in files, with
// CR LF and LF line ends; each write-back checked against a fresh parse and the tables.
#include "mime/RewriteTestUtil.h"

#include "codec/QLCodecParser.h"
#include "codec/QLMimeCodec.h"
#include "foundation/QLStringParser.h"

namespace {

const char* const kNested =
    "From: a@example.com\nSubject: test\nX-Dup: one\nX-Dup: two\n"
    "Content-Type: multipart/mixed; boundary=\"o\"\n\n"
    "--o\nContent-Type: multipart/alternative; boundary=\"i\"\n\n"
    "--i\nContent-Type: text/plain; charset=UTF-8\n\nplain body\n"
    "--i\nContent-Type: text/html; charset=UTF-8\nContent-Transfer-Encoding: quoted-printable\n\n"
    "<html><body>html body</body></html>\n--i--\n"
    "--o\nContent-Type: message/rfc822\n\nFrom: x\nSubject: inner\n\ninner body\n"
    "--o\nContent-Type: application/pdf; name=\"a.pdf\"\n"
    "Content-Disposition: attachment; filename=\"a.pdf\"\nContent-Transfer-Encoding: base64\n\n"
    "JVBERi0xLjQK\n--o--\n";
// Entries: 0 mixed, 1 alternative, 2 plain, 3 html, 4 rfc822, 5 pdf.

// A message opened in memory or from a file of its own, with LF or CR LF line ends.
struct Way {
    bool bFile, bCRLF;
    std::string Name() const {
        return std::string(bFile ? "file" : "memory") + (bCRLF ? "/crlf" : "/lf");
    }
};
const Way kWays[] = {{false, false}, {false, true}, {true, false}, {true, true}};

class Opened {
public:
    Opened(const Way& way, const std::string& strLF) : m_way(way) {
        const std::string strBytes = way.bCRLF ? ToCRLF(strLF) : strLF;
        if (way.bFile) {
            m_strPath = m_dir.Path("msg.eml");
            std::ofstream(m_strPath, std::ios::binary) << strBytes;
            EXPECT_TRUE(msg.Open(m_strPath, true));
        } else {
            EXPECT_TRUE(msg.Open(strBytes, false));
        }
    }
    // Runs a write-back of entry k and checks it; the result of the edit is expected true.
    void Rewrite(bool bBody, int k, const std::function<bool()>& edit) {
        const std::vector<Cells> before = Snapshot(msg);
        const std::string strOld = Current(msg);
        ASSERT_TRUE(edit()) << msg.GetLastError();
        // Where the table leaves the list unlike the message, later edits start afresh.
        if (ExpectRewritten(msg, before, strOld, bBody, k, m_way.Name())) {
            ASSERT_TRUE(m_way.bFile ? msg.Open(m_strPath, true) : msg.Open(Current(msg), false));
        }
        if (m_way.bFile) {
            EXPECT_EQ(DirNames(m_dir.Dir()), std::vector<std::string>{"msg.eml"});
        }
    }
    std::string Body(int k) {
        std::string s;
        msg[k]->GetBody(s, true);
        return s;
    }
    const std::string& Dir() const { return m_dir.Dir(); }

    CQLMimeMsg msg;

private:
    Way m_way;
    CTempDir m_dir;
    std::string m_strPath;
};

std::string Nl(const Way& way) {
    return way.bCRLF ? "\r\n" : "\n";
}

// What a body before a delimiter ends with: its CR LF, or nothing before a bare LF.
std::string Tail(const Way& way) {
    return way.bCRLF ? "\r\n" : "";
}

} // namespace

TEST(MimeRewrite, HeaderEditsWriteBackOnEveryWay) {
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.Name());
        Opened o(way, kNested);
        const std::string strOld = Current(o.msg);
        EXPECT_TRUE(o.msg.UpdateHdr()); // nothing edited: nothing written
        EXPECT_TRUE(
            o.msg.ModifyHdrItem("X-None", "v", CQLMimeConst::ENCODER_7BIT, "", false, true));
        EXPECT_EQ(Current(o.msg), strOld);

        o.Rewrite(false, 0, [&] {
            return o.msg.AddHdrItem("X-First", "1", CQLMimeConst::ENCODER_7BIT, "", false, true,
                                    true);
        });
        EXPECT_EQ(Current(o.msg).rfind("X-First: 1\r\nFrom: a@example.com\r\n", 0), 0u);
        // Only the first of two fields of one name goes, whatever the case of the name.
        o.Rewrite(false, 0, [&] { return o.msg.DelHdrItem("x-dup", true); });
        EXPECT_EQ(o.msg.GetHdrPtr()->GetCount("X-Dup", 5), 1);
        EXPECT_EQ(o.msg.FindHdrItem("X-Dup", 5)->m_strValue.rfind("two", 0), 0u);
        // A part's header, pending edits flushed by a write-back that finds no match.
        o.Rewrite(false, 3, [&] {
            return o.msg[3]->AddHdrItem("X-Part", "p", CQLMimeConst::ENCODER_7BIT, "", false, false,
                                        false) &&
                   o.msg[3]->ModifyHdrItem("X-Absent", "v", CQLMimeConst::ENCODER_7BIT, "", false,
                                           true);
        });
        o.Rewrite(false, 4, [&] {
            return o.msg[4]->ModifyHdrItem("content-type", "message/rfc822; x=1",
                                           CQLMimeConst::ENCODER_7BIT, "", false, true);
        });
        EXPECT_EQ(o.msg[4]->FindHdrItem("Content-Type", 12)->m_strName, "content-type");
        EXPECT_EQ(o.Body(3), "<html><body>html body</body></html>" + Tail(way));
        EXPECT_EQ(o.Body(5), "%PDF-1.4\n");
        // SetHdr with an empty block cuts a part's header out.
        CQLMimeHdr empty = *o.msg[2]->GetHdr();
        empty.clear();
        o.Rewrite(false, 2, [&] { return o.msg[2]->SetHdr(empty); });
        EXPECT_EQ(o.Body(2), "plain body" + Tail(way));
        EXPECT_NE(Current(o.msg).find("--i" + Nl(way) + Nl(way) + "plain body"), std::string::npos);
    }
}

TEST(MimeRewrite, EncodedValuesCursorAndMessageID) {
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("Subject: s\r\nX-A: 1\r\nx-a: 2\r\n\r\nbody\r\n", false));
    const std::string strLong(60, 'k'); // more than one line of 54 source bytes
    CQLCodecParser codec;
    struct {
        CQLMimeConst::ENCODER eEnc;
        bool bEncode;
        std::string strValue;
    } const kForms[] = {
        {CQLMimeConst::ENCODER_BASE64, true,
         "=?UTF-8?B?" + codec.EncodeB64(strLong, true, true, 54) + "?="},
        {CQLMimeConst::ENCODER_QP, true,
         "=?UTF-8?Q?" + codec.EncodeQP(strLong, true, true, 54) + "?="},
        {CQLMimeConst::ENCODER_7BIT, true, "=?UTF-8?="},
        {CQLMimeConst::ENCODER_BASE64, false, strLong},
    };
    for (const auto& form : kForms) {
        ASSERT_TRUE(
            msg.AddHdrItem("X-Enc", strLong, form.eEnc, "UTF-8", form.bEncode, false, false));
        EXPECT_EQ(msg.GetHdrPtr()->back().m_strValue, form.strValue);
        EXPECT_EQ(msg.GetHdrPtr()->back().m_strRaw, "X-Enc: " + form.strValue);
        ASSERT_TRUE(msg.ModifyHdrItem("X-Enc", "m", form.eEnc, "UTF-8", form.bEncode, false));
        ASSERT_TRUE(msg.DelHdrItem("X-Enc", false));
    }
    // Edits without a write-back wait, however many there are.
    ASSERT_TRUE(
        msg.AddHdrItem("X-Pending", "1", CQLMimeConst::ENCODER_7BIT, "", false, false, false));
    ASSERT_TRUE(msg.DelHdrItem("X-Absent", false));
    EXPECT_EQ(Current(msg), "Subject: s\r\nX-A: 1\r\nx-a: 2\r\n\r\nbody\r\n");
    ASSERT_TRUE(msg.DelHdrItem("X-Pending", false));

    // The cursor: all fields, or those of one name in any case; an item removed under it ends
    // the walk instead of reading freed memory.
    CQLMimeHdrItem item;
    std::vector<std::string> vSeen;
    msg.InitHdrCursor("x-A");
    while (msg.GetNextHdrItem(item)) vSeen.push_back(item.m_strValue);
    EXPECT_EQ(vSeen, (std::vector<std::string>{"1", "2"}));
    msg.InitHdrCursor("");
    ASSERT_TRUE(msg.GetNextHdrItem(item));
    EXPECT_EQ(item.m_strName, "Subject");
    ASSERT_TRUE(msg.DelHdrItem("X-A", false));
    EXPECT_FALSE(msg.GetNextHdrItem(item));

    EXPECT_FALSE(msg[0]->CreateMsgID("<id@x>")); // not the main message
    ASSERT_TRUE(msg.CreateMsgID("<id@x>"));
    EXPECT_EQ(msg.GetMsgID(), "<id@x>");
    EXPECT_EQ(msg.GetHdrPtr()->back().m_strName, "Message-ID");
    const std::string strNow = Current(msg);
    EXPECT_TRUE(msg.CreateMsgID("<other@x>"));
    EXPECT_EQ(Current(msg), strNow);
    EXPECT_EQ(strNow, "Subject: s\r\nx-a: 2\r\nMessage-ID: <id@x>\r\n\r\nbody\r\n");
}

namespace {

// A tree built from records, with offsets chosen for the test rather than by a parse: nodes
// before, at and after the edited one, as containers and as leaves. bSet gives every offset a
// value; otherwise only those of the edited range are set, so that the rules for unset offsets
// show.
struct RowTree {
    std::string strData = std::string(400, 'x');
    CQLMimeMsg msg;

    RowTree(int nEditedCT, bool bSet, bool bBody) {
        const int kTypes[] = {CQLMimeConst::MULTIPART, CQLMimeConst::TEXT, nEditedCT,
                              CQLMimeConst::MESSAGE, CQLMimeConst::TEXT};
        std::string strFormat;
        for (int i = 0; i < 5; ++i) {
            // HSO HEO TSO TEO MSO MEO BSO BEO, distinct per node and column.
            uint32_t v[8];
            for (int c = 0; c < 8; ++c) v[c] = bSet ? 20 + 40 * i + 4 * c : 0;
            if (i == 2) {
                // The edited range, 100 to 104: the header range of a part or the body.
                const int nFrom = bBody ? 6 : bSet ? 0 : 4;
                v[nFrom] = 100;
                v[nFrom + 1] = 104;
                if (!bBody && bSet) v[4] = v[5] = 90; // with HSO, HEO set they are the range
            }
            if (!bSet && i == 4) v[2] = 7; // TSO without TEO: neither moves
            for (uint32_t n : v) strFormat += std::to_string(n) + ",";
            strFormat +=
                "d" + std::to_string(i) + "," + std::to_string(kTypes[i]) + ",0,7,0,,,,,\x05";
        }
        EXPECT_TRUE(msg.Open(strData.c_str(), 0, strFormat.c_str(), false, false, false));
        for (size_t i = 0; i < msg.size(); ++i) {
            msg[i]->m_Hdr.m_nHdrStart = bSet ? 300 + i : 0;
            msg[i]->m_Hdr.m_nHdrEnd = bSet ? 310 + i : 0;
        }
        msg.m_strMainCharSet = "main";
        msg[0]->m_strMainCharSet = "first";
    }
};

} // namespace

TEST(MimeRewrite, BothPatchingTablesRowByRow) {
    for (int nCT : {CQLMimeConst::MULTIPART, CQLMimeConst::TEXT}) {
        for (bool bSet : {true, false}) {
            for (bool bBody : {false, true}) {
                const std::string strWhat = std::string(bBody ? "body" : "header") +
                                            (bSet ? ", offsets set" : ", offsets unset") +
                                            ", edited type " + std::to_string(nCT);
                RowTree t(nCT, bSet, bBody);
                const std::vector<Cells> before = Snapshot(t.msg);
                // Ten bytes in place of four.
                const bool bDone =
                    bBody ? t.msg[2]->SetBody("0123456789", false, CQLMimeConst::ENCODER_7BIT)
                          : t.msg[2]->AddHdrItem("X-Row", "1", CQLMimeConst::ENCODER_7BIT, "",
                                                 false, false, true);
                ASSERT_TRUE(bDone) << strWhat << ": " << t.msg[2]->GetLastError();
                ExpectPatchedByTable(before, Snapshot(t.msg), bBody, 2, 6, strWhat);
                EXPECT_EQ(Current(t.msg), t.strData.substr(0, 100) +
                                              (bBody ? "0123456789" : "X-Row: 1\r\n") +
                                              t.strData.substr(104))
                    << strWhat;
                // The main message mirrors its first entry; a header write-back keeps its own
                // main charset, a body replacement takes the entry's.
                EXPECT_EQ(t.msg.m_nTEO, t.msg[0]->m_nTEO);
                EXPECT_EQ(t.msg.m_strDepth, "d0");
                EXPECT_EQ(t.msg.m_strMainCharSet, bBody ? "first" : "main") << strWhat;
            }
        }
    }
}

TEST(MimeRewrite, SetBodyEncodingsAndLineEnds) {
    CQLCodecParser codec;
    const std::string str54(54, 'b'), str55(55, 'b');
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.Name());
        Opened o(way, kNested);
        const std::string strOld = Current(o.msg);
        EXPECT_FALSE(o.msg.SetBody("", false, CQLMimeConst::ENCODER_7BIT));
        EXPECT_EQ(o.msg.GetLastError(), "In CQLMimeMsg::SetBody(), strData is empty.");
        EXPECT_FALSE(o.msg[2]->SetBody(o.Dir() + "/absent", true, CQLMimeConst::ENCODER_7BIT));
        EXPECT_EQ(o.msg[2]->GetLastError().rfind(
                      "In CQLMimeMsg::SetBody(), fail to set a date : In SetData(), ", 0),
                  0u);
        EXPECT_EQ(Current(o.msg), strOld);

        // Seven bit: the data as it is, its length the basis of delta.
        o.Rewrite(true, 2, [&] {
            return o.msg[2]->SetBody("new plain" + Nl(way), false, CQLMimeConst::ENCODER_7BIT);
        });
        EXPECT_EQ(o.Body(2), "new plain" + Nl(way));
        // Base64 of a multiple of 54 bytes ends in its line end; other lengths get a blank line.
        o.Rewrite(true, 5,
                  [&] { return o.msg[5]->SetBody(str54, false, CQLMimeConst::ENCODER_BASE64); });
        std::string strRaw;
        o.msg[5]->GetBody(strRaw, false);
        EXPECT_EQ(strRaw, codec.EncodeB64(str54, true, true, 54));
        o.Rewrite(true, 5,
                  [&] { return o.msg[5]->SetBody(str55, false, CQLMimeConst::ENCODER_BASE64); });
        o.msg[5]->GetBody(strRaw, false);
        EXPECT_EQ(strRaw, codec.EncodeB64(str55, true, true, 54) + "\r\n\r\n");
        EXPECT_EQ(o.Body(5), str55);
        o.Rewrite(true, 3, [&] {
            return o.msg[3]->SetBody("<p>caf\xC3\xA9</p>" + Nl(way), false,
                                     CQLMimeConst::ENCODER_QP);
        });
        EXPECT_EQ(o.Body(3), "<p>caf\xC3\xA9</p>" + Nl(way));
        EXPECT_EQ(o.Body(3), "<p>caf\xC3\xA9</p>" + Nl(way));
        EXPECT_EQ(o.Body(4), "From: x" + Nl(way) + "Subject: inner" + Nl(way) + Nl(way) +
                                 "inner body" + Tail(way));
    }
}

TEST(MimeRewrite, RefusedWithoutAMessageOrWithOffsetsPastItsEnd) {
    CQLMimeMsg closed;
    EXPECT_FALSE(closed.AddHdrItem("X", "1", CQLMimeConst::ENCODER_7BIT, "", false, false, true));
    EXPECT_EQ(closed.GetLastError(), "In UpdateHdr(), the message is not open");
    EXPECT_FALSE(closed.SetBody("x", false, CQLMimeConst::ENCODER_7BIT));
    EXPECT_EQ(closed.GetLastError(), "In CQLMimeMsg::SetBody(), the message is not open");
    EXPECT_FALSE(closed.CanInsertConfirmTag());

    // The format string of a longer message: its offsets lie past the end of this one.
    CQLMimeMsg longer;
    ASSERT_TRUE(longer.Open(kNested, false));
    const std::string strFormat = longer.GetFormat();
    const std::string strShort = "Subject: s\r\n\r\nb\r\n";
    CTempDir dir;
    const std::string strPath = dir.MakeFile(strShort);
    for (bool bFile : {false, true}) {
        CQLMimeMsg stale;
        ASSERT_TRUE(stale.Open((bFile ? strPath : strShort).c_str(), 0, strFormat.c_str(), bFile,
                               false, false));
        EXPECT_FALSE(
            stale[5]->AddHdrItem("X", "1", CQLMimeConst::ENCODER_7BIT, "", false, false, true));
        EXPECT_EQ(stale[5]->GetLastError(), "In UpdateHdr(), the header lies outside the message");
        EXPECT_FALSE(stale[5]->SetBody("x\r\n", false, CQLMimeConst::ENCODER_7BIT));
        EXPECT_EQ(stale[5]->GetLastError(),
                  bFile ? "In CQLMimeMsg::SetBody(), fail to substring : In "
                          "CQLMimeFile::SubStr(), the range lies outside the message"
                        : "In CQLMimeMsg::SetBody(), fail to substring : In "
                          "CQLMimeStr::SubStr, invalid parameter");
        EXPECT_EQ(Current(stale), strShort);
    }
}

TEST(MimeRewrite, SetBodyAtTheEndAndShortQuotedPrintable) {
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.Name());
        // The body runs to the end of the message: there is no tail to copy.
        Opened o(way, "Subject: x\n\nold body");
        o.Rewrite(true, 0, [&] { return o.msg.SetBody("ab", false, CQLMimeConst::ENCODER_QP); });
        // Whether a short encoded body gets a blank line depends on what the test looks at:
        // in memory it sees the whole message built so far.
        EXPECT_EQ(Current(o.msg),
                  "Subject: x" + Nl(way) + Nl(way) + (way.bFile ? "ab" : "ab\r\n\r\n"));
        // A body taken from a file: a message in memory takes the path itself.
        CTempDir dataDir;
        const std::string strDataPath = dataDir.MakeFile("from a file");
        o.Rewrite(true, 0,
                  [&] { return o.msg.SetBody(strDataPath, true, CQLMimeConst::ENCODER_7BIT); });
        EXPECT_EQ(Current(o.msg), "Subject: x" + Nl(way) + Nl(way) +
                                      (way.bFile ? std::string("from a file") : strDataPath));
    }
}

namespace {

const char* const kAlternative =
    "Subject: t\nContent-Type: multipart/alternative; boundary=\"a\"\n\n"
    "--a\nContent-Type: text/plain; charset=euc-kr\n\nplain\n"
    "--a\nContent-Type: text/html; charset=UTF-8\n\n"
    "<html><body>x</body><body>y</BODY></html>\n--a--\n";
// Entries: 0 alternative, 1 plain, 2 html.

const char* const kTagged =
    "Subject: t\nContent-Type: multipart/mixed; boundary=\"m\"\n\n"
    "--m\nContent-Type: text/plain; name=\"n.txt\"; charset=UTF-8\n\nnamed plain\n"
    "--m\nContent-Type: text/html; charset=UTF-8\nContent-Disposition: inline; "
    "filename=\"f.html\"\n\n<p>##EDM_REJECT_URL##</p>\n"
    "--m\nContent-Type: text/html; charset=UTF-8\nContent-Transfer-Encoding: base64\n\n"
    "PGEgaHJlZj0nIyNFRE1fUkVKRUNUX1VSTCMjJz4jI0VETV9SRUpFQ1RfVVJMIyM8L2E+\n--m--\n";
// Entries: 0 mixed, 1 plain named in its type field only, 2 html with a file name, 3 html in
// base64: "<a href='##EDM_REJECT_URL##'>##EDM_REJECT_URL##</a>".

std::string UrlValueOf(const std::string& strValue) {
    CQLCodecParser codec;
    CQLMimeCodec mime;
    return mime.URLEncode(codec.EncodeB64(strValue, false, true, 54).c_str());
}

} // namespace

TEST(MimeRewrite, BannersGoIntoOnePartInItsCharset) {
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.Name());
        Opened o(way, kAlternative);
        EXPECT_TRUE(o.msg.CanInsertConfirmTag());
        EXPECT_FALSE(o.msg.AddBanner("", 0));
        EXPECT_EQ(o.msg.GetLastError(), "In AddBanner(),  no banner exist");
        const std::string strOld = Current(o.msg);
        EXPECT_TRUE(o.msg.AddBanner("b", 7)); // no such type: no part
        EXPECT_EQ(Current(o.msg), strOld);
        // "광고" in UTF-8 goes into the EUC-KR part as EUC-KR.
        o.Rewrite(true, 1, [&] { return o.msg.AddBanner("\xEA\xB4\x91\xEA\xB3\xA0", 0); });
        EXPECT_EQ(o.Body(1), "plain" + Tail(way) + "\r\n\xB1\xA4\xB0\xED\r\n");
        o.Rewrite(true, 2, [&] { return o.msg.AddBanner("B", 1); });
        EXPECT_EQ(o.Body(2),
                  "<html><body>x</body><body>y</BODY></html>" + Tail(way) + "<BR>\r\nB<BR>\r\n");
    }
    // A part named only in its type field still takes a banner; one named in its disposition
    // does not, and html banners find no other part here.
    Opened o(kWays[0], kTagged);
    o.Rewrite(true, 1, [&] { return o.msg.AddBanner("ad", 0); });
    EXPECT_EQ(o.Body(1), "named plain\r\nad\r\n");
    o.Rewrite(true, 3, [&] { return o.msg.AddBanner("ad", 1); });
    // A part with no charset of its own or inherited cannot take one.
    Opened bare(kWays[0], "Content-Type: text/plain\n\nbody\n");
    EXPECT_FALSE(bare.msg.AddBanner("ad", 0));
    EXPECT_EQ(bare.msg.GetLastError(), "In AddBanner, To Character set is empty");
}

TEST(MimeRewrite, ConfirmTagPlacementAndUrls) {
    const std::string strTagEnd = "' width='0' height='0'> </td></tr></table>";
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.Name());
        Opened o(way, kAlternative);
        int nStatus = -1;
        // The last "</body>", whatever the case of its letters.
        o.Rewrite(true, 2, [&] {
            return o.msg.AddConfirmTag("http://mail.example.com", 80, "/app", "<id@x>", "", "r@x",
                                       "subj", nStatus);
        });
        EXPECT_EQ(nStatus, 2);
        const std::string strTag =
            "<table style='display:none'><tr><td> <img src='http://mail.example.com/app"
            "/historySent.ql?act=confirm&sender=&receiver=" +
            UrlValueOf("r@x") + "&subject=" + UrlValueOf("subj") +
            "&msgid=" + UrlValueOf("<id@x>") + strTagEnd;
        EXPECT_EQ(o.Body(2),
                  "<html><body>x</body><body>y\r\n" + strTag + "\r\n</BODY></html>" + Tail(way));
    }
    // The port is written unless it is the scheme's default.
    const struct {
        const char* pszBase;
        int nPort;
        const char* pszURL;
    } kPorts[] = {{"http://h", 80, "http://h"},      {"http://h", 8080, "http://h:8080"},
                  {"https://h", 443, "https://h"},   {"HTTPS://h", 443, "HTTPS://h"},
                  {"https://h", 80, "https://h:80"}, {"http://h", 443, "http://h:443"},
                  {"https", 443, "https"},           {"http", 443, "http:443"}};
    const struct {
        const char* pszBody;
        const char* pszAfter; // with T for the tag and its line ends
    } kBodies[] = {
        {"<p>no end</p>", "<p>no end</p>T"}, {"</body>", "</body>T"}, {"a</body>", "aT</body>"}};
    for (const auto& port : kPorts) {
        for (const auto& body : kBodies) {
            CQLMimeMsg msg;
            ASSERT_TRUE(
                msg.Open(std::string("Content-Type: text/html\r\n\r\n") + body.pszBody, false));
            int nStatus = -1;
            ASSERT_TRUE(
                msg.AddConfirmTag(port.pszBase, port.nPort, "", "i", "s", "r", "", nStatus));
            std::string strBody;
            msg.GetBody(strBody, false);
            const std::string strTag = "\r\n<table style='display:none'><tr><td> <img src='" +
                                       std::string(port.pszURL) + "/historySent.ql?act=confirm" +
                                       "&sender=" + UrlValueOf("s") +
                                       "&receiver=" + UrlValueOf("r") +
                                       "&subject=&msgid=" + UrlValueOf("i") + strTagEnd + "\r\n";
            CQLStringParser str;
            EXPECT_EQ(strBody, str.ReplaceAll(body.pszAfter, "T", strTag))
                << port.pszBase << " " << port.nPort;
        }
    }
}

TEST(MimeRewrite, TagsTakeTheFirstUnnamedHtmlPart) {
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.Name());
        Opened o(way, kTagged);
        int nStatus = -1;
        o.Rewrite(true, 3,
                  [&] { return o.msg.AddEDMTag("https://h", 8443, "/p", "d\xC3\xA4ta", nStatus); });
        EXPECT_EQ(nStatus, 2);
        const std::string strURL =
            "https://h:8443/p/rejectedm.ql?data=" + UrlValueOf("d\xC3\xA4ta");
        EXPECT_EQ(o.Body(3), "<a href='" + strURL + "'>" + strURL + "</a>");
        // The macro is gone now: the next tag fails and changes nothing.
        const std::string strOld = Current(o.msg);
        EXPECT_FALSE(o.msg.AddEDMTag("http://h", 80, "", "x", nStatus));
        EXPECT_EQ(o.msg.GetLastError(), "In AddEDMTag(), '##EDM_REJECT_URL##' macro is not exist");
        EXPECT_EQ(nStatus, 2);
        EXPECT_EQ(Current(o.msg), strOld);
        o.Rewrite(true, 3,
                  [&] { return o.msg.AddConfirmTag("http://h", 80, "", "", "", "", "", nStatus); });
    }
    // A value of more than one base64 line's worth goes into the URL without a line break.
    CQLMimeMsg longSubject;
    ASSERT_TRUE(longSubject.Open("Content-Type: text/html\r\n\r\n<p>x</p>\r\n", false));
    int nLong = 0;
    const std::string strSubject(100, 's');
    ASSERT_TRUE(longSubject.AddConfirmTag("http://h", 80, "", "", "", "", strSubject, nLong));
    EXPECT_NE(Current(longSubject).find("&subject=" + UrlValueOf(strSubject) + "&msgid="),
              std::string::npos);

    // No html part: no failure, nothing written, status 1.
    Opened plain(kWays[2], "Subject: s\n\nplain only\n");
    const std::string strOld = Current(plain.msg);
    int nStatus = -1;
    EXPECT_FALSE(plain.msg.CanInsertConfirmTag());
    EXPECT_TRUE(plain.msg.AddConfirmTag("http://h", 80, "", "i", "s", "r", "t", nStatus));
    EXPECT_EQ(nStatus, 1);
    EXPECT_EQ(plain.msg.GetLastError(), "In AddConfirmTag(), fail to find text/html type.");
    EXPECT_TRUE(plain.msg.AddEDMTag("http://h", 80, "", "d", nStatus));
    EXPECT_EQ(nStatus, 1);
    EXPECT_EQ(plain.msg.GetLastError(), "In AddEDMTag(), fail to find text/html type.");
    EXPECT_TRUE(plain.msg.AddBanner("b", 1));
    EXPECT_EQ(Current(plain.msg), strOld);
    // A body that decodes to nothing: a macro cannot be in it, a confirmation tag becomes the
    // body.
    CQLMimeMsg empty;
    ASSERT_TRUE(empty.Open(
        "Content-Type: text/html\r\nContent-Transfer-Encoding: base64\r\n\r\n\r\n", false));
    EXPECT_FALSE(empty.AddEDMTag("http://h", 80, "", "d", nStatus));
    EXPECT_EQ(empty.GetLastError(), "In AddEDMTag(), body is empty");
    ASSERT_TRUE(empty.AddConfirmTag("http://h", 80, "", "", "", "", "", nStatus));
    std::string strBody;
    empty.GetBody(strBody, true);
    EXPECT_EQ(strBody.rfind("<table ", 0), 0u);
    EXPECT_EQ(strBody.substr(strBody.size() - 8), "</table>");
    // No text part at all; which part follows the first text part decides when it is not html.
    CQLMimeMsg image;
    ASSERT_TRUE(image.Open("Content-Type: image/gif\r\n\r\nGIF89a\r\n", false));
    EXPECT_FALSE(image.CanInsertConfirmTag());
    for (const char* pszType : {"text/html", "image/gif"}) {
        CQLMimeMsg msg;
        ASSERT_TRUE(msg.Open(std::string("Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
                                         "Content-Type: image/png\r\n\r\nx\r\n--b\r\n\r\nplain\r\n"
                                         "--b\r\nContent-Type: ") +
                                 pszType + "\r\n\r\ny\r\n--b--\r\n",
                             false));
        EXPECT_EQ(msg.CanInsertConfirmTag(), std::string(pszType) == "text/html") << pszType;
    }
}
