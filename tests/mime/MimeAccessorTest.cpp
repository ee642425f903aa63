// Reading a part: bodies, header blocks, the whole message, and the message's dates.
#include "mime/MimeTestUtil.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sstream>

namespace {

const std::string kMessage =
    ToCRLF("Date: Tue, 05 Mar 2024 14:07:09 +0900\nMessage-ID: <id@x>\nX-LINK-MAIL: 1\n"
           "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n"
           "Content-Transfer-Encoding: base64\n\naGVsbG8g\nd29ybGQ=\n--b\nContent-Type: text/html\n"
           "Content-Transfer-Encoding: quoted-printable\n\n<p>caf=C3=A9</p>\n--b--\n");

} // namespace

TEST(MimeAccessor, BodiesAndHeaderBlocks) {
    CTempDir dir;
    const std::string strPath = dir.MakeFile(kMessage);
    for (bool bFile : {false, true}) {
        SCOPED_TRACE(bFile ? "file" : "memory");
        CQLMimeMsg msg;
        ASSERT_TRUE(msg.Open(bFile ? strPath : kMessage, bFile));
        ASSERT_EQ(msg.size(), 3u);
        std::string strBody;
        ASSERT_TRUE(msg[1]->GetBody(strBody, true));
        EXPECT_EQ(strBody, "hello world");
        ASSERT_TRUE(msg[1]->GetBody(strBody, false));
        EXPECT_EQ(strBody, "aGVsbG8g\r\nd29ybGQ=\r\n"); // with the CR LF before the delimiter
        ASSERT_TRUE(msg[2]->GetBody(strBody, true));
        EXPECT_EQ(strBody, "<p>caf\xC3\xA9</p>\r\n");
        std::ostringstream decoded, raw;
        EXPECT_TRUE(msg[1]->GetBody(decoded, true));
        EXPECT_EQ(decoded.str(), "hello world");
        EXPECT_TRUE(msg[2]->GetBody(raw, false));
        EXPECT_EQ(raw.str(), "<p>caf=C3=A9</p>\r\n");

        // A part has no message header; its MIME block is its own header.
        std::ostringstream partHdr, partMime, mainHdr, mainMime;
        EXPECT_TRUE(msg[1]->GetHdr(partHdr));
        EXPECT_EQ(partHdr.str(), "");
        EXPECT_TRUE(msg[1]->GetMIME(partMime));
        EXPECT_EQ(partMime.str(),
                  "Content-Type: text/plain\r\nContent-Transfer-Encoding: base64\r\n");
        EXPECT_TRUE(msg.GetHdr(mainHdr));
        EXPECT_TRUE(msg.GetMIME(mainMime));
        EXPECT_EQ(mainHdr.str(), kMessage.substr(0, kMessage.find("\r\n\r\n") + 2));
        EXPECT_EQ(mainMime.str(), mainHdr.str());

        // Lookups ignore case and go through entry 0 of the main message.
        ASSERT_NE(msg.FindHdrItem("message-id", 10), nullptr);
        EXPECT_EQ(msg.GetMsgID(), "<id@x>");
        EXPECT_EQ(msg[2]->GetMsgID(), "<id@x>");
        EXPECT_TRUE(msg.IsXLinkMail());
        EXPECT_TRUE(msg.IsMixed());
        EXPECT_FALSE(msg[1]->IsRelated());
        EXPECT_EQ(msg.GetHdrPtr(), &msg[0]->m_Hdr);
        EXPECT_EQ(msg.GetHdr(), &msg[0]->m_Hdr);
        EXPECT_EQ(msg.GetQLMimeMsgPtr(), msg[0]);
        EXPECT_EQ(msg.GetFileObject() != nullptr, bFile);

        // The whole message, from any node, to every kind of sink.
        std::string strSaved;
        EXPECT_TRUE(msg[2]->Save(strSaved));
        EXPECT_EQ(strSaved, kMessage);
        std::vector<char> vBuf(kMessage.size() + 1);
        EXPECT_TRUE(msg.Save(vBuf.data()));
        EXPECT_EQ(std::string(vBuf.data()), kMessage);
        std::ostringstream saved;
        EXPECT_TRUE(msg.Save(saved));
        EXPECT_EQ(saved.str(), kMessage);
        const std::string strCopy = dir.Path(bFile ? "copy-file" : "copy-mem");
        const int nFD = open(strCopy.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_TRUE(msg.Save(nFD));
        close(nFD);
        EXPECT_EQ(CTempDir::ReadAll(strCopy), kMessage);
    }
}

TEST(MimeAccessor, UnopenedMessagesFailCleanly) {
    CQLMimeMsg msg;
    std::string strBody;
    // A fresh node is no main message: it reads as an empty part without a source.
    EXPECT_FALSE(msg.GetBody(strBody, true));
    EXPECT_FALSE(msg.Save(strBody));
    EXPECT_EQ(msg.GetFileObject(), nullptr);
    EXPECT_EQ(msg.GetLastError(), "Not file mode");
    // A main message whose open failed has no entry 0.
    EXPECT_FALSE(msg.Open("/nonexistent/dir/msg.eml", true));
    try {
        msg.GetQLMimeMsgPtr();
        FAIL() << "no throw";
    } catch (CQLExceptionParser& e) {
        EXPECT_EQ(e.GetLastError(), "In GetQLMimeMsgPtr(), invalid mime msg.");
    }
    const CQLMimeMsg& constMsg = msg;
    EXPECT_THROW(constMsg.GetQLMimeMsgPtr(), CQLExceptionParser);
    EXPECT_THROW(msg.GetHdrPtr(), CQLExceptionParser);
    EXPECT_THROW(msg.GetHdr(), CQLMimeMsg);
}

TEST(MimeAccessor, ConvertHtmlChar) {
    CQLMimeMsg msg;
    struct Case {
        const char *pszIn, *pszOut;
    } cases[] = {
        {"a &lt;b&gt; &amp; &quot;c&quot;&nbsp;d.", "a <b> & \"c\" d."},
        {"&amp;", "&"},
        {" &amp;", " &amp;"}, // the bound counts the trimmed length
        {" &amp;x", " &x"},
        {"&unknown;", "&unknown;"},
    };
    for (const Case& c : cases) EXPECT_EQ(msg.ConvertHtmlChar(c.pszIn), c.pszOut) << c.pszIn;
}

namespace {

// Sets TZ for one scope.
class ScopedTZ {
public:
    explicit ScopedTZ(const char* pszTZ) {
        const char* pszOld = getenv("TZ");
        m_bHad = pszOld != nullptr;
        if (m_bHad) m_strOld = pszOld;
        setenv("TZ", pszTZ, 1);
        tzset();
    }
    ~ScopedTZ() {
        if (m_bHad)
            setenv("TZ", m_strOld.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    bool m_bHad;
    std::string m_strOld;
};

} // namespace

TEST(MimeAccessor, MessageDates) {
    ScopedTZ tz("UTC0");
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(kMessage, false));
    EXPECT_EQ(msg.GetDate(false), 1709615229);
    EXPECT_EQ(msg.GetDate(true), 1709596800); // local midnight of that day
    EXPECT_EQ(msg.GetSentDate(), 1709615229);
    EXPECT_EQ(msg.GetDateStr(), "Tue, 05 Mar 2024 14:07:09 +0900");
    EXPECT_EQ(msg.GetRecentRecvDate(), 0);

    // The first Date that reads gives the sent date; GetDate only looks at the first.
    CQLMimeMsg two;
    ASSERT_TRUE(two.Open("Date: not a date\nDate: Tue, 05 Mar 2024 14:07:09 +0900\n"
                         "Received: from a by b; garbage\nReceived: from c\n"
                         "Received: from d by e; Mon, 04 Mar 2024 10:00:00 +0000\n\nx",
                         false));
    EXPECT_EQ(two.GetDate(false), 0);
    EXPECT_EQ(two.GetSentDate(), 1709615229);
    EXPECT_EQ(two.GetRecentRecvDate(), 1709546400);

    CQLMimeMsg none;
    ASSERT_TRUE(none.Open("From: a\n\nx", false));
    EXPECT_EQ(none.GetDate(false), 0);
    EXPECT_EQ(none.GetDateStr(), "");
    EXPECT_EQ(none.GetSentDate(), 0);
}
