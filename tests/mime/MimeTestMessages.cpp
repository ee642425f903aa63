#include "mime/MimeTestUtil.h"

namespace {

const char* const kLFMessages[][2] = {
    {"simple", "From: a\nSubject: hello\n\nbody line 1\nbody line 2\n"},
    {"no-content-type-no-final-lf", "From: a\n\nbody"},
    {"header-only", "Subject: x\nFrom: y"},
    {"blank-first", "\nbody after a blank first line\n"},
    {"two-parts",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\npreamble\n--b\nContent-Type: "
     "text/plain\n\none\n--b\nContent-Type: text/html\n\n<p>two</p>\n--b--\nepilogue\n"},
    {"nested-3",
     "Content-Type: multipart/mixed; boundary=\"o\"\n\n--o\nContent-Type: multipart/alternative; "
     "boundary=\"m\"\n\n--m\nContent-Type: text/plain\n\nplain\n--m\nContent-Type: "
     "multipart/related; boundary=\"i\"\n\n--i\nContent-Type: text/html\n\n<img>\n--i\n"
     "Content-Type: image/gif\nContent-ID: <g1>\nContent-Transfer-Encoding: base64\n\n"
     "R0lGODlh\n--i--\n--m--\n--o\nContent-Type: application/pdf; name=\"a.pdf\"\n"
     "Content-Disposition: attachment; filename=\"a.pdf\"\nContent-Transfer-Encoding: "
     "base64\n\nJVBERi0=\n--o--\n"},
    {"rfc822-part",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\nContent-Type: text/plain\n\nsee "
     "attached\n--b\nContent-Type: message/rfc822\n\nFrom: x\nSubject: inner\n\ninner body\n"
     "line 2\n--b--\n"},
    {"missing-first-delimiter",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\nno delimiter at all\n"},
    {"missing-closing-delimiter",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\nContent-Type: text/plain\n\none\n"
     "--b\nContent-Type: text/plain\n\ntwo runs to the end\n"},
    {"closing-with-trailing-blanks",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\none\n--b--   "},
    {"boundary-prefix",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\nthe line below is no "
     "delimiter\n--bx\n--b --\n--b\n\ntwo\n--b--\n"},
    {"header-swallows-delimiter",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\nContent-Type: text/plain\n--b\n"
     "X-Next: 1\n\nbody\n--b--\n"},
    {"part-header-to-end",
     "Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\n\none\n--b\nX-Last: field"},
    {"multipart-without-boundary", "Content-Type: multipart/mixed\n\n--b\n\nnot a part\n--b--\n"},
    {"nested-without-boundary",
     "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: multipart/alternative\n\n"
     "x\n--b--\n"},
    {"damaged-headers",
     "Subject: a\nbroken line\nTo: b\n X-Folded: 2\nContent-Type: TEXT/HTML; charset=\"utf-8\"\n"
     "Content-Transfer-Encoding: quoted-printable\n\n<p>caf=C3=A9</p>\n"},
};

} // namespace

std::vector<NamedMessage> TestMessages() {
    std::vector<NamedMessage> v;
    for (const auto& m : kLFMessages) {
        v.push_back({std::string(m[0]) + "/lf", m[1]});
        v.push_back({std::string(m[0]) + "/crlf", ToCRLF(m[1])});
    }
    // Delimiters and header lines across the 4096- and 8192-byte block edges of a file.
    std::vector<size_t> vPads;
    for (size_t n = 4020; n <= 4100; n += 7) vPads.push_back(n);
    for (size_t n = 8130; n <= 8200; n += 7) vPads.push_back(n);
    vPads.push_back(65500); // past the file source's read-ahead window
    for (size_t nPad : vPads) {
        std::string strBody(nPad, 'x');
        for (size_t i = 60; i < strBody.size(); i += 61) strBody[i] = '\n';
        std::string strMsg = "Content-Type: multipart/mixed; boundary=\"edge\"\n\n--edge\n"
                             "Content-Type: text/plain\n\n" +
                             strBody + "\n--edge\nX-Long: " + std::string(nPad, 'h') +
                             "\nContent-Type: text/plain\n\nsecond\n--edge--\n";
        v.push_back({"edge-" + std::to_string(nPad) + "/lf", strMsg});
        v.push_back({"edge-" + std::to_string(nPad) + "/crlf", ToCRLF(strMsg)});
    }
    return v;
}
