// A rewrite that fails at each step of its file swap leaves the stored message, the temporary
// files and the tree as the failure tables say. Faults come from the seam, from a source that
// vanished, and from a folder where the temporary file cannot be made.
#include "faults/FaultSeam.h"
#include "foundation/TempDir.h"
#include "mime/QLMimeMsg.h"

#include <cerrno>
#include <filesystem>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const kMessage = "Subject: faults\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n"
                             "--b\r\nContent-Type: text/plain\r\n\r\nfirst body\r\n"
                             "--b\r\nContent-Type: text/plain\r\n\r\nsecond body\r\n--b--\r\n";

// The offsets of every entry, to tell a patched tree from an untouched one.
std::vector<uint32_t> Offsets(const CQLMimeMsg& msg) {
    std::vector<uint32_t> v;
    for (const CQLMimeMsg* p : msg)
        v.insert(v.end(), {p->m_nHSO, p->m_nHEO, p->m_nTSO, p->m_nTEO, p->m_nMSO, p->m_nMEO,
                           p->m_nBSO, p->m_nBEO});
    return v;
}

class RewriteFaults : public FaultTest {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        m_strPath = m_Dir.Path("msg.eml");
        std::ofstream(m_strPath, std::ios::binary) << kMessage;
        ASSERT_TRUE(m_msg.Open(m_strPath, true));
        m_vOffsets = Offsets(m_msg);
    }

    // A text with the directory written as DIR and the seconds of temporary names as T.
    std::string Mask(const std::string& strText) const {
        std::string s = strText;
        for (size_t n; (n = s.find(m_Dir.Dir())) != std::string::npos;)
            s.replace(n, m_Dir.Dir().size(), "DIR");
        return std::regex_replace(s, std::regex("[0-9]+"), "T");
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> v;
        for (const auto& e : std::filesystem::directory_iterator(m_Dir.Dir()))
            v.push_back(Mask(e.path().filename().string()));
        std::sort(v.begin(), v.end());
        return v;
    }
    std::string Read(const std::string& strName) const {
        for (const auto& e : std::filesystem::directory_iterator(m_Dir.Dir()))
            if (Mask(e.path().filename().string()) == strName)
                return CTempDir::ReadAll(e.path().string());
        return "(absent)";
    }
    // Removes what a step left beside the message: the next step may run in another second,
    // under other temporary names.
    void RemoveTemps() const {
        for (const auto& e : std::filesystem::directory_iterator(m_Dir.Dir()))
            if (e.path().filename() != "msg.eml") std::filesystem::remove(e.path());
    }
    // The message as the edit makes it, worked out in memory.
    static std::string Edited(bool bBody) {
        CQLMimeMsg mem;
        mem.Open(kMessage, false);
        if (bBody)
            mem[2]->SetBody("new body\r\n", false, CQLMimeConst::ENCODER_7BIT);
        else
            mem.AddHdrItem("X-Fault", "1", CQLMimeConst::ENCODER_7BIT, "", false, false, true);
        std::string s;
        mem.Save(s);
        return s;
    }
    bool EditHeader() {
        return m_msg.AddHdrItem("X-Fault", "1", CQLMimeConst::ENCODER_7BIT, "", false, false, true);
    }
    bool EditBody() { return m_msg[2]->SetBody("new body\r\n", false, CQLMimeConst::ENCODER_7BIT); }
    std::string Body(int k) {
        std::string s;
        m_msg[k]->GetBody(s, false);
        return s;
    }

    CTempDir m_Dir;
    std::string m_strPath;
    CQLMimeMsg m_msg;
    std::vector<uint32_t> m_vOffsets;
};

const std::vector<std::string> kJustMsg = {"msg.eml"};

} // namespace

TEST_F(RewriteFaults, HeaderFailsBeforeTheSwap) {
    // The temporary file cannot be made, its block cannot be written, the copy behind it fails
    // in the kernel's copy or, where the kernel cannot copy, in a write: the message stays, no
    // temporary file stays, and the edit waits for the next write-back.
    const struct {
        seam::Call call;
        int nNth, nErrno;
        bool bNoKernelCopy;
        const char* pszError;
    } kCases[] = {
        {seam::Call::Open, 1, EACCES, false,
         "In UpdateHdr(), fail to open tmp file, In Open(DIR/msg.eml.T.tmp), Permission denied"},
        {seam::Call::Write, 1, ENOSPC, false,
         "In UpdateHdr(), exception occured, In Write(msg.eml.T.tmp), No space left on device"},
        {seam::Call::CopyFileRange, 1, ENOSPC, false,
         "In UpdateHdr(), In CQLMimeFile::SubStr(), No space left on device"},
        {seam::Call::Write, 2, ENOSPC, true,
         "In UpdateHdr(), In CQLMimeFile::SubStr(), In Write(msg.eml.T.tmp), No space left on "
         "device"},
    };
    for (const auto& c : kCases) {
        if (c.bNoKernelCopy) seam::FailNth(seam::Call::CopyFileRange, 1, EXDEV);
        seam::FailNth(c.call, c.nNth, c.nErrno);
        EXPECT_FALSE(EditHeader());
        EXPECT_EQ(Mask(m_msg.GetLastError()), c.pszError);
        EXPECT_EQ(Names(), kJustMsg);
        EXPECT_EQ(Read("msg.eml"), kMessage);
        EXPECT_EQ(Offsets(m_msg), m_vOffsets);
        EXPECT_EQ(Body(2), "second body\r\n");
        m_msg.DelHdrItem("X-Fault", false);
        seam::Reset();
    }
    // Where the kernel cannot copy, the bytes go through a buffer, with the same result.
    for (int nErrno : {EXDEV, EINVAL, ENOSYS, EOPNOTSUPP, EBADF}) {
        seam::FailNth(seam::Call::CopyFileRange, 1, nErrno);
        ASSERT_TRUE(EditHeader()) << nErrno;
        EXPECT_EQ(Read("msg.eml"), Edited(false));
        EXPECT_EQ(Body(2), "second body\r\n");
        ASSERT_TRUE(m_msg.DelHdrItem("X-Fault", true));
    }
}

TEST_F(RewriteFaults, HeaderSwapFailures) {
    // The message moved aside cannot be: it stays, reopened; the new message stays beside it.
    seam::FailNth(seam::Call::Rename, 1, EXDEV);
    EXPECT_FALSE(EditHeader());
    EXPECT_EQ(Mask(m_msg.GetLastError()),
              "In UpdateHdr(), fail to rename to source temp file, Invalid cross-device link");
    EXPECT_EQ(Names(), (std::vector<std::string>{"msg.eml", "msg.eml.T.tmp"}));
    EXPECT_EQ(Read("msg.eml"), kMessage);
    EXPECT_EQ(Read("msg.eml.T.tmp"), Edited(false));
    EXPECT_EQ(Body(2), "second body\r\n");
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
    RemoveTemps();

    // The new message cannot take the name: the old one is copied back.
    seam::FailNth(seam::Call::Rename, 2, EXDEV);
    EXPECT_FALSE(m_msg.UpdateHdr());
    EXPECT_EQ(Mask(m_msg.GetLastError()),
              "In UpdateHdr(), fail to rename tmp to src file, Invalid cross-device link");
    EXPECT_EQ(Names(), kJustMsg);
    EXPECT_EQ(Read("msg.eml"), kMessage);
    EXPECT_EQ(Body(2), "second body\r\n");

    // Nor can the old one be copied back: it is kept under the name it was moved to, and the
    // tree reads it there. A part copy does not stay at the message's name.
    seam::Reset();
    seam::FailNth(seam::Call::Rename, 2, EXDEV);
    seam::FailNth(seam::Call::Write, 2, ENOSPC); // the block, then the copy back
    EXPECT_FALSE(m_msg.UpdateHdr());
    EXPECT_EQ(Mask(m_msg.GetLastError()),
              "In UpdateHdr(), fail to rename tmp to src file, Invalid cross-device link, In "
              "Write(msg.eml), No space left on device");
    EXPECT_EQ(Names(), std::vector<std::string>{"msg.eml.T.tmp.tmp"});
    EXPECT_EQ(Read("msg.eml.T.tmp.tmp"), kMessage);
    EXPECT_EQ(Mask(m_msg.m_pSource->GetData()), "DIR/msg.eml.T.tmp.tmp");
    EXPECT_EQ(Body(2), "second body\r\n");
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
}

TEST_F(RewriteFaults, HeaderReopenFailsAfterTheSwap) {
    seam::FailNth(seam::Call::Open, 2, EMFILE); // the temporary file, then the reopening
    EXPECT_FALSE(EditHeader());
    EXPECT_EQ(Mask(m_msg.GetLastError()), "In UpdateHdr(), fail to SetData, In SetData(), In "
                                          "Open(DIR/msg.eml), Too many open files");
    EXPECT_EQ(Names(), kJustMsg);
    EXPECT_EQ(Read("msg.eml"), Edited(false));
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
}

TEST_F(RewriteFaults, BodyFailuresLeaveWhatTheTableSays) {
    const std::string strNew = Edited(true);
    // The temporary file cannot be made: nothing changes.
    seam::FailNth(seam::Call::Open, 1, EACCES);
    EXPECT_FALSE(EditBody());
    EXPECT_EQ(Mask(m_msg[2]->GetLastError()), "In CQLMimeMsg::SetBody(), fail to open a file : In "
                                              "Open(DIR/msg.eml.T.tmp), Permission denied");
    EXPECT_EQ(Names(), kJustMsg);

    // A copy into it fails: the message stays, and so does the temporary file.
    seam::Reset();
    seam::FailNth(seam::Call::CopyFileRange, 1, ENOSPC);
    EXPECT_FALSE(EditBody());
    EXPECT_EQ(m_msg[2]->GetLastError(), "In CQLMimeMsg::SetBody(), fail to substring : In "
                                        "CQLMimeFile::SubStr(), No space left on device");
    EXPECT_EQ(Names(), (std::vector<std::string>{"msg.eml", "msg.eml.T.tmp"}));
    EXPECT_EQ(Read("msg.eml"), kMessage);
    RemoveTemps();
    // An encoded body is written whole, and a failed write is thrown.
    seam::Reset();
    seam::FailNth(seam::Call::Write, 1, ENOSPC); // the part before goes by the kernel's copy
    EXPECT_THROW(m_msg[2]->SetBody("x", false, CQLMimeConst::ENCODER_BASE64), CQLExceptionParser);
    EXPECT_EQ(Read("msg.eml"), kMessage);
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);

    RemoveTemps();
    // Data that cannot be read (a directory's name) fails the same way, encoded or not.
    for (CQLMimeConst::ENCODER eEncoder :
         {CQLMimeConst::ENCODER_7BIT, CQLMimeConst::ENCODER_BASE64}) {
        EXPECT_FALSE(m_msg[2]->SetBody(m_Dir.Dir(), true, eEncoder));
        EXPECT_EQ(m_msg[2]->GetLastError().rfind("In CQLMimeMsg::SetBody(), fail to substring : "
                                                 "In CQLMimeFile::SubStr(), ",
                                                 0),
                  0u)
            << m_msg[2]->GetLastError();
        EXPECT_EQ(Names(), (std::vector<std::string>{"msg.eml", "msg.eml.T.tmp"}));
        RemoveTemps();
    }
    EXPECT_EQ(Read("msg.eml"), kMessage);

    // The stored message cannot be removed: it stays, the temporary file goes.
    seam::Reset();
    seam::FailNth(seam::Call::Unlink, 1, EBUSY);
    EXPECT_FALSE(EditBody());
    EXPECT_EQ(m_msg[2]->GetLastError(),
              "In CQLMimeMsg::SetBody(), fail to unlink : Device or resource busy");
    EXPECT_EQ(Names(), kJustMsg);
    EXPECT_EQ(Read("msg.eml"), kMessage);
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
}

TEST_F(RewriteFaults, BodyRenameFailureKeepsTheNewMessage) {
    // The stored message is gone by then; the temporary file holds the only copy and stays.
    seam::FailNth(seam::Call::Rename, 1, EXDEV);
    EXPECT_FALSE(EditBody());
    EXPECT_EQ(m_msg[2]->GetLastError(),
              "In CQLMimeMsg::SetBody(), fail to rename : Invalid cross-device link");
    EXPECT_EQ(Names(), std::vector<std::string>{"msg.eml.T.tmp"});
    EXPECT_EQ(Read("msg.eml.T.tmp"), Edited(true));
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
}

TEST_F(RewriteFaults, BodyReopenFailsAfterTheSwap) {
    seam::FailNth(seam::Call::Open, 2, EMFILE);
    EXPECT_FALSE(EditBody());
    EXPECT_EQ(Mask(m_msg[2]->GetLastError()),
              "In CQLMimeMsg::SetBody(), fail to set a data : In SetData(), In Open(DIR/msg.eml), "
              "Too many open files");
    EXPECT_EQ(Names(), kJustMsg);
    EXPECT_EQ(Read("msg.eml"), Edited(true));
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
}

TEST_F(RewriteFaults, VanishedSource) {
    // Read through the descriptor still open; the swap finds no message to move aside, and the
    // new message stays under its temporary name.
    std::filesystem::remove(m_strPath);
    EXPECT_FALSE(EditHeader());
    EXPECT_EQ(m_msg.GetLastError(),
              "In UpdateHdr(), fail to rename to source temp file, No such file or directory");
    EXPECT_EQ(Names(), std::vector<std::string>{"msg.eml.T.tmp"});
    EXPECT_EQ(Read("msg.eml.T.tmp"), Edited(false));

    CQLMimeMsg msg;
    const std::string strPath = m_Dir.MakeFile(kMessage);
    ASSERT_TRUE(msg.Open(strPath, true));
    std::filesystem::remove(strPath);
    EXPECT_FALSE(msg[2]->SetBody("x\r\n", false, CQLMimeConst::ENCODER_7BIT));
    EXPECT_EQ(msg[2]->GetLastError(),
              "In CQLMimeMsg::SetBody(), fail to unlink : No such file or directory");
    EXPECT_EQ(Names(), std::vector<std::string>{"msg.eml.T.tmp"});
}

TEST_F(RewriteFaults, FolderWithoutRoomForTheTemporaryFile) {
    // Without write permission on the folder; as root, where permissions do not stop writes,
    // a directory in the way of each temporary name of the next seconds does.
    const bool bRoot = geteuid() == 0;
    if (bRoot) {
        const long nNow = static_cast<long>(time(nullptr));
        for (long t = nNow - 1; t <= nNow + 30; ++t)
            std::filesystem::create_directory(m_strPath + "." + std::to_string(t) + ".tmp");
    } else {
        chmod(m_Dir.Dir().c_str(), 0555);
    }
    const std::string strReason = bRoot ? "Is a directory" : "Permission denied";
    EXPECT_FALSE(EditHeader());
    EXPECT_EQ(Mask(m_msg.GetLastError()),
              "In UpdateHdr(), fail to open tmp file, In Open(DIR/msg.eml.T.tmp), " + strReason);
    EXPECT_FALSE(EditBody());
    EXPECT_EQ(Mask(m_msg[2]->GetLastError()),
              "In CQLMimeMsg::SetBody(), fail to open a file : In Open(DIR/msg.eml.T.tmp), " +
                  strReason);
    chmod(m_Dir.Dir().c_str(), 0755);
    EXPECT_EQ(Read("msg.eml"), kMessage);
    EXPECT_EQ(Offsets(m_msg), m_vOffsets);
}
