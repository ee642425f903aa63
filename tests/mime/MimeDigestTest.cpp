// Every message we have, parsed in memory and from its file, gives the Open result, last error
// and format string recorded in format-digests.tsv, and the header lists recorded in
// header-digests.tsv. The lists were made by an earlier build, so a change of any parse result
// anywhere shows up here.
//
// Sets: the public corpus (QLMAIL_CORPUS_DIR), the peer corpus (the directory in the
// environment variable QLMAIL_PEER_CORPUS, made by ../shared/peers/gen_corpus.py), the samples
// and the message fuzz seeds. A set whose directory is absent is skipped with a message.
// QLMAIL_WRITE_DIGESTS=FILE and QLMAIL_WRITE_HEADER_DIGESTS=FILE write the lists of the present
// sets from this build instead.
#include "mime/MimeTestUtil.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string Hex64(uint64_t n) {
    char sz[17];
    snprintf(sz, sizeof(sz), "%016llx", static_cast<unsigned long long>(n));
    return sz;
}

class CFnv {
public:
    void Add(const std::string& s) {
        for (unsigned char c : s) m_h = (m_h ^ c) * 0x100000001b3ull;
        m_h = (m_h ^ 0xff) * 0x100000001b3ull; // separator
    }
    void Add(uint64_t n) { Add(std::to_string(n)); }
    std::string Hex() const { return Hex64(m_h); }

private:
    uint64_t m_h = 0xcbf29ce484222325ull;
};

// FNV-1a over the Open result, the last error and the format string.
std::string FormatDigest(CQLMimeMsg& msg, bool bOpen) {
    CFnv h;
    h.Add(bOpen ? "1" : "0");
    h.Add(msg.GetLastError());
    h.Add(msg.GetFormat());
    return h.Hex();
}

void AddHeaders(CFnv& h, const CQLMimeMsg& msg) {
    for (const CQLMimeMsg* pEntry : msg) {
        const CQLMimeHdr& hdr = pEntry->m_Hdr;
        h.Add(hdr.m_nHdrStart);
        h.Add(hdr.m_nHdrEnd);
        h.Add(static_cast<uint64_t>(hdr.m_nLineCnt));
        h.Add(hdr.m_bAttachment ? 1 : 0);
        for (const CQLMimeHdrItem& item : hdr) {
            h.Add(item.m_strName);
            h.Add(item.m_strValue);
            h.Add(item.m_strRaw);
        }
    }
}

// FNV-1a over every entry's header list: as the parse made it, and as an Open from the format
// string parses it again.
std::string HeaderDigest(CQLMimeMsg& msg, const std::string& strData, bool bFile) {
    CFnv h;
    AddHeaders(h, msg);
    const std::string strFormat = msg.GetFormat();
    CQLMimeMsg again;
    h.Add(again.Open(strData.c_str(), 0, strFormat.c_str(), bFile, true, true) ? "1" : "0");
    AddHeaders(h, again);
    return h.Hex();
}

struct Set {
    std::string strName;
    fs::path dir;
};

std::vector<Set> PresentSets(std::vector<std::string>& vSkipped) {
    std::vector<Set> vSets;
    auto add = [&](const std::string& strName, const fs::path& dir) {
        if (fs::is_directory(dir))
            vSets.push_back(Set{strName, dir});
        else
            vSkipped.push_back(strName + " (no directory " + dir.string() + ")");
    };
    add("corpus", QLMAIL_CORPUS_DIR);
    const char* pszPeer = std::getenv("QLMAIL_PEER_CORPUS");
    if (pszPeer != nullptr && *pszPeer != '\0')
        add("peer", pszPeer);
    else
        vSkipped.push_back("peer (QLMAIL_PEER_CORPUS not set)");
    add("samples", fs::path(QLMAIL_SOURCE_DIR) / "samples");
    add("seeds", fs::path(QLMAIL_SOURCE_DIR) / "fuzz" / "seeds" / "message");
    return vSets;
}

bool IsMessageFile(const std::string& strRel) {
    return strRel.rfind("LICENSES", 0) != 0 && strRel != "README.md" &&
           strRel.find("MANIFEST.tsv") == std::string::npos;
}

struct Digests {
    std::map<std::string, std::string> mFormat;
    std::map<std::string, std::string> mHeaders;
};

// "set/relative path" to "memory digest<TAB>file digest", for every message of the set.
void DigestSet(const Set& set, Digests& out) {
    for (const auto& entry : fs::recursive_directory_iterator(set.dir)) {
        if (!entry.is_regular_file()) continue;
        const std::string strRel = entry.path().lexically_relative(set.dir).string();
        if (!IsMessageFile(strRel)) continue;
        const std::string strKey = set.strName + "/" + strRel;
        const std::string strPath = entry.path().string();
        const std::string strBytes = CTempDir::ReadAll(strPath);
        {
            CQLMimeMsg msg;
            const bool bOpen = msg.Open(strBytes, false);
            out.mFormat[strKey] = FormatDigest(msg, bOpen);
            out.mHeaders[strKey] = HeaderDigest(msg, strBytes, false);
        }
        CQLMimeMsg msg;
        const bool bOpen = msg.Open(strPath, true);
        out.mFormat[strKey] += "\t" + FormatDigest(msg, bOpen);
        out.mHeaders[strKey] += "\t" + HeaderDigest(msg, strPath, true);
    }
}

std::map<std::string, std::string> ReadList(const std::string& strPath) {
    std::map<std::string, std::string> mList;
    std::ifstream in(strPath);
    std::string strLine;
    while (std::getline(in, strLine)) {
        if (strLine.empty() || strLine[0] == '#') continue;
        const size_t nTab = strLine.find('\t');
        if (nTab != std::string::npos) mList[strLine.substr(0, nTab)] = strLine.substr(nTab + 1);
    }
    return mList;
}

// The present sets and their digests, made once for both tests.
struct Present {
    std::vector<std::string> vSkipped;
    std::vector<Set> vSets;
    Digests digests;
};

const Present& Now() {
    static const Present s_now = [] {
        Present now;
        now.vSets = PresentSets(now.vSkipped);
        for (const Set& set : now.vSets) DigestSet(set, now.digests);
        return now;
    }();
    return s_now;
}

void ExpectAsRecorded(const std::map<std::string, std::string>& mNow, const char* pszWriteVar,
                      const std::string& strHeading, const std::string& strList) {
    const std::vector<Set>& vSets = Now().vSets;
    if (const char* pszOut = std::getenv(pszWriteVar)) {
        std::ofstream out(pszOut);
        out << strHeading << "\n";
        for (const auto& [strKey, strValue] : mNow) out << strKey << '\t' << strValue << '\n';
        GTEST_SKIP() << "wrote " << mNow.size() << " digests to " << pszOut;
    }

    const std::map<std::string, std::string> mList =
        ReadList(std::string(QLMAIL_SOURCE_DIR) + "/tests/mime/" + strList);
    ASSERT_FALSE(mList.empty()) << "no stored digests";
    size_t nChecked = 0;
    for (const auto& [strKey, strValue] : mList) {
        const std::string strSet = strKey.substr(0, strKey.find('/'));
        const bool bPresent = std::any_of(vSets.begin(), vSets.end(),
                                          [&](const Set& s) { return s.strName == strSet; });
        if (!bPresent) continue;
        auto it = mNow.find(strKey);
        if (it == mNow.end()) {
            ADD_FAILURE() << strKey << " is listed but missing";
            continue;
        }
        EXPECT_EQ(it->second, strValue) << strKey << " (memory, file)";
        ++nChecked;
    }
    std::ostringstream note;
    note << nChecked << " messages checked in both modes";
    for (const auto& [strKey, strValue] : mNow)
        if (mList.count(strKey) == 0) note << "; not listed: " << strKey;
    for (const std::string& s : Now().vSkipped) note << "; skipped " << s;
    std::cout << note.str() << std::endl;
    EXPECT_GT(nChecked, 0u);
}

} // namespace

TEST(MimeDigest, FormatStringsOfEveryMessageStayAsRecorded) {
    ExpectAsRecorded(Now().digests.mFormat, "QLMAIL_WRITE_DIGESTS",
                     "# message\tmemory\tfile (FNV-1a of Open result, last error, format string)",
                     "format-digests.tsv");
}

TEST(MimeDigest, HeaderListsOfEveryMessageStayAsRecorded) {
    ExpectAsRecorded(Now().digests.mHeaders, "QLMAIL_WRITE_HEADER_DIGESTS",
                     "# message\tmemory\tfile (FNV-1a of every entry's header list, after the "
                     "parse and after an Open from the format string)",
                     "header-digests.tsv");
}
