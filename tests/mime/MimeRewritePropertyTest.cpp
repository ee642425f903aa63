// Random sequences of edits over generated, fixed and corpus messages, in memory and in files.
// After every write-back the patched list must follow the tables and agree with a fresh parse,
// the bytes outside the edited range must stay, and a stored message must read back through
// its new format string as through a fresh one.
#include "mime/RewriteTestUtil.h"

#include "reader/QLMimeMsgInfo.h"

#include <filesystem>
#include <random>

namespace {

using Rng = std::mt19937;

int Pick(Rng& rng, int n) {
    return static_cast<int>(rng() % static_cast<unsigned>(n));
}

std::string Words(Rng& rng, int nWords) {
    static const char* const kWords[] = {"alpha",  "beta", "gamma", "delta",       "mail",
                                         "offset", "part", "body",  "caf\xC3\xA9", "z9"};
    std::string s;
    for (int i = 0; i < nWords; ++i) s += std::string(i ? " " : "") + kWords[Pick(rng, 10)];
    return s;
}

// A random message: nested multiparts, text in three encodings, pictures, embedded messages.
// Written with LF; the caller turns it to CR LF. Every text part names its charset.
std::string GenPart(Rng& rng, int nDepth) {
    const int nKind = nDepth < 3 ? Pick(rng, 6) : Pick(rng, 4);
    switch (nKind) {
    case 0:
        return "Content-Type: text/plain; charset=UTF-8\n\n" + Words(rng, 1 + Pick(rng, 30)) +
               "\n" + Words(rng, Pick(rng, 5)) + "\n";
    case 1:
        return "Content-Type: text/html; charset=UTF-8\nContent-Transfer-Encoding: "
               "quoted-printable\n\n<html><body>caf=C3=A9 =\n" +
               Words(rng, 3) + (Pick(rng, 2) ? " ##EDM_REJECT_URL##" : "") + "</body></html>\n";
    case 2:
        return "Content-Type: text/html; charset=euc-kr\nContent-Transfer-Encoding: base64\n\n"
               "PGh0bWw+PGJvZHk+x9E8L2JvZHk+PC9odG1sPg==\n";
    case 3:
        return "Content-Type: image/png; name=\"p" + std::to_string(Pick(rng, 9)) +
               ".png\"\nContent-Disposition: attachment\nContent-Transfer-Encoding: base64\n\n"
               "iVBORw0KGgo=\n";
    case 4:
        return "Content-Type: message/rfc822\n\nSubject: inner " + Words(rng, 2) +
               "\nFrom: x@y\n\n" + Words(rng, 6) + "\n";
    default: {
        static const char* const kSub[] = {"mixed", "alternative", "related"};
        const std::string strB = "b" + std::to_string(nDepth) + "x" + std::to_string(Pick(rng, 99));
        std::string s = "Content-Type: multipart/" + std::string(kSub[Pick(rng, 3)]) +
                        "; boundary=\"" + strB + "\"\n\n";
        if (Pick(rng, 2)) s += "preamble\n";
        for (int i = 0, n = 1 + Pick(rng, 3); i < n; ++i)
            s += "--" + strB + "\n" + GenPart(rng, nDepth + 1);
        return s + "--" + strB + "--\n";
    }
    }
}

std::string GenMessage(Rng& rng) {
    std::string s = "From: a@example.com\nTo: b@example.com\nSubject: " + Words(rng, 3) + "\n";
    if (Pick(rng, 2)) s += "X-Prop: first\nX-Prop: second\n";
    s += GenPart(rng, 0);
    return Pick(rng, 2) ? ToCRLF(s) : s;
}

// What a stored message reads through a format string: subject, texts and attachments.
std::vector<std::string> ReadThrough(const std::string& strPath, const std::string& strFormat) {
    CQLMimeMsgInfo info(strPath, strFormat);
    std::vector<std::string> v;
    std::string s;
    v.push_back(info.GetHeaderValue("Subject", s, false, "", "UTF-8", "") ? s : "-");
    for (bool bHtml : {false, true})
        v.push_back(info.GetText(s, bHtml, "UTF-8", "", "UTF-8", true, "") ? s : "-");
    info.InitAttachCursor();
    CQLMimeAttachInfo attach;
    while (info.GetNextAttach(attach, "", "UTF-8", "")) {
        // Names stay as the parse gave them, like line counts: only the bytes are compared.
        v.emplace_back();
        if (!info.OpenAttach(attach)) continue;
        std::string strBlock;
        while (info.GetAttachContentNext(strBlock, true)) v.back() += strBlock;
        info.CloseAttach();
    }
    return v;
}

class Sequence {
public:
    Sequence(Rng& rng, const std::string& strBytes, bool bFile, const CTempDir& dir,
             bool bGenerated, const std::string& strName)
        : m_rng(rng), m_bFile(bFile), m_bGenerated(bGenerated), m_strName(strName) {
        if (bFile) {
            m_strPath = dir.Path("seq.eml");
            std::ofstream(m_strPath, std::ios::binary | std::ios::trunc) << strBytes;
        }
        m_bOpen = Reopen(strBytes);
    }
    ~Sequence() {
        if (m_bFile) std::filesystem::remove(m_strPath);
    }

    // Applies one random edit and checks what it wrote. False when the message is of no use.
    bool Step() {
        if (!m_bOpen || m_msg.empty()) return false;
        const std::vector<Cells> before = Snapshot(m_msg);
        const std::string strOld = Current(m_msg);
        std::vector<size_t> vHeaders, vBodies;
        const bool bWellFormed = WellFormed(before) && DelimitersStay(m_msg, strOld);
        for (size_t i = 0; i < before.size() && bWellFormed; ++i) {
            if (Editable(before, i, false, strOld)) vHeaders.push_back(i);
            if (Editable(before, i, true, strOld)) vBodies.push_back(i);
        }
        if (vHeaders.empty()) return false;
        const int nOp = Pick(m_rng, m_bGenerated ? 10 : 7);
        if (nOp == 6 && vBodies.empty()) return false;
        const size_t k = nOp == 6 ? vBodies[Pick(m_rng, vBodies.size())]
                                  : vHeaders[Pick(m_rng, vHeaders.size())];
        // Edits go through the main message for the first entry half of the time.
        CQLMimeMsg& node = k == 0 && Pick(m_rng, 2) ? m_msg : *m_msg[k];
        const std::string strName = kNames[Pick(m_rng, 3)];
        const CQLMimeConst::ENCODER eEnc = kEncoders[Pick(m_rng, 3)];
        const bool bWrite = Pick(m_rng, 3) != 0;
        bool bBody = false, bOk = true;
        std::string strOp;
        switch (nOp) {
        case 0:
        case 1:
            strOp = "add";
            bOk = node.AddHdrItem(strName, Words(m_rng, 1 + Pick(m_rng, 20)), eEnc, "UTF-8",
                                  Pick(m_rng, 2), Pick(m_rng, 2), bWrite);
            break;
        case 2:
            strOp = "modify";
            bOk =
                node.ModifyHdrItem(strName, Words(m_rng, 2), eEnc, "UTF-8", Pick(m_rng, 2), bWrite);
            break;
        case 3:
            strOp = "delete";
            bOk = node.DelHdrItem(strName, bWrite);
            break;
        case 4: {
            strOp = "sethdr";
            CQLMimeHdr hdr = *node.GetHdr();
            hdr.push_back(CQLMimeHdrItem(strName, "set", strName + ": set"));
            bOk = node.SetHdr(hdr);
            break;
        }
        case 5:
            strOp = "update";
            bOk = node.UpdateHdr();
            break;
        case 6: {
            strOp = "setbody";
            bBody = true;
            const std::string strNl = BodyLineEnd(before[k], strOld);
            std::string strData;
            for (int i = 0, n = 1 + Pick(m_rng, 4); i < n; ++i)
                strData += Words(m_rng, 1 + Pick(m_rng, 25)) + strNl;
            bOk = node.SetBody(strData, false, kBodyEncoders[Pick(m_rng, 4)]);
            break;
        }
        case 7:
            strOp = "banner";
            bBody = true;
            bOk = m_msg.AddBanner(Words(m_rng, 2), Pick(m_rng, 2));
            break;
        case 8: {
            strOp = "confirm";
            bBody = true;
            int nStatus = 0;
            bOk = m_msg.AddConfirmTag("https://h", 443 + Pick(m_rng, 2), "/p", "<i@d>", "s@d",
                                      "r@d", Words(m_rng, 2), nStatus);
            break;
        }
        default: {
            strOp = "edm";
            bBody = true;
            int nStatus = 0;
            bOk = m_msg.AddEDMTag("http://h", 80, "", Words(m_rng, 2), nStatus);
            break;
        }
        }
        const std::string strWhat = m_strName + (m_bFile ? " file " : " memory ") + strOp;
        const std::string strNew = Current(m_msg);
        if (m_bFile) {
            EXPECT_EQ(DirNames(std::filesystem::path(m_strPath).parent_path().string()),
                      std::vector<std::string>{"seq.eml"})
                << strWhat;
        }
        // Banners and tags fail on parts they cannot take, and then change nothing.
        if (!bOk || strNew == strOld) {
            EXPECT_TRUE(bOk || nOp >= 7)
                << strWhat << ": " << node.GetLastError() << m_msg.GetLastError();
            if (strNew == strOld) return true;
        }
        ++(bBody ? m_nBodyWrites : m_nHeaderWrites);
        const size_t nEdited = bBody && nOp >= 7 ? EditedLeaf(before, strOld, strNew) : k;
        std::string strFreshFormat;
        const bool bDiffers = ExpectRewritten(m_msg, before, strOld, bBody,
                                              static_cast<int>(nEdited), strWhat, &strFreshFormat);
        // Every other stored message is read back through its new format string.
        if (m_bFile && !bDiffers && (m_nHeaderWrites + m_nBodyWrites) % 2 == 0) {
            EXPECT_EQ(ReadThrough(m_strPath, m_msg.GetFormat()),
                      ReadThrough(m_strPath, strFreshFormat))
                << strWhat;
        }
        // Where the table leaves the list unlike the message, the next edit starts afresh.
        if (bDiffers) m_bOpen = Reopen(strNew);
        return !::testing::Test::HasFailure();
    }

    int HeaderWrites() const { return m_nHeaderWrites; }
    int BodyWrites() const { return m_nBodyWrites; }

private:
    static constexpr const char* kNames[] = {"X-Prop", "x-prop", "X-Other"};
    static constexpr CQLMimeConst::ENCODER kEncoders[] = {
        CQLMimeConst::ENCODER_7BIT, CQLMimeConst::ENCODER_BASE64, CQLMimeConst::ENCODER_QP};
    static constexpr CQLMimeConst::ENCODER kBodyEncoders[] = {
        CQLMimeConst::ENCODER_7BIT, CQLMimeConst::ENCODER_8BIT, CQLMimeConst::ENCODER_BASE64,
        CQLMimeConst::ENCODER_QP};

    bool Reopen(const std::string& strBytes) {
        return m_bFile ? m_msg.Open(m_strPath, true) : m_msg.Open(strBytes, false);
    }

    // The leaf whose body a banner or tag went into: the deepest one holding the first byte
    // that changed.
    static size_t EditedLeaf(const std::vector<Cells>& before, const std::string& strOld,
                             const std::string& strNew) {
        size_t nAt = 0;
        while (nAt < strOld.size() && nAt < strNew.size() && strOld[nAt] == strNew[nAt]) ++nAt;
        size_t nLeaf = 0;
        for (size_t i = 0; i < before.size(); ++i)
            if (before[i].ct != CQLMimeConst::MULTIPART && before[i].v[C_BSO] <= nAt &&
                nAt <= before[i].v[C_BEO])
                nLeaf = i;
        return nLeaf;
    }

    Rng& m_rng;
    bool m_bFile, m_bGenerated;
    std::string m_strName, m_strPath;
    CQLMimeMsg m_msg;
    bool m_bOpen = false;
    int m_nHeaderWrites = 0, m_nBodyWrites = 0;
};

std::vector<NamedMessage> CorpusMessages() {
    std::vector<NamedMessage> v;
    const std::filesystem::path corpus(QLMAIL_CORPUS_DIR);
    if (!std::filesystem::is_directory(corpus)) return v;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        const std::string strRel = entry.path().lexically_relative(corpus).string();
        if (!entry.is_regular_file() || strRel.rfind("LICENSES", 0) == 0 || strRel == "README.md" ||
            strRel == "MANIFEST.tsv")
            continue;
        v.push_back({strRel, CTempDir::ReadAll(entry.path().string())});
    }
    return v;
}

} // namespace

TEST(MimeRewriteProperty, RandomEditSequencesKeepOffsetsTrue) {
    const std::vector<NamedMessage> vFixed = TestMessages();
    const std::vector<NamedMessage> vCorpus = CorpusMessages();
    if (vCorpus.empty())
        std::cout << "no corpus at " << QLMAIL_CORPUS_DIR << ": generated messages only\n";
    CTempDir dir;
    Rng rng(20240611);
    int nSequences = 0, nSteps = 0, nHeaderWrites = 0, nBodyWrites = 0;
    for (; nSequences < 10000; ++nSequences) {
        // Half generated, the rest the fixed messages and the corpus.
        const int nSource = Pick(rng, 4);
        NamedMessage m;
        if (nSource < 2 || (nSource == 3 && vCorpus.empty()))
            m = {"generated " + std::to_string(nSequences), GenMessage(rng)};
        else if (nSource == 2)
            m = vFixed[Pick(rng, vFixed.size())];
        else
            m = vCorpus[Pick(rng, vCorpus.size())];
        Sequence seq(rng, m.strBytes, Pick(rng, 2) != 0, dir, nSource < 2, m.strName);
        for (int i = 0, n = 1 + Pick(rng, 5); i < n; ++i) {
            if (!seq.Step()) break;
            ++nSteps;
        }
        nHeaderWrites += seq.HeaderWrites();
        nBodyWrites += seq.BodyWrites();
        if (HasFailure()) break;
    }
    EXPECT_EQ(nSequences, 10000);
    EXPECT_GT(nSteps, 20000);
    EXPECT_GT(nHeaderWrites, 5000);
    EXPECT_GT(nBodyWrites, 3000);
    std::cout << nSequences << " sequences, " << nSteps << " edits, " << nHeaderWrites
              << " header and " << nBodyWrites << " body write-backs checked\n";
}
