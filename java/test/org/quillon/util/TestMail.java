package org.quillon.util;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Base64;
import java.util.zip.CRC32;

/** Messages written to real files for the tests. */
final class TestMail {
    static final Charset EUC_KR = Charset.forName("EUC-KR");
    static final String KOREAN = "한글 본문입니다";
    /** Every length of UTF-8 and the edges of the planes that modified UTF-8 treats apart. */
    static final String SUBJECT = "안녕하세요 😀 नमस्ते \uD7FB \uDBFF\uDFFD 인사";
    /** Decoded size 30001: the base64 of the attachment ends in "==". */
    static final byte[] DATA = pattern(30001);
    static final byte[] LOGO = pattern(300);

    private TestMail() {}

    static byte[] pattern(int len) {
        byte[] b = new byte[len];
        for (int i = 0; i < len; i++) b[i] = (byte) (i * 7 + i / 251);
        return b;
    }

    static String b64(byte[] b) {
        return Base64.getMimeEncoder().encodeToString(b);
    }

    static String crlf(String... lines) {
        return String.join("\r\n", lines) + "\r\n";
    }

    /**
     * A mixed message: an alternative of an EUC-KR plain part and a UTF-8 html part, an inline
     * image with a Content-ID, and a base64 attachment.
     */
    static String mixed() {
        String subject = "=?UTF-8?B?" + Base64.getEncoder().encodeToString(
                SUBJECT.getBytes(StandardCharsets.UTF_8)) + "?=";
        return crlf("From: sender@example.com", "To: rcpt@example.com", "Subject: " + subject,
                "MIME-Version: 1.0", "Content-Type: multipart/mixed; boundary=\"mix\"", "",
                "--mix", "Content-Type: multipart/alternative; boundary=\"alt\"", "",
                "--alt", "Content-Type: text/plain; charset=\"euc-kr\"",
                "Content-Transfer-Encoding: base64", "", b64(KOREAN.getBytes(EUC_KR)),
                "--alt", "Content-Type: text/html; charset=\"utf-8\"",
                "Content-Transfer-Encoding: quoted-printable", "",
                "<p>=ED=95=9C=EA=B8=80</p>", "--alt--", "",
                "--mix", "Content-Type: image/png; name=\"logo.png\"", "Content-ID: <logo@x>",
                "Content-Transfer-Encoding: base64", "", b64(LOGO),
                "--mix", "Content-Type: application/octet-stream; name=\"data.bin\"",
                "Content-Disposition: attachment; filename=\"data.bin\"",
                "Content-Transfer-Encoding: base64", "", b64(DATA), "--mix--");
    }

    static Path write(Path dir, String name, String message) throws IOException {
        return write(dir, name, message.getBytes(StandardCharsets.ISO_8859_1));
    }

    static Path write(Path dir, String name, byte[] message) throws IOException {
        return Files.write(dir.resolve(name), message);
    }

    /** Bytes of a Java string as the natives send them: U+DC80..U+DCFF carry raw bytes. */
    static byte[] rawBytes(String s) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        int start = 0;
        for (int i = 0; i <= s.length(); i++) {
            char c = i < s.length() ? s.charAt(i) : 0;
            if (i == s.length() || (c >= 0xDC80 && c <= 0xDCFF)) {
                out.writeBytes(s.substring(start, i).getBytes(StandardCharsets.UTF_8));
                if (i < s.length()) out.write(c - 0xDC00);
                start = i + 1;
            }
        }
        return out.toByteArray();
    }

    /**
     * What a reader sees of a message through a handle, in one text: header, subject, both
     * texts, TNEF, and every attachment and inline image with its sizes and a checksum of its
     * decoded bytes.
     */
    static String road(long h) {
        StringBuilder out = new StringBuilder();
        StringBuffer sb = new StringBuffer();
        out.append(JNIJavaMail.GetHeader(h, sb, "")).append(sb).append('\n');
        sb.setLength(0);
        out.append(JNIJavaMail.GetHeaderValue(h, "subject", sb, true, "", "UTF-8", ""));
        out.append(sb).append('\n');
        for (boolean html : new boolean[] {false, true}) {
            sb.setLength(0);
            out.append(JNIJavaMail.GetText(h, sb, html, "EUC-KR", "", "UTF-8", true, ""));
            out.append(sb).append('\n');
        }
        out.append(JNIJavaMail.IsTNEF(h)).append('\n');
        for (boolean inline : new boolean[] {false, true}) {
            JNIJavaMail.InitAttachCursor(h);
            AttachInfo a = new AttachInfo();
            while (inline ? JNIJavaMail.GetNextCID(h, a, "", "UTF-8", "")
                          : JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", "")) {
                out.append(a.attachId).append(' ').append(a.fileName).append(' ')
                        .append(a.encoding).append(' ').append(a.startPos).append('-')
                        .append(a.endPos).append(' ').append(a.lineCnt).append(' ')
                        .append(JNIJavaMail.GetAttachContentSize(h, a, true)).append(' ')
                        .append(JNIJavaMail.GetAttachContentSize(h, a, false)).append(' ');
                CRC32 crc = new CRC32();
                crc.update(content(h, a, true));
                out.append(crc.getValue()).append('\n');
                a = new AttachInfo();
            }
        }
        return out.toString();
    }

    /** All the bytes of a part through OpenAttach and GetAttachContentNext. */
    static byte[] content(long h, AttachInfo a, boolean decode) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        if (!JNIJavaMail.OpenAttach(h, a)) return null;
        byte[] block;
        while ((block = JNIJavaMail.GetAttachContentNext(h, new StringBuffer(), decode)) != null) {
            out.writeBytes(block);
        }
        JNIJavaMail.CloseAttach(h);
        return out.toByteArray();
    }

    /** A multipart nested depth levels deep, depth entities in all. */
    static String nested(int depth) {
        StringBuilder sb = new StringBuilder("Subject: deep\r\n");
        for (int i = 0; i < depth - 1; i++) {
            sb.append("Content-Type: multipart/mixed; boundary=\"b").append(i).append("\"\r\n\r\n");
            sb.append("--b").append(i).append("\r\n");
        }
        sb.append("Content-Type: text/plain\r\n\r\nbottom\r\n");
        for (int i = depth - 2; i >= 0; i--) sb.append("--b").append(i).append("--\r\n");
        return sb.toString();
    }

    /** A multipart with parts leaves: parts + 1 entities. */
    static String wide(int parts) {
        StringBuilder sb = new StringBuilder(
                "Subject: wide\r\nContent-Type: multipart/mixed; boundary=\"w\"\r\n\r\n");
        for (int i = 0; i < parts; i++) sb.append("--w\r\nContent-Type: text/plain\r\n\r\nx\r\n");
        return sb.append("--w--\r\n").toString();
    }
}
