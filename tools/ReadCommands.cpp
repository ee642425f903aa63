#include "ReadCommands.h"

#include "ToolCommon.h"

#include "codec/QLConvParser.h"
#include "foundation/QLStrTokenizerParser.h"
#include "foundation/QLSystemError.h"
#include "mime/QLMimeMsg.h"
#include "reader/QLMimeMsgInfo.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <mutex>
#include <sched.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

const char kFmtSuffix[] = ".fmt";
// Unlabelled text is taken as UTF-8 when it is valid UTF-8 and as ISO-8859-1 otherwise, so
// that no byte is lost.
const char kDefaultCharset[] = "autodetect_utf8";
const char kToCharset[] = "UTF-8";
// The stored records all carry the empty level.
const std::string kLevel;

bool EndsWith(const std::string& strText, const std::string& strEnd) {
    return strText.size() >= strEnd.size() &&
           strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

std::string SystemError(const std::string& strPath) {
    return strPath + ": " + CQLSystemError::GetStrError(errno);
}

// A format string beside its message is current when it is not older than the message.
// File times are coarser than the work, so equal times count as current. An empty one is
// never current: a format string has at least one record.
bool FormatIsCurrent(const struct stat& stMsg, const struct stat& stFmt) {
    if (!S_ISREG(stFmt.st_mode) || stFmt.st_size == 0) return false;
    if (stFmt.st_mtim.tv_sec != stMsg.st_mtim.tv_sec)
        return stFmt.st_mtim.tv_sec > stMsg.st_mtim.tv_sec;
    return stFmt.st_mtim.tv_nsec >= stMsg.st_mtim.tv_nsec;
}

bool ReadWholeFile(const std::string& strPath, std::string& strOut, std::string& strError) {
    const int nFD = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (nFD < 0) {
        strError = SystemError(strPath);
        return false;
    }
    strOut.clear();
    char szBuf[8192];
    ssize_t n;
    while ((n = read(nFD, szBuf, sizeof(szBuf))) != 0) {
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            strError = SystemError(strPath);
            close(nFD);
            return false;
        }
        strOut.append(szBuf, static_cast<size_t>(n));
    }
    close(nFD);
    return true;
}

// The message must be a regular file; stMsg gets its status.
bool StatMessage(const std::string& strPath, struct stat& stMsg, std::string& strError) {
    if (stat(strPath.c_str(), &stMsg) != 0) {
        strError = SystemError(strPath);
        return false;
    }
    if (!S_ISREG(stMsg.st_mode)) {
        strError = strPath + ": not a regular file";
        return false;
    }
    return true;
}

// The format string of the message at strPath: from strFormatPath when one is given, else
// from strPath.fmt when that is current, else made by parsing the message once from its
// file. Nothing is written.
bool LoadFormat(const std::string& strPath, const std::string& strFormatPath,
                std::string& strFormat, std::string& strError) {
    struct stat stMsg;
    if (!StatMessage(strPath, stMsg, strError)) return false;
    std::string strFrom = strFormatPath;
    struct stat stFmt;
    if (strFrom.empty() && stat((strPath + kFmtSuffix).c_str(), &stFmt) == 0 &&
        FormatIsCurrent(stMsg, stFmt))
        strFrom = strPath + kFmtSuffix;
    if (!strFrom.empty()) {
        if (!ReadWholeFile(strFrom, strFormat, strError)) return false;
        // The reader sees the text up to its first NUL, and nothing that lacks a record end.
        if (strFormat.find('\x05') >= strFormat.find('\0')) {
            strError = strFrom + ": not a format string";
            return false;
        }
        return true;
    }
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) {
        strError = strPath + ": " + msg.GetLastError();
        return false;
    }
    strFormat = msg.GetFormat();
    return true;
}

// A charset name that the converter opens, as source or as target.
bool KnownCharset(const std::string& strName, bool bTarget) {
    CQLConvParser conv;
    return bTarget ? conv.Open(kToCharset, strName, true) : conv.Open(strName, kToCharset, true);
}

// The charset options of a command checked; false with the reason for bad usage.
bool CheckCharsets(const ToolArgs& args, std::string& strError) {
    for (const char* pszOption : {"--to", "--default-charset", "--force-charset"}) {
        if (!args.Has(pszOption)) continue;
        const std::string strName = args.Get(pszOption, "");
        const bool bTarget = std::strcmp(pszOption, "--to") == 0;
        // An empty default or forced charset means none; a result needs a charset.
        if (strName.empty() && !bTarget) continue;
        if (!KnownCharset(strName, bTarget)) {
            strError = std::string(pszOption) + ": unknown charset '" + strName + "'";
            return false;
        }
    }
    return true;
}

bool WriteStdout(const char* pData, size_t nLen) {
    return std::fwrite(pData, 1, nLen, stdout) == nLen;
}

int FinishStdout() {
    if (std::fflush(stdout) != 0) return Fail("cannot write the output");
    return 0;
}

// Parses and checks the arguments of a reading command, which takes nMin to nMax operands,
// FILE first. -1 when they are good, else the exit code of bad usage.
int ParseReading(const std::string& strCmd, const std::vector<std::string>& vArgs,
                 const std::vector<std::string>& vFlags, std::vector<std::string> vValued,
                 const std::string& strOperands, size_t nMin, size_t nMax, ToolArgs& args) {
    vValued.push_back("--format");
    std::string strError;
    if (!ParseArgs(vArgs, vFlags, vValued, args, strError)) return Usage(strCmd + ": " + strError);
    if (args.vOperands.size() < nMin || args.vOperands.size() > nMax)
        return Usage(strCmd + " takes " + strOperands);
    if (!CheckCharsets(args, strError)) return Usage(strCmd + ": " + strError);
    return -1;
}

} // namespace

// ---- header, text ----

int HeaderCommand(const std::vector<std::string>& vArgs) {
    ToolArgs args;
    const int nExit = ParseReading("header", vArgs, {"--decode"}, {"--to", "--default-charset"},
                                   "FILE [NAME]", 1, 2, args);
    if (nExit >= 0) return nExit;
    const bool bName = args.vOperands.size() == 2;
    if (!bName && args.Has("--decode")) return Usage("header: --decode goes with a NAME");
    if (!args.Has("--decode") && (args.Has("--to") || args.Has("--default-charset")))
        return Usage("header: --to and --default-charset go with --decode");
    const std::string& strPath = args.vOperands[0];
    std::string strFormat, strError;
    if (!LoadFormat(strPath, args.Get("--format", ""), strFormat, strError)) return Fail(strError);

    CQLMimeMsgInfo info(strPath, strFormat);
    std::string strOut;
    if (!bName) {
        if (!info.GetHeader(strOut, kLevel)) return Fail(strPath + ": " + info.GetLastError());
    } else {
        const std::string& strName = args.vOperands[1];
        if (!info.GetHeaderValue(strName, strOut, args.Has("--decode"),
                                 args.Get("--default-charset", kDefaultCharset),
                                 args.Get("--to", kToCharset), kLevel))
            return Fail(strPath + ": " + info.GetLastError() + ": " + strName);
        // One line end behind the value: a field of a file with LF line ends keeps its own.
        while (!strOut.empty() && (strOut.back() == '\n' || strOut.back() == '\r'))
            strOut.pop_back();
        strOut += '\n';
    }
    if (!WriteStdout(strOut.data(), strOut.size())) return Fail("cannot write the output");
    return FinishStdout();
}

int TextCommand(const std::vector<std::string>& vArgs) {
    ToolArgs args;
    const int nExit =
        ParseReading("text", vArgs, {"--html", "--raw"},
                     {"--to", "--default-charset", "--force-charset"}, "one FILE", 1, 1, args);
    if (nExit >= 0) return nExit;
    const std::string& strPath = args.vOperands[0];
    std::string strFormat, strError;
    if (!LoadFormat(strPath, args.Get("--format", ""), strFormat, strError)) return Fail(strError);

    const bool bHtml = args.Has("--html");
    CQLMimeMsgInfo info(strPath, strFormat);
    std::string strOut;
    if (!info.GetText(strOut, bHtml, args.Get("--default-charset", kDefaultCharset),
                      args.Get("--force-charset", ""), args.Get("--to", kToCharset),
                      !args.Has("--raw"), kLevel))
        return Fail(strPath + ": " + info.GetLastError() + " (" + (bHtml ? "html" : "plain") + ")");
    if (!WriteStdout(strOut.data(), strOut.size())) return Fail("cannot write the output");
    return FinishStdout();
}

// ---- attachments, extract ----

namespace {

// One line of an attachment list.
struct AttachRow {
    std::string strNumber;
    int nType;
    int nSubType;
    int nEncoding;
    unsigned int nSize;  // decoded; kSizeUnknown when it could not be worked out
    std::string strName; // file name, or Content-ID for an inline image
};

const unsigned int kSizeUnknown = 4294967295u;

void PrintAttachRows(const std::string& strPath, const std::vector<AttachRow>& vRows, bool bInline,
                     bool bJson) {
    std::string strOut;
    if (!bJson) {
        strOut = std::string("# part\ttype\tencoding\tsize\t") +
                 (bInline ? "content-id" : "filename") + "\n";
        for (const AttachRow& row : vRows) {
            strOut += row.strNumber + "\t" + TypeName(row.nType) + "/" + SubTypeName(row.nSubType) +
                      "\t" + EncodingName(row.nEncoding) + "\t" +
                      (row.nSize == kSizeUnknown ? "-" : std::to_string(row.nSize)) + "\t" +
                      Printable(row.strName) + "\n";
        }
    } else {
        strOut =
            "{\"file\": " + Json(strPath) + ", \"" + (bInline ? "inline" : "attachments") + "\": [";
        bool bFirst = true;
        for (const AttachRow& row : vRows) {
            strOut += bFirst ? "\n  " : ",\n  ";
            bFirst = false;
            strOut +=
                "{\"number\": " + Json(row.strNumber) + ", \"type\": " + Json(TypeName(row.nType)) +
                ", \"subtype\": " + Json(SubTypeName(row.nSubType)) +
                ", \"encoding\": " + Json(EncodingName(row.nEncoding)) +
                ", \"size\": " + (row.nSize == kSizeUnknown ? "null" : std::to_string(row.nSize)) +
                ", \"" + (bInline ? "cid" : "filename") + "\": " + Json(row.strName) + "}";
        }
        strOut += "\n]}\n";
    }
    WriteStdout(strOut.data(), strOut.size());
}

// "top", "1.2." or "1.2" as the format string numbers parts ("" and "1.2."); false when the
// text is no part number.
bool NormalizePart(const std::string& strPart, std::string& strDepth) {
    if (strPart == "top") {
        strDepth.clear();
        return true;
    }
    strDepth = strPart;
    if (!strDepth.empty() && strDepth.back() != '.') strDepth += '.';
    // Numbers, each closed by a point.
    bool bDigit = false;
    for (char c : strDepth) {
        if (c >= '0' && c <= '9') {
            bDigit = true;
        } else if (c == '.' && bDigit) {
            bDigit = false;
        } else {
            return false;
        }
    }
    return !strDepth.empty();
}

// The part of that number, as the stream of the facade takes it.
bool FindPart(const std::string& strFormat, const std::string& strDepth,
              CQLMimeAttachInfo& Attach) {
    CQLStrTokenizerParser records(strFormat.c_str(), '\x05');
    CQLMimeMsgInfo::CQLMimeMsgInfoItem item;
    unsigned long nLen = 0;
    while (const char* pRecord = records.GetNext(nLen)) {
        item.Set(pRecord);
        if (item.m_strDepth != strDepth) continue;
        Attach.m_nStartPos = static_cast<unsigned int>(item.m_nBSO);
        Attach.m_nEndPos = static_cast<unsigned int>(item.m_nBEO);
        Attach.m_nContentType = item.m_CT;
        Attach.m_nSubContentType = item.m_SubCT;
        Attach.m_nEncoding = item.m_Encoder;
        Attach.m_nLineCnt = item.m_nLineCnt;
        Attach.m_strAttachId = item.m_strDepth;
        return true;
    }
    return false;
}

} // namespace

int AttachmentsCommand(const std::vector<std::string>& vArgs) {
    ToolArgs args;
    const int nExit =
        ParseReading("attachments", vArgs, {"--inline", "--json"}, {}, "one FILE", 1, 1, args);
    if (nExit >= 0) return nExit;
    const std::string& strPath = args.vOperands[0];
    std::string strFormat, strError;
    if (!LoadFormat(strPath, args.Get("--format", ""), strFormat, strError)) return Fail(strError);

    const bool bInline = args.Has("--inline");
    CQLMimeMsgInfo info(strPath, strFormat);
    std::vector<AttachRow> vRows;
    CQLMimeAttachInfo attach;
    info.InitAttachCursor();
    while (bInline ? info.GetNextCID(attach, kDefaultCharset, kToCharset, kLevel)
                   : info.GetNextAttach(attach, kDefaultCharset, kToCharset, kLevel)) {
        vRows.push_back({PartName(attach.m_strAttachId), attach.m_nContentType,
                         attach.m_nSubContentType, attach.m_nEncoding,
                         info.GetAttachContentSize(attach, true), attach.m_strFileName});
    }
    PrintAttachRows(strPath, vRows, bInline, args.Has("--json"));
    return FinishStdout();
}

int ExtractCommand(const std::vector<std::string>& vArgs) {
    ToolArgs args;
    const int nExit = ParseReading("extract", vArgs, {}, {"-o"}, "FILE PART", 2, 2, args);
    if (nExit >= 0) return nExit;
    const bool bFile = args.Has("-o");
    if (bFile && args.Get("-o", "").empty()) return Usage("extract: -o needs a file name");
    const std::string& strPath = args.vOperands[0];
    const std::string& strPart = args.vOperands[1];
    std::string strDepth;
    if (!NormalizePart(strPart, strDepth)) return Fail("bad part number '" + strPart + "'");
    std::string strFormat, strError;
    if (!LoadFormat(strPath, args.Get("--format", ""), strFormat, strError)) return Fail(strError);
    CQLMimeAttachInfo attach;
    if (!FindPart(strFormat, strDepth, attach))
        return Fail(strPath + ": no part " + PartName(strDepth));

    CQLMimeMsgInfo info(strPath, strFormat);
    if (!info.OpenAttach(attach)) return Fail(strPath + ": " + info.GetLastError());
    CAtomicFile out(args.Get("-o", ""));
    if (bFile && !out.Open()) return Fail(out.GetLastError());
    std::string strBlock;
    while (info.GetAttachContentNext(strBlock, true)) {
        if (bFile ? !out.Write(strBlock.data(), strBlock.size())
                  : !WriteStdout(strBlock.data(), strBlock.size()))
            return Fail(bFile ? out.GetLastError() : "cannot write the output");
    }
    // The stream ends early only on a failure: a file shorter than its format string says.
    if (info.m_nAttachRemain > 0) return Fail(strPath + ": " + info.GetLastError());
    info.CloseAttach();
    if (bFile) return out.Commit() ? 0 : Fail(out.GetLastError());
    return FinishStdout();
}

// ---- index ----

namespace {

// Set by a signal that asks the index to stop.
std::atomic<int> g_nStopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "set from a signal handler");

void OnStopSignal(int nSignal) {
    g_nStopSignal = nSignal;
}

// Paths from the walk to the workers; bounded, so that a walk over millions of files does
// not run ahead of the work in memory.
class PathQueue {
public:
    explicit PathQueue(size_t nCapacity) : m_nCapacity(nCapacity) {}

    void Push(std::string strPath) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_NotFull.wait(lock, [this] { return m_Paths.size() < m_nCapacity; });
        m_Paths.push_back(std::move(strPath));
        m_NotEmpty.notify_one();
    }
    void Close() {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_bClosed = true;
        m_NotEmpty.notify_all();
    }
    // False when the queue is closed and empty.
    bool Pop(std::string& strPath) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_NotEmpty.wait(lock, [this] { return !m_Paths.empty() || m_bClosed; });
        if (m_Paths.empty()) return false;
        strPath = std::move(m_Paths.front());
        m_Paths.pop_front();
        // The walk is woken once half the queue is free, not for every path taken.
        if (m_Paths.size() <= m_nCapacity / 2) m_NotFull.notify_one();
        return true;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_NotEmpty;
    std::condition_variable m_NotFull;
    std::deque<std::string> m_Paths;
    const size_t m_nCapacity;
    bool m_bClosed = false;
};

class Indexer {
public:
    Indexer(bool bForce, bool bProgress)
        : m_bForce(bForce), m_bProgress(bProgress), m_Start(std::chrono::steady_clock::now()) {}

    // Walks a path given by the user into the queue.
    void Walk(const std::string& strPath, PathQueue& queue);
    // Takes paths from the queue until it is closed.
    void Work(PathQueue& queue);
    // Redraws the progress line until Stop.
    void ShowProgress();
    void Stop();
    // The one-line summary; the exit code.
    int Finish();

private:
    void IndexOne(const std::string& strPath);
    void Failed(const std::string& strWhy);
    std::string Counts();
    // A line on standard error, over the progress line if there is one.
    void Report(const std::string& strLine);

    const bool m_bForce;
    const bool m_bProgress;
    const std::chrono::steady_clock::time_point m_Start;
    std::atomic<unsigned long> m_nIndexed{0};
    std::atomic<unsigned long> m_nSkipped{0};
    std::atomic<unsigned long> m_nFailed{0};
    std::atomic<unsigned long long> m_nBytes{0};
    std::mutex m_OutMutex;
    std::condition_variable m_Stopped;
    bool m_bStopped = false;
};

void Indexer::Report(const std::string& strLine) {
    std::lock_guard<std::mutex> lock(m_OutMutex);
    std::fprintf(stderr, "%s%s\n", m_bProgress ? "\r\033[K" : "", strLine.c_str());
}

void Indexer::Failed(const std::string& strWhy) {
    ++m_nFailed;
    Report("qlmail: " + strWhy);
}

std::string Indexer::Counts() {
    const double dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
    const double dMB = static_cast<double>(m_nBytes.load()) / 1e6;
    char szRate[96];
    std::snprintf(szRate, sizeof(szRate), "; %.1f MB in %.2f s, %.1f MB/s", dMB, dSeconds,
                  dSeconds > 0 ? dMB / dSeconds : 0.0);
    return "indexed " + std::to_string(m_nIndexed.load()) + ", skipped " +
           std::to_string(m_nSkipped.load()) + ", failed " + std::to_string(m_nFailed.load()) +
           szRate;
}

void Indexer::Walk(const std::string& strPath, PathQueue& queue) {
    struct stat st;
    if (stat(strPath.c_str(), &st) != 0) return Failed(SystemError(strPath));
    if (S_ISREG(st.st_mode)) {
        const std::string strBase = strPath.substr(strPath.rfind('/') + 1);
        if (!EndsWith(strBase, kFmtSuffix) && !IsToolTemp(strBase)) queue.Push(strPath);
        return;
    }
    if (!S_ISDIR(st.st_mode)) return Failed(strPath + ": not a regular file or folder");

    // Depth first, without recursion. Hidden entries (the tool's temporaries among them),
    // format strings, links and special files are left out; links are not followed, so no
    // walk runs in a circle.
    std::vector<std::string> vDirs{EndsWith(strPath, "/") ? strPath : strPath + "/"};
    while (!vDirs.empty() && g_nStopSignal == 0) {
        const std::string strDir = std::move(vDirs.back());
        vDirs.pop_back();
        DIR* pDir = opendir(strDir.c_str());
        if (pDir == nullptr) {
            Failed(SystemError(strDir));
            continue;
        }
        while (const dirent* pEntry = readdir(pDir)) {
            if (g_nStopSignal != 0) break;
            const std::string strName = pEntry->d_name;
            if (strName[0] == '.' || EndsWith(strName, kFmtSuffix)) continue;
            unsigned char nType = pEntry->d_type;
            if (nType == DT_UNKNOWN) {
                struct stat stEntry;
                if (fstatat(dirfd(pDir), pEntry->d_name, &stEntry, AT_SYMLINK_NOFOLLOW) != 0)
                    continue;
                nType = S_ISDIR(stEntry.st_mode) ? DT_DIR : S_ISREG(stEntry.st_mode) ? DT_REG : 0;
            }
            if (nType == DT_DIR)
                vDirs.push_back(strDir + strName + "/");
            else if (nType == DT_REG)
                queue.Push(strDir + strName);
        }
        closedir(pDir);
    }
}

void Indexer::Work(PathQueue& queue) {
    std::string strPath;
    while (queue.Pop(strPath)) {
        // After a stop the queue is still drained, so that the walk is never left waiting.
        if (g_nStopSignal != 0) continue;
        try {
            IndexOne(strPath);
        } catch (CQLExceptionParser& e) {
            Failed(strPath + ": " + e.GetLastError());
        } catch (std::exception& e) {
            Failed(strPath + ": " + e.what());
        }
    }
}

void Indexer::IndexOne(const std::string& strPath) {
    struct stat stMsg;
    std::string strError;
    if (!StatMessage(strPath, stMsg, strError)) return Failed(strError);
    const std::string strFmtPath = strPath + kFmtSuffix;
    struct stat stFmt;
    if (!m_bForce && stat(strFmtPath.c_str(), &stFmt) == 0 && FormatIsCurrent(stMsg, stFmt)) {
        ++m_nSkipped;
        return;
    }
    // A fresh message object each time: one that parsed another file before would search
    // that file's leftover bytes, and a format string must depend on its message alone.
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) return Failed(strPath + ": " + msg.GetLastError());
    const std::string strFormat = msg.GetFormat();
    // A message rewritten while it was parsed would be stored with offsets of neither form.
    struct stat stAfter;
    if (stat(strPath.c_str(), &stAfter) != 0 || stAfter.st_ino != stMsg.st_ino ||
        stAfter.st_size != stMsg.st_size || stAfter.st_mtim.tv_sec != stMsg.st_mtim.tv_sec ||
        stAfter.st_mtim.tv_nsec != stMsg.st_mtim.tv_nsec)
        return Failed(strPath + ": changed while it was indexed");
    if (!WriteFileAtomic(strFmtPath, strFormat, strError)) return Failed(strError);
    ++m_nIndexed;
    m_nBytes += static_cast<unsigned long long>(stMsg.st_size);
}

void Indexer::ShowProgress() {
    std::unique_lock<std::mutex> lock(m_OutMutex);
    while (!m_Stopped.wait_for(lock, std::chrono::milliseconds(250), [this] { return m_bStopped; }))
        std::fprintf(stderr, "\r\033[K%s", Counts().c_str());
    std::fputs("\r\033[K", stderr);
}

void Indexer::Stop() {
    std::lock_guard<std::mutex> lock(m_OutMutex);
    m_bStopped = true;
    m_Stopped.notify_all();
}

int Indexer::Finish() {
    std::printf("%s\n", Counts().c_str());
    if (FinishStdout() != 0) return 1;
    if (g_nStopSignal != 0) return Fail("interrupted");
    return m_nFailed.load() == 0 ? 0 : 1;
}

unsigned int CoreCount() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 0)
        return static_cast<unsigned int>(CPU_COUNT(&set));
    return std::max(1u, std::thread::hardware_concurrency());
}

} // namespace

int IndexCommand(const std::vector<std::string>& vArgs) {
    ToolArgs args;
    std::string strError;
    if (!ParseArgs(vArgs, {"--force"}, {"--jobs"}, args, strError))
        return Usage("index: " + strError);
    if (args.vOperands.empty()) return Usage("index takes at least one PATH");
    unsigned int nJobs = CoreCount();
    if (args.Has("--jobs")) {
        const std::string strJobs = args.Get("--jobs", "");
        char* pEnd = nullptr;
        const long nValue = std::strtol(strJobs.c_str(), &pEnd, 10);
        if (strJobs.empty() || *pEnd != '\0' || nValue < 1 || nValue > 256)
            return Usage("index: --jobs takes a number from 1 to 256");
        nJobs = static_cast<unsigned int>(nValue);
    }

    // A stop asked for by a signal lets every worker finish its message, so that no
    // temporary is left behind; a second signal ends the process at once.
    // A signal that the caller ignores (a background job's interrupt) stays ignored.
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (int nSignal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        if (sigaction(nSignal, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
            sigaction(nSignal, &action, nullptr);
    }

    Indexer indexer(args.Has("--force"), isatty(STDERR_FILENO) == 1);
    PathQueue queue(4 * nJobs + 64);
    std::vector<std::thread> vWorkers;
    for (unsigned int i = 0; i < nJobs; ++i)
        vWorkers.emplace_back([&indexer, &queue] { indexer.Work(queue); });
    std::thread progress;
    if (isatty(STDERR_FILENO) == 1) progress = std::thread([&indexer] { indexer.ShowProgress(); });
    for (const std::string& strPath : args.vOperands) {
        if (g_nStopSignal != 0) break;
        indexer.Walk(strPath, queue);
    }
    queue.Close();
    for (std::thread& worker : vWorkers) worker.join();
    indexer.Stop();
    if (progress.joinable()) progress.join();
    return indexer.Finish();
}
