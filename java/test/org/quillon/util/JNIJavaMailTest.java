package org.quillon.util;

import static java.nio.charset.StandardCharsets.ISO_8859_1;
import static java.nio.charset.StandardCharsets.UTF_8;
import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertNotEquals;
import static org.junit.Assert.assertNull;
import static org.junit.Assert.assertTrue;

import java.io.ByteArrayOutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Base64;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;
import org.junit.rules.TemporaryFolder;

public class JNIJavaMailTest {
    @Rule public TemporaryFolder tmp = new TemporaryFolder();

    private static final Path SAMPLES = Paths.get(System.getProperty("qlmail.samples", "samples"));

    private static String field(String format, int record, int field) {
        return format.split("\u0005", -1)[record].split(",", -1)[field];
    }

    @Test
    public void formatOfAFile() throws Exception {
        Path eml = TestMail.write(tmp.getRoot().toPath(), "a.eml", "From: a\r\n\r\nhello\r\n");
        assertEquals("0,9,11,18,0,9,11,18,,0,0,7,1,,,,,\u0005",
                JNIJavaMail.GetMsgFormat(eml.toString()));
        assertNull(JNIJavaMail.GetMsgFormat(tmp.getRoot().toPath().resolve("none").toString()));
    }

    @Test
    public void wholeRoadWithStoredAndEmptyFormat() throws Exception {
        String message = TestMail.mixed();
        Path eml = TestMail.write(tmp.getRoot().toPath(), "mixed.eml", message);
        String format = JNIJavaMail.GetMsgFormat(eml.toString());
        assertEquals(7, format.split("\u0005", -1).length); // six records
        long stored = JNIJavaMail.Open(0, eml.toString(), format);
        long parsed = JNIJavaMail.Open(0, eml.toString(), "");
        assertNotEquals(-1, stored);
        assertNotEquals(-1, parsed);
        assertEquals(TestMail.road(stored), TestMail.road(parsed));
        JNIJavaMail.Close(parsed);
        long h = stored;

        StringBuffer sb = new StringBuffer();
        assertTrue(JNIJavaMail.GetHeader(h, sb, ""));
        assertEquals(message.substring(0, Integer.parseInt(field(format, 0, 1))), sb.toString());
        sb.setLength(0);
        assertTrue(JNIJavaMail.GetHeaderValue(h, "SUBJECT", sb, true, "", "UTF-8", ""));
        assertEquals(TestMail.SUBJECT, sb.toString());
        assertTrue(JNIJavaMail.GetHeaderValue(h, "To", sb, false, "", "UTF-8", ""));
        assertEquals(TestMail.SUBJECT + "rcpt@example.com", sb.toString()); // appends
        sb.setLength(0);
        assertFalse(JNIJavaMail.GetHeaderValue(h, "Cc", sb, true, "", "UTF-8", ""));
        assertEquals("No Such Header Item", JNIJavaMail.GetLastError(h));
        assertEquals("", sb.toString());

        assertTrue(JNIJavaMail.GetText(h, sb, false, "", "", "UTF-8", true, ""));
        assertEquals(TestMail.KOREAN, sb.toString());
        sb.setLength(0);
        assertTrue(JNIJavaMail.GetText(h, sb, true, "", "", "UTF-8", true, ""));
        assertEquals("<p>한글</p>\r\n", sb.toString());
        assertFalse(JNIJavaMail.IsTNEF(h));

        // The attachment: every field, its sizes, its blocks and their state words.
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", ""));
        assertEquals("3.", a.attachId);
        assertEquals("data.bin", a.fileName);
        assertEquals("B", a.encoding);
        assertEquals(4, a.contentType);
        assertEquals(6, a.subContentType);
        String body = TestMail.b64(TestMail.DATA) + "\r\n";
        assertEquals(body, message.substring((int) a.startPos, (int) a.endPos));
        assertEquals(body.split("\r\n").length, a.lineCnt);
        assertEquals(TestMail.DATA.length, JNIJavaMail.GetAttachContentSize(h, a, true));
        assertEquals(body.length(), JNIJavaMail.GetAttachContentSize(h, a, false));
        assertFalse(JNIJavaMail.GetNextAttach(h, new AttachInfo(), "", "UTF-8", ""));
        assertEquals("No Such Attachment", JNIJavaMail.GetLastError(h));

        assertTrue(JNIJavaMail.OpenAttach(h, a));
        StringBuffer state = new StringBuffer();
        List<byte[]> blocks = new ArrayList<>();
        byte[] block;
        while ((block = JNIJavaMail.GetAttachContentNext(h, state, true)) != null) blocks.add(block);
        JNIJavaMail.CloseAttach(h);
        assertTrue(blocks.size() > 2);
        assertEquals("true".repeat(blocks.size()) + "false", state.toString());
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        for (byte[] b : blocks) all.writeBytes(b);
        for (byte[] b : blocks.subList(0, blocks.size() - 1)) {
            assertEquals(0, b.length % 3); // each block decodes on its own
        }
        assertArrayEquals(TestMail.DATA, all.toByteArray());
        assertArrayEquals(body.getBytes(ISO_8859_1), TestMail.content(h, a, false));

        // An encoding of "" set by Java reads the part raw, sizes included.
        a.encoding = "";
        assertArrayEquals(body.getBytes(ISO_8859_1), TestMail.content(h, a, true));
        assertEquals(body.length(), JNIJavaMail.GetAttachContentSize(h, a, true));

        // The inline image is listed by Content-ID, not as an attachment.
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextCID(h, a, "", "UTF-8", ""));
        assertEquals("2.", a.attachId);
        assertEquals("<logo@x>", a.fileName);
        assertEquals(1, a.contentType);
        assertArrayEquals(TestMail.LOGO, TestMail.content(h, a, true));
        assertFalse(JNIJavaMail.GetNextCID(h, a, "", "UTF-8", ""));
        assertEquals("No Such Content-ID", JNIJavaMail.GetLastError(h));
        JNIJavaMail.Close(h);
    }

    @Test
    public void koreanSampleAndUnlabelledBytes() throws Exception {
        Path eml = SAMPLES.resolve("korean-attachment.eml");
        long h = JNIJavaMail.Open(0, eml.toString(), "");
        StringBuffer sb = new StringBuffer();
        assertTrue(JNIJavaMail.GetText(h, sb, false, "", "", "UTF-8", true, ""));
        byte[] euckr = Base64.getDecoder().decode("vsiz58fPvLy/5C4NCjO/+SC6uLDtvK24piDDt7rOx9W0z7TZLg0K");
        assertEquals(new String(euckr, TestMail.EUC_KR), sb.toString());
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", ""));
        assertEquals("분기 매출.txt", a.fileName);
        byte[] file = Files.readAllBytes(eml);
        byte[] body = Arrays.copyOfRange(file, (int) a.startPos, (int) a.endPos);
        byte[] decoded = Base64.getMimeDecoder().decode(body);
        assertTrue(new String(decoded, UTF_8).startsWith("분기 매출 요약\n"));
        assertArrayEquals(decoded, TestMail.content(h, a, true));

        // Raw header bytes that are no UTF-8 reach Java whole and go back unchanged.
        sb.setLength(0);
        assertTrue(JNIJavaMail.GetText(h, sb, false, "", "", "EUC-KR", true, ""));
        assertArrayEquals(euckr, TestMail.rawBytes(sb.toString()));
        JNIJavaMail.Close(h);
    }

    @Test
    public void rawBytesAndSupplementaryCharactersGoThereAndBack() throws Exception {
        // A Content-ID of raw EUC-KR bytes stands in the format string as it is; a path with
        // a character beyond the BMP goes in as four bytes of UTF-8.
        Path dir = tmp.newFolder("메일😀\uD800\uDC00").toPath();
        Path eml = TestMail.write(dir, "😀.eml", TestMail.crlf("Subject: raw",
                "Content-Type: multipart/related; boundary=\"r\"", "", "--r",
                "Content-Type: image/png", "Content-ID: <\u00b0\u00a1@x>",
                "Content-Transfer-Encoding: base64", "", "AAEC", "--r--"));
        String format = JNIJavaMail.GetMsgFormat(eml.toString());
        long stored = JNIJavaMail.Open(0, eml.toString(), format);
        long parsed = JNIJavaMail.Open(0, eml.toString(), "");
        assertNotEquals(-1, stored);
        assertEquals(TestMail.road(parsed), TestMail.road(stored));
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(stored);
        assertTrue(JNIJavaMail.GetNextCID(stored, a, "", "UTF-8", ""));
        assertArrayEquals("<\u00b0\u00a1@x>".getBytes(ISO_8859_1), TestMail.rawBytes(a.fileName));
        assertArrayEquals(new byte[] {0, 1, 2}, TestMail.content(stored, a, true));
        JNIJavaMail.Close(stored);
        JNIJavaMail.Close(parsed);
    }

    @Test
    public void nulCutInTextButWholeInBlocks() throws Exception {
        String part = "before\0after\r\n";
        Path eml = TestMail.write(tmp.getRoot().toPath(), "nul.eml", TestMail.crlf(
                "Subject: nul", "Content-Type: multipart/mixed; boundary=\"n\"", "",
                "--n", "Content-Type: text/plain; charset=\"us-ascii\"",
                "Content-Transfer-Encoding: 8bit", "", part + "--n",
                "Content-Type: application/octet-stream",
                "Content-Disposition: attachment; filename=\"nul.bin\"",
                "Content-Transfer-Encoding: 8bit", "", part + "--n--"));
        long h = JNIJavaMail.Open(0, eml.toString(), "");
        StringBuffer sb = new StringBuffer();
        assertTrue(JNIJavaMail.GetText(h, sb, false, "", "", "UTF-8", true, ""));
        assertEquals("before", sb.toString());
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", ""));
        assertEquals("8", a.encoding);
        assertArrayEquals(part.getBytes(ISO_8859_1), TestMail.content(h, a, true));
        JNIJavaMail.Close(h);
    }

    @Test
    public void storedFieldsComeOutUnsigned() throws Exception {
        Path eml = TestMail.write(tmp.getRoot().toPath(), "f.eml", "From: a\r\n\r\nhello\r\n");
        // A damaged record: negative offsets and line count.
        String record = "0,9,0,0,0,9,-5,-1,1.,4,6,B,-3,,,,x.bin,\u0005";
        long h = JNIJavaMail.Open(0, eml.toString(), "0,9,11,18,0,9,11,18,,0,0,7,1,,,,,\u0005"
                + record);
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", ""));
        assertEquals(4294967291L, a.startPos);
        assertEquals(4294967295L, a.endPos);
        assertEquals(4294967293L, a.lineCnt);
        assertEquals("x.bin", a.fileName);
        // Offsets past the file give nothing to read, and no crash.
        assertArrayEquals(new byte[0], TestMail.content(h, a, false));
        JNIJavaMail.Close(h);
    }

    @Test
    public void failuresGiveFailureValues() throws Exception {
        Path dir = tmp.getRoot().toPath();
        Path eml = TestMail.write(dir, "m.eml", TestMail.mixed());
        String missing = dir.resolve("missing.eml").toString();
        assertEquals(-1, JNIJavaMail.Open(0, missing, ""));
        assertEquals(-1, JNIJavaMail.Open(0, missing, JNIJavaMail.GetMsgFormat(eml.toString())));
        JNIJavaMail.Close(0);
        JNIJavaMail.Close(-1);
        assertNull(JNIJavaMail.GetMsgFormat(null));
        assertEquals(-1, JNIJavaMail.Open(0, null, ""));
        assertEquals(-1, JNIJavaMail.Open(0, eml.toString(), null));

        long h = JNIJavaMail.Open(0, eml.toString(), "");
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", ""));
        StringBuffer sb = new StringBuffer();
        assertFalse(JNIJavaMail.GetText(h, sb, false, "", null, "UTF-8", true, ""));
        assertFalse(JNIJavaMail.GetText(h, null, false, "", "", "UTF-8", true, ""));
        assertFalse(JNIJavaMail.GetHeaderValue(h, null, sb, true, "", "UTF-8", ""));
        assertFalse(JNIJavaMail.GetHeaderValue(h, "To", sb, true, "", "UTF-8", null));
        assertFalse(JNIJavaMail.GetHeader(h, sb, null));
        assertFalse(JNIJavaMail.GetHeader(h, null, ""));
        assertEquals("", sb.toString());
        assertFalse(JNIJavaMail.GetNextAttach(h, null, "", "UTF-8", ""));
        assertFalse(JNIJavaMail.GetNextCID(h, a, "", null, ""));
        assertNull(JNIJavaMail.GetAttachContentNext(h, null, true));
        // An object without the eight fields, and null strings in the fields.
        assertFalse(JNIJavaMail.OpenAttach(h, new Object()));
        assertEquals(0, JNIJavaMail.GetAttachContentSize(h, new Object(), true));
        assertFalse(JNIJavaMail.GetNextAttach(h, new Object(), "", "UTF-8", ""));
        for (String nulled : new String[] {"encoding", "attachId", "fileName"}) {
            AttachInfo b = new AttachInfo();
            b.startPos = a.startPos;
            b.endPos = a.endPos;
            AttachInfo.class.getField(nulled).set(b, null);
            assertFalse(nulled, JNIJavaMail.OpenAttach(h, b));
            assertEquals(nulled, 0, JNIJavaMail.GetAttachContentSize(h, b, true));
            assertFalse(JNIJavaMail.OpenAttach(h, null));
        }
        // The handle still works after all that.
        assertTrue(JNIJavaMail.GetText(h, sb, false, "", "", "UTF-8", true, ""));
        assertEquals(TestMail.KOREAN, sb.toString());

        // A file that goes away: the base64 size cannot be read, the stream cannot open.
        Files.delete(eml);
        assertEquals(4294967295L, JNIJavaMail.GetAttachContentSize(h, a, true));
        assertTrue(JNIJavaMail.GetLastError(h).startsWith(
                "In CQLMimeMsgInfo::GetAttachContentSize, "));
        assertFalse(JNIJavaMail.OpenAttach(h, a));
        StringBuffer state = new StringBuffer();
        assertNull(JNIJavaMail.GetAttachContentNext(h, state, true));
        assertEquals("false", state.toString());
        JNIJavaMail.Close(h);
    }

    @Test
    public void libraryExceptionsStayInTheNatives() throws Exception {
        Path dir = tmp.newFolder("eml.d").toPath();
        String format = JNIJavaMail.GetMsgFormat(
                TestMail.write(tmp.getRoot().toPath(), "m.eml", TestMail.mixed()).toString());
        // The file class refuses a name that ends in "/".
        assertEquals(-1, JNIJavaMail.Open(0, dir + "/", ""));
        assertEquals(-1, JNIJavaMail.Open(0, dir + "/", format));

        // A directory opens but fails every read.
        long h = JNIJavaMail.Open(0, dir.toString(), format);
        assertNotEquals(-1, h);
        StringBuffer sb = new StringBuffer();
        assertFalse(JNIJavaMail.GetHeader(h, sb, ""));
        assertFalse(JNIJavaMail.GetHeaderValue(h, "Subject", sb, true, "", "UTF-8", ""));
        assertFalse(JNIJavaMail.GetText(h, sb, false, "", "", "UTF-8", true, ""));
        assertEquals("", sb.toString());
        AttachInfo a = new AttachInfo();
        JNIJavaMail.InitAttachCursor(h);
        assertTrue(JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", ""));
        assertTrue(JNIJavaMail.OpenAttach(h, a));
        StringBuffer state = new StringBuffer();
        assertNull(JNIJavaMail.GetAttachContentNext(h, state, true));
        assertEquals("false", state.toString());
        assertTrue(JNIJavaMail.GetLastError(h),
                JNIJavaMail.GetLastError(h).startsWith("In JNIJavaMail::GetAttachContentNext(), "));
        JNIJavaMail.CloseAttach(h);
        JNIJavaMail.Close(h);
    }
}
