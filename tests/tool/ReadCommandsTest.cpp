// The reading commands and index, run as a user runs them, on messages in temp dirs.
#include "reader/ReaderTestUtil.h"

#include "codec/QLCodecParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace {

struct Ran {
    int nExit;
    std::string strOut;
    std::string strErr;
};

// A shell command, its standard input empty, its output and error kept apart.
Ran Shell(const std::string& strCmd) {
    CTempDir errDir;
    const std::string strErrPath = errDir.Path("err");
    Ran r{-1, "", ""};
    FILE* p = popen(("{ " + strCmd + "; } </dev/null 2>" + strErrPath).c_str(), "r");
    if (p == nullptr) return r;
    std::array<char, 65536> buf;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.strOut.append(buf.data(), n);
    const int nStatus = pclose(p);
    r.nExit = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    r.strErr = CTempDir::ReadAll(strErrPath);
    return r;
}

std::string Quote(const std::string& strArg) {
    std::string strOut = "'";
    for (char c : strArg) strOut += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return strOut + "'";
}

// The tool with these arguments, quoted for the shell.
std::string Command(const std::vector<std::string>& vArgs) {
    const char* pszTool = std::getenv("QLMAIL_TOOL");
    std::string strCmd = Quote(pszTool ? pszTool : QLMAIL_TOOL_PATH);
    for (const std::string& strArg : vArgs) strCmd += " " + Quote(strArg);
    return strCmd;
}

// strShell goes before the tool: limits, traps, redirections.
Ran Tool(const std::vector<std::string>& vArgs, const std::string& strShell = "") {
    return Shell(strShell + Command(vArgs));
}

// A failure or bad usage: the exit code and one line on standard error that says strWhy.
void ExpectFailure(const Ran& r, int nExit, const std::string& strWhy) {
    EXPECT_EQ(r.nExit, nExit) << strWhy << ": " << r.strErr;
    EXPECT_EQ(std::count(r.strErr.begin(), r.strErr.end(), '\n'), 1) << strWhy << ": " << r.strErr;
    EXPECT_EQ(r.strErr.rfind("qlmail: ", 0), 0u) << r.strErr;
    EXPECT_NE(r.strErr.find(strWhy), std::string::npos) << strWhy << ": " << r.strErr;
}

// Bytes of every value, so that a decoder that drops or mangles any of them shows.
std::string Binary(size_t nLen) {
    std::string s(nLen, '\0');
    for (size_t i = 0; i < nLen; ++i) s[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return s;
}

// Base64 in lines of 76 characters, LF-ended like the rest of the message text.
std::string Base64Lines(const std::string& strData) {
    std::string strOut;
    for (char c : CQLCodecParser().EncodeB64(strData, true, true, 76))
        if (c != '\r') strOut += c;
    return strOut;
}

// A message with LF line ends: plain (EUC-KR, quoted-printable) and html in an alternative,
// a named binary attachment of nBinary bytes, an inline picture and a named text part.
std::string Message(size_t nBinary) {
    return "From: =?EUC-KR?B?sei/tcjx?= <younghee@example.kr>\n"
           "Subject: =?UTF-8?B?Y2Fmw6kg4pyT?=\n"
           "Content-Type: multipart/mixed; boundary=\"XX\"\n\n"
           "--XX\nContent-Type: multipart/alternative; boundary=\"YY\"\n\n"
           "--YY\nContent-Type: text/plain; charset=euc-kr\n"
           "Content-Transfer-Encoding: quoted-printable\n\n"
           "=BE=C8=B3=E7 caf=\ne\n"
           "--YY\nContent-Type: text/html; charset=utf-8\n\n<p>caf\xC3\xA9</p>\n"
           "--YY--\n"
           "--XX\nContent-Type: application/octet-stream; name=\"a/b:c.bin\"\n"
           "Content-Transfer-Encoding: base64\n"
           "Content-Disposition: attachment; filename=\"a/b:c.bin\"\n\n" +
           Base64Lines(Binary(nBinary)) +
           "\n--XX\nContent-Type: image/png; name=\"dot.png\"\nContent-ID: <dot@x>\n"
           "Content-Transfer-Encoding: base64\n\niVBORw0KGgo=\n"
           "--XX\nContent-Type: text/plain; name=\"note.txt\"\n\na note\n"
           "--XX--\n";
}

std::string FormatOf(const std::string& strPath) {
    CQLMimeMsg msg;
    msg.Open(strPath, true);
    return msg.GetFormat();
}

void WriteFile(const std::string& strPath, const std::string& strBytes) {
    std::ofstream(strPath, std::ios::binary) << strBytes;
}

// Moves the file's modification time by nSeconds.
void Age(const std::string& strPath, int nSeconds) {
    fs::last_write_time(strPath, fs::last_write_time(strPath) + std::chrono::seconds(nSeconds));
}

std::vector<std::string> Listing(const std::string& strDir) {
    std::vector<std::string> v;
    for (const auto& e : fs::recursive_directory_iterator(strDir))
        v.push_back(fs::relative(e.path(), strDir).string());
    std::sort(v.begin(), v.end());
    return v;
}

std::vector<std::string> SortedLines(const std::string& strText) {
    std::vector<std::string> v;
    std::istringstream in(strText);
    for (std::string strLine; std::getline(in, strLine);) v.push_back(strLine);
    std::sort(v.begin(), v.end());
    return v;
}

// The summary's counts, without the figures of time and speed.
std::string Counts(const Ran& r) {
    return r.strOut.substr(0, r.strOut.find(';'));
}

} // namespace

TEST(ToolRead, HeaderTextAndAttachmentsInBothLineEnds) {
    for (const auto& form : BothForms(Message(3001))) {
        SCOPED_TRACE(form.first);
        CTempDir dir;
        const std::string strPath = dir.Path("m.eml");
        WriteFile(strPath, form.second);
        CQLMimeMsgInfo info(strPath, FormatOf(strPath));
        std::string strHeader;
        ASSERT_TRUE(info.GetHeader(strHeader, ""));

        EXPECT_EQ(Tool({"header", strPath}).strOut, strHeader);
        EXPECT_EQ(Tool({"header", strPath, "subject"}).strOut, "=?UTF-8?B?Y2Fmw6kg4pyT?=\n");
        EXPECT_EQ(Tool({"header", strPath, "Subject", "--decode"}).strOut,
                  "caf\xC3\xA9 \xE2\x9C\x93\n");
        EXPECT_EQ(Tool({"header", "--decode", strPath, "From", "--to", "EUC-KR"}).strOut,
                  "\xB1\xE8\xBF\xB5\xC8\xF1 <younghee@example.kr>\n");

        EXPECT_EQ(Tool({"text", strPath}).strOut.substr(0, 11), "\xEC\x95\x88\xEB\x85\x95 cafe");
        EXPECT_EQ(Tool({"text", strPath, "--to", "EUC-KR"}).strOut.substr(0, 4),
                  "\xBE\xC8\xB3\xE7");
        EXPECT_EQ(Tool({"text", strPath, "--raw"}).strOut.substr(0, 12), "=BE=C8=B3=E7");
        EXPECT_EQ(Tool({"text", strPath, "--force-charset", "ISO-8859-1"}).strOut.substr(0, 8),
                  "\xC2\xBE\xC3\x88\xC2\xB3\xC3\xA7");
        // A body ends before the LF that precedes a delimiter, behind a CR LF.
        EXPECT_EQ(Tool({"text", "--html", strPath}).strOut,
                  std::string("<p>caf\xC3\xA9</p>") + (form.first == "LF" ? "" : "\r\n"));

        EXPECT_EQ(Tool({"attachments", strPath}).strOut,
                  "# part\ttype\tencoding\tsize\tfilename\n"
                  "2.\tapplication/octet-stream\tbase64\t3001\ta_b_c.bin\n"
                  "4.\ttext/plain\t7bit\t8\tnote.txt\n");
        EXPECT_EQ(Tool({"attachments", "--inline", "--json", strPath}).strOut,
                  "{\"file\": \"" + strPath +
                      "\", \"inline\": [\n  {\"number\": \"3.\", \"type\": \"image\", "
                      "\"subtype\": \"unknown\", \"encoding\": \"base64\", \"size\": 8, "
                      "\"cid\": \"<dot@x>\"}\n]}\n");
        // Nothing is written beside a message read without its format string.
        EXPECT_EQ(Listing(dir.Dir()), std::vector<std::string>{"m.eml"});
    }
}

TEST(ToolRead, FormatStringBesideGivenOrParsed) {
    CTempDir dir;
    const std::string strPath = dir.Path("m.eml");
    WriteFile(strPath, ToCRLF(Message(10)));
    const std::string strHeader = Tool({"header", strPath}).strOut;
    ASSERT_GT(strHeader.size(), 100u);
    // A string whose header block ends early tells which string was read.
    WriteFile(strPath + ".fmt", SetField(FormatOf(strPath), 0, 1, "10"));
    EXPECT_EQ(Tool({"header", strPath}).strOut, strHeader.substr(0, 10));
    // Older than the message, it belongs to an earlier form of it and is passed over.
    Age(strPath + ".fmt", -60);
    EXPECT_EQ(Tool({"header", strPath}).strOut, strHeader);
    EXPECT_EQ(Tool({"header", strPath, "--format", strPath + ".fmt"}).strOut,
              strHeader.substr(0, 10));

    WriteFile(dir.Path("no-record"), "0,10,");
    ExpectFailure(Tool({"text", strPath, "--format", dir.Path("none")}), 1, "none: No such file");
    ExpectFailure(Tool({"text", strPath, "--format", dir.Dir()}), 1, ": Is a directory");
    ExpectFailure(Tool({"text", strPath, "--format", dir.Path("no-record")}), 1,
                  "no-record: not a format string");
    WriteFile(strPath + ".fmt", "not a format string");
    ExpectFailure(Tool({"attachments", strPath}), 1, "m.eml.fmt: not a format string");
    ExpectFailure(Tool({"header", dir.Path("x.eml")}), 1, "x.eml: No such file or directory");
    ExpectFailure(Tool({"extract", dir.Dir(), "1"}), 1, ": not a regular file");
}

TEST(ToolRead, ExtractGivesTheDecodedPart) {
    const mode_t nUmask = umask(0);
    umask(nUmask);
    // Padded with "==", with "=", none; the last runs over many blocks of the stream.
    for (size_t nBinary : {30001u, 30002u, 30000u, 200000u}) {
        for (const auto& form : BothForms(Message(nBinary))) {
            SCOPED_TRACE(form.first + " " + std::to_string(nBinary));
            CTempDir dir;
            const std::string strPath = dir.Path("m.eml");
            WriteFile(strPath, form.second);
            // Read through FILE.fmt, or through a format string made in memory.
            if (nBinary % 2 == 0) {
                EXPECT_EQ(Tool({"index", strPath}).nExit, 0);
            }
            const std::string strBinary = Binary(nBinary);
            EXPECT_EQ(Tool({"extract", strPath, "2"}).strOut, strBinary);
            EXPECT_NE(Tool({"attachments", strPath})
                          .strOut.find("\t" + std::to_string(nBinary) + "\ta_b_c.bin\n"),
                      std::string::npos);
            if (form.first == "CRLF") {
                CQLMimeMsg msg;
                ASSERT_TRUE(msg.Open(strPath, true));
                std::string strBody;
                ASSERT_TRUE(msg[4]->GetBody(strBody, true));
                EXPECT_EQ(strBody, strBinary);
            }
            // Any part by number, written through a temporary over an older file.
            const std::string strOut = dir.Path("out");
            WriteFile(strOut, "older");
            for (const auto& part : std::vector<std::pair<std::string, std::string>>{
                     {"2.", strBinary},
                     {"1.1", "\xBE\xC8\xB3\xE7 cafe\r\n"},
                     {"3", std::string("\x89PNG\r\n\x1A\n", 8)},
                     {"4.", "a note\r\n"}}) {
                const Ran r = Tool({"extract", strPath, part.first, "-o", strOut});
                EXPECT_EQ(r.nExit, 0) << r.strErr;
                EXPECT_EQ(r.strOut + r.strErr, "");
                EXPECT_EQ(CTempDir::ReadAll(strOut), part.second) << part.first;
            }
            EXPECT_EQ(fs::status(strOut).permissions(), static_cast<fs::perms>(0666 & ~nUmask));
            // The body of a multipart begins with the blank line behind its header.
            EXPECT_EQ(Tool({"extract", strPath, "top"}).strOut.substr(0, 8), "\r\n--XX\r\n");
        }
    }
}

TEST(ToolRead, FailedExtractLeavesNoFile) {
    CTempDir dir;
    const std::string strPath = dir.Path("m.eml");
    const std::string strMessage = ToCRLF(Message(30000));
    WriteFile(strPath, strMessage);
    const std::string strFormat = dir.Path("m.format");
    WriteFile(strFormat, FormatOf(strPath));
    // A copy shortened after its format string was written.
    WriteFile(dir.Path("short.eml"), strMessage.substr(0, strMessage.size() / 2));
    fs::create_directory(dir.Path("folder"));
    const std::string strOut = dir.Path("out");
    const std::vector<std::string> vBefore = Listing(dir.Dir());

    struct Case {
        std::string strShell; // before the tool
        std::string strWhy;
        std::vector<std::string> vArgs;
    };
    for (const Case& c : std::vector<Case>{
             {"", "m.eml: no part 9.", {strPath, "9", "-o", strOut}},
             {"", "bad part number '.1'", {strPath, ".1", "-o", strOut}},
             {"", "bad part number '1..2'", {strPath, "1..2", "-o", strOut}},
             {"",
              "attach is empty",
              {dir.Path("short.eml"), "2", "--format", strFormat, "-o", strOut}},
             {"", "folder: Is a directory", {strPath, "2", "-o", dir.Path("folder")}},
             {"", "none/out: No such file", {strPath, "2", "-o", dir.Path("none/out")}},
             {"trap '' XFSZ; ulimit -f 8; ", "out: File too large", {strPath, "2", "-o", strOut}},
             {"exec >/dev/full; ", "cannot write the output", {strPath, "2"}}}) {
        std::vector<std::string> vArgs{"extract"};
        vArgs.insert(vArgs.end(), c.vArgs.begin(), c.vArgs.end());
        ExpectFailure(Tool(vArgs, c.strShell), 1, c.strWhy);
        EXPECT_EQ(Listing(dir.Dir()), vBefore) << c.strWhy;
    }
}

TEST(ToolRead, BadUsageIsExitTwo) {
    const std::string f = "/nonexistent.eml";
    for (const std::vector<std::string>& vArgs :
         std::vector<std::vector<std::string>>{{"header"},
                                               {"header", f, "Subject", "To"},
                                               {"header", f, "--decode"},
                                               {"header", f, "Subject", "--to", "UTF-8"},
                                               {"text", f, "--bogus"},
                                               {"text", f, "--to"},
                                               {"text", f, "--to", "NO-SUCH-CHARSET"},
                                               {"text", f, "--to="},
                                               {"text", f, "--default-charset", "NO-SUCH-CHARSET"},
                                               {"attachments", f, f},
                                               {"extract", f},
                                               {"extract", f, "2", "-o", ""},
                                               {"index"},
                                               {"index", "--jobs", "0", f},
                                               {"index", "--jobs", "2x", f},
                                               {"index", "--jobs", "257", f}})
        ExpectFailure(Tool(vArgs), 2, "(try --help)");
    // Behind "--" an option's name is a file name.
    ExpectFailure(Tool({"text", "--", "--html"}), 1, "--html: No such file");
    const std::string strHelp = Tool({"--help"}).strOut;
    for (const char* pszCmd : {"header", "text", "attachments", "extract", "index"})
        EXPECT_NE(strHelp.find(std::string("\n  ") + pszCmd + " "), std::string::npos) << pszCmd;
}

TEST(ToolIndex, WritesCurrentFormatStringsOnAnyNumberOfThreads) {
    for (const char* pszJobs : {"1", "4"}) {
        SCOPED_TRACE(pszJobs);
        CTempDir dir;
        std::vector<std::string> vMessages;
        fs::create_directories(dir.Path("a/b"));
        for (int i = 0; i < 24; ++i) {
            vMessages.push_back(dir.Path(i % 3 ? "a/" : "a/b/") + std::to_string(i) + ".eml");
            WriteFile(vMessages.back(), i % 2 ? Message(i * 997) : ToCRLF(Message(i * 997)));
        }
        // What a walk leaves alone: hidden entries, temporaries, links, special files.
        fs::create_directories(dir.Path(".hidden"));
        WriteFile(dir.Path(".hidden/h.eml"), Message(1));
        WriteFile(dir.Path("a/.x.eml.fmt.qlmail-1-1"), "a temporary of an earlier run");
        WriteFile(dir.Path("orphan.fmt"), "a format string without its message");
        fs::create_symlink(vMessages[0], dir.Path("a/link.eml"));
        fs::create_directory_symlink(dir.Path("a"), dir.Path("a/b/loop"));
        ASSERT_EQ(mkfifo(dir.Path("a/fifo").c_str(), 0600), 0);
        std::vector<std::string> vExpected = Listing(dir.Dir());
        for (const std::string& strPath : vMessages)
            vExpected.push_back(fs::relative(strPath + ".fmt", dir.Dir()).string());
        std::sort(vExpected.begin(), vExpected.end());

        const Ran r = Tool({"index", "--jobs", pszJobs, dir.Dir()});
        EXPECT_EQ(r.nExit, 0);
        // Not on a terminal: no progress, and nothing failed.
        EXPECT_EQ(r.strErr, "");
        EXPECT_EQ(Counts(r), "indexed 24, skipped 0, failed 0");
        EXPECT_NE(r.strOut.find(" MB/s\n"), std::string::npos) << r.strOut;
        EXPECT_EQ(Listing(dir.Dir()), vExpected);
        for (const std::string& strPath : vMessages)
            EXPECT_EQ(CTempDir::ReadAll(strPath + ".fmt"), FormatOf(strPath)) << strPath;

        EXPECT_EQ(Counts(Tool({"index", dir.Dir(), "--jobs", pszJobs})),
                  "indexed 0, skipped 24, failed 0");
        // A message rewritten after it was indexed is indexed again, and only that one.
        WriteFile(vMessages[5], Message(5));
        Age(vMessages[5], 60);
        EXPECT_EQ(Counts(Tool({"index", dir.Dir()})), "indexed 1, skipped 23, failed 0");
        EXPECT_EQ(CTempDir::ReadAll(vMessages[5] + ".fmt"), FormatOf(vMessages[5]));
        // An empty one, as a crash may leave before its bytes reached the disk, is no index.
        // Named format strings and temporaries are no messages; a named hidden message is.
        WriteFile(vMessages[6] + ".fmt", "");
        EXPECT_EQ(Counts(Tool({"index", vMessages[6], vMessages[7], dir.Path("orphan.fmt"),
                               dir.Path("a/.x.eml.fmt.qlmail-1-1"), dir.Path(".hidden/h.eml")})),
                  "indexed 2, skipped 1, failed 0");
        fs::remove(dir.Path(".hidden/h.eml.fmt"));
        EXPECT_EQ(Counts(Tool({"index", "--force", dir.Dir()})), "indexed 24, skipped 0, failed 0");
        EXPECT_EQ(Listing(dir.Dir()), vExpected);
        // On a terminal, the progress line is drawn on standard error and cleared.
        if (std::system("script --version >/dev/null 2>&1") == 0) {
            const Ran tty =
                Shell("script -qec \"" + Command({"index", dir.Dir()}) + "\" /dev/null");
            EXPECT_NE(tty.strOut.find("\r\033[K"), std::string::npos) << tty.strOut;
        }
    }
}

TEST(ToolIndex, EachMessageIsParsedOnItsOwn) {
    // The embedded message has no closing delimiter: its line count comes from a search that
    // fails, and must not find one in the bytes of the message parsed before it.
    CTempDir dir;
    std::string strBefore = "Subject: a\n\n";
    for (int i = 0; i < 1000; ++i) strBefore += "x\n--1\n";
    WriteFile(dir.Path("a.eml"), strBefore);
    WriteFile(dir.Path("b.eml"), "Content-Type: multipart/mixed; boundary=\"1\"\n\n--1\n"
                                 "Content-Type: message/rfc822\n\nSubject: inner\n\nbody\n");
    EXPECT_EQ(Tool({"index", "--jobs", "1", dir.Path("a.eml"), dir.Path("b.eml")}).nExit, 0);
    EXPECT_EQ(CTempDir::ReadAll(dir.Path("b.eml.fmt")), FormatOf(dir.Path("b.eml")));
}

TEST(ToolIndex, FailuresAreNamedAndTheRestIsIndexed) {
    CTempDir dir;
    WriteFile(dir.Path("good.eml"), Message(10));
    std::string strMany = "Content-Type: multipart/mixed; boundary=b\n\n";
    for (int i = 0; i < 2001; ++i) strMany += "--b\n\nx\n";
    WriteFile(dir.Path("many.eml"), strMany + "--b--\n");
    WriteFile(dir.Path("blocked.eml"), Message(10));
    fs::create_directory(dir.Path("blocked.eml.fmt"));
    const Ran r = Tool({"index", dir.Dir(), dir.Path("missing.eml")});
    EXPECT_EQ(r.nExit, 1);
    EXPECT_EQ(Counts(r), "indexed 1, skipped 0, failed 3");
    EXPECT_EQ(SortedLines(r.strErr),
              (std::vector<std::string>{
                  "qlmail: " + dir.Path("blocked.eml.fmt") + ": Is a directory",
                  "qlmail: " + dir.Path("many.eml") + ": In Open(), stack overflow.",
                  "qlmail: " + dir.Path("missing.eml") + ": No such file or directory"}));
    EXPECT_EQ(Listing(dir.Dir()),
              (std::vector<std::string>{"blocked.eml", "blocked.eml.fmt", "good.eml",
                                        "good.eml.fmt", "many.eml"}));
}

TEST(ToolIndex, AnInterruptedRunLeavesNoHalfFile) {
    CTempDir dir;
    fs::create_directory(dir.Path("m"));
    for (int i = 0; i < 400; ++i)
        WriteFile(dir.Path("m/" + std::to_string(i)), ToCRLF(Message(20000 + i)));
    // Stopped as soon as it has written its first format string, and a little later; on a
    // fast machine perhaps not at all.
    for (const char* pszDelay : {"0", "0.1"}) {
        for (const auto& e : fs::directory_iterator(dir.Path("m")))
            if (e.path().extension() == ".fmt") fs::remove(e.path());
        const Ran r = Shell(Command({"index", "--jobs", "2", dir.Path("m")}) +
                            " & pid=$!; while kill -0 $pid 2>/dev/null && ! ls '" + dir.Path("m") +
                            "' | grep -q fmt; do sleep 0.01; done; sleep " + pszDelay +
                            "; kill -TERM $pid 2>/dev/null; wait $pid; echo $?");
        const std::string strExit = r.strOut.substr(r.strOut.rfind('\n', r.strOut.size() - 2) + 1);
        EXPECT_TRUE(strExit == "1\n" || strExit == "0\n") << r.strOut;
        for (const auto& e : fs::directory_iterator(dir.Path("m"))) {
            const fs::path& path = e.path();
            EXPECT_EQ(path.filename().string().find(".qlmail-"), std::string::npos) << path;
            if (path.extension() == ".fmt") {
                EXPECT_EQ(CTempDir::ReadAll(path), FormatOf(fs::path(path).replace_extension()));
            }
        }
    }
}

TEST(ToolIndex, PublicCorpusIndexedAsTheLibraryParsesIt) {
    const fs::path corpus(QLMAIL_CORPUS_DIR);
    if (!fs::is_directory(corpus))
        GTEST_SKIP() << "no corpus at " << corpus << "; the real-mail run needs it";
    // A copy: the shared corpus stays as it is.
    CTempDir dir;
    fs::copy(corpus, dir.Path("c"), fs::copy_options::recursive);
    const Ran r = Tool({"index", "--jobs", "2", dir.Path("c")});
    size_t nMessages = 0, nFailed = 0;
    for (const auto& e : fs::recursive_directory_iterator(dir.Path("c"))) {
        const std::string strPath = e.path().string();
        if (!e.is_regular_file() || e.path().extension() == ".fmt") continue;
        ++nMessages;
        CQLMimeMsg msg;
        if (msg.Open(strPath, true)) {
            EXPECT_EQ(CTempDir::ReadAll(strPath + ".fmt"), msg.GetFormat()) << strPath;
        } else {
            ++nFailed;
            EXPECT_NE(r.strErr.find(strPath + ": " + msg.GetLastError()), std::string::npos);
        }
    }
    EXPECT_EQ(r.nExit, nFailed ? 1 : 0) << r.strErr;
    EXPECT_EQ(Counts(r), "indexed " + std::to_string(nMessages - nFailed) + ", skipped 0, failed " +
                             std::to_string(nFailed));
}
