// A process rewriting a message is killed at random moments. Whatever moment it dies in, the
// message exists whole on disk: at its path the old or the new version, never a mix or a
// cut; or, while the files are being swapped, under one of its temporary names.
#include "mime/RewriteTestUtil.h"

#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

const int kSteps = 12;

std::string BaseMessage() {
    std::string strBody;
    for (int i = 0; i < 400; ++i) strBody += "line " + std::to_string(i) + " of the first body\r\n";
    return "Subject: crash\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
           "Content-Type: text/plain\r\n\r\n" +
           strBody +
           "--b\r\nContent-Type: application/octet-stream\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\nAAAA\r\n--b--\r\n";
}

// Step i of the rewriting: header write-backs and body replacements in turn.
bool ApplyStep(CQLMimeMsg& msg, int i) {
    switch (i % 3) {
    case 0:
        return msg.AddHdrItem("X-Step", std::to_string(i), CQLMimeConst::ENCODER_7BIT, "", false,
                              i % 2 == 0, true);
    case 1:
        return msg[1]->SetBody(std::string(2000 + 300 * i, 'a' + i) + "\r\n", false,
                               CQLMimeConst::ENCODER_7BIT);
    default:
        return msg[2]->SetBody(PatternBytes(5000 + 100 * i), false, CQLMimeConst::ENCODER_BASE64);
    }
}

void RunSteps(const std::string& strPath) {
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) _exit(2);
    for (int i = 0; i < kSteps; ++i)
        if (!ApplyStep(msg, i)) _exit(3);
    _exit(0);
}

pid_t Spawn(const std::string& strPath) {
    const pid_t pid = fork();
    if (pid == 0) RunSteps(strPath);
    return pid;
}

} // namespace

TEST(MimeRewriteCrash, KilledRewritesLeaveAWholeMessage) {
    // Every version the message passes through, worked out in memory.
    std::map<std::string, int> mVersions;
    {
        CQLMimeMsg mem;
        ASSERT_TRUE(mem.Open(BaseMessage(), false));
        mVersions[BaseMessage()] = 0;
        for (int i = 0; i < kSteps; ++i) {
            ASSERT_TRUE(ApplyStep(mem, i));
            mVersions[Current(mem)] = i + 1;
        }
    }
    CTempDir dir;
    // A run to its end, to learn how long the rewriting takes and that it gives the last
    // version.
    const std::string strWhole = dir.Path("whole.eml");
    std::ofstream(strWhole, std::ios::binary) << BaseMessage();
    const auto tStart = std::chrono::steady_clock::now();
    int nStatus = 0;
    waitpid(Spawn(strWhole), &nStatus, 0);
    const long nRunMicros = std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::steady_clock::now() - tStart)
                                .count();
    ASSERT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0);
    ASSERT_EQ(mVersions[CTempDir::ReadAll(strWhole)], kSteps);

    // Kill times are drawn up to a limit that follows the children: it shrinks when one has
    // finished before its kill and grows slowly otherwise, so that most die on the way.
    std::mt19937 rng(7);
    double fLimit = static_cast<double>(nRunMicros);
    int nAtPath = 0, nAside = 0, nFinished = 0;
    std::set<int> sSeen;
    for (int nKill = 0; nKill < 500; ++nKill) {
        const std::string strName = "m" + std::to_string(nKill) + ".eml";
        const std::string strPath = dir.Path(strName);
        std::ofstream(strPath, std::ios::binary) << BaseMessage();
        const pid_t pid = Spawn(strPath);
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(
            std::chrono::microseconds(rng() % (static_cast<unsigned>(fLimit) + 1)));
        kill(pid, SIGKILL);
        waitpid(pid, &nStatus, 0);
        const bool bFinished = WIFEXITED(nStatus);
        nFinished += bFinished;
        fLimit *= bFinished ? 0.9 : 1.01;

        std::vector<std::string> vTemps;
        for (const std::string& strFile : DirNames(dir.Dir()))
            if (strFile.rfind(strName + ".", 0) == 0) vTemps.push_back(dir.Path(strFile));
        if (std::filesystem::exists(strPath)) {
            ++nAtPath;
            const auto it = mVersions.find(CTempDir::ReadAll(strPath));
            EXPECT_NE(it, mVersions.end()) << "kill " << nKill << ": a mix or a cut at its path";
            if (it != mVersions.end()) sSeen.insert(it->second);
        } else {
            ++nAside;
            bool bWhole = false;
            for (const std::string& strTemp : vTemps)
                bWhole = bWhole || mVersions.count(CTempDir::ReadAll(strTemp)) == 1;
            EXPECT_TRUE(bWhole) << "kill " << nKill << ": no whole version on disk";
        }
        std::filesystem::remove(strPath);
        for (const std::string& strTemp : vTemps) std::filesystem::remove(strTemp);
    }
    EXPECT_LT(nFinished, 250);
    std::cout << "500 kills over a rewriting of about " << nRunMicros << " us: " << nAtPath
              << " with the message at its path (" << sSeen.size() << " of " << kSteps + 1
              << " versions seen), " << nAside << " between the swaps, " << nFinished
              << " after the last step\n";
}
