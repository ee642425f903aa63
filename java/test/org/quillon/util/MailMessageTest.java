package org.quillon.util;

import static java.nio.charset.StandardCharsets.ISO_8859_1;
import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertNull;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import java.io.IOException;
import java.io.InputStream;
import java.io.RandomAccessFile;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;
import org.junit.rules.TemporaryFolder;

public class MailMessageTest {
    @Rule public TemporaryFolder tmp = new TemporaryFolder();

    private Path mixed() throws IOException {
        return TestMail.write(tmp.getRoot().toPath(), "mixed.eml", TestMail.mixed());
    }

    @Test
    public void readsTheWholeMessage() throws Exception {
        Path eml = mixed();
        String format = MailMessage.format(eml);
        assertEquals(JNIJavaMail.GetMsgFormat(eml.toString()), format);
        for (String f : new String[] {format, "", null}) {
            try (MailMessage msg = MailMessage.open(eml, f)) {
                assertEquals(TestMail.SUBJECT, msg.header("Subject"));
                assertEquals("rcpt@example.com", msg.header("to"));
                assertNull(msg.header("Cc"));
                String raw = msg.rawHeader();
                assertTrue(raw.startsWith("From: sender@example.com\r\n"));
                assertTrue(raw.endsWith("boundary=\"mix\"\r\n"));
                assertEquals(TestMail.KOREAN, msg.text(false, ""));
                assertEquals("<p>한글</p>\r\n", msg.text(true, ""));
                assertFalse(msg.isTnef());

                List<Attachment> attachments = msg.attachments();
                assertEquals(1, attachments.size());
                Attachment data = attachments.get(0);
                assertEquals("3.", data.partNumber());
                assertEquals("data.bin", data.fileName());
                assertNull(data.contentId());
                assertEquals(TestMail.DATA.length, msg.contentSize(data, true));
                try (InputStream in = msg.openContent(data, true)) {
                    assertArrayEquals(TestMail.DATA, in.readAllBytes());
                    assertEquals(-1, in.read());
                }
                try (InputStream in = msg.openContent(data, false)) {
                    byte[] body = (TestMail.b64(TestMail.DATA) + "\r\n").getBytes(ISO_8859_1);
                    assertArrayEquals(body, in.readAllBytes());
                }

                List<Attachment> images = msg.inlineImages();
                assertEquals(1, images.size());
                assertEquals("<logo@x>", images.get(0).contentId());
                assertNull(images.get(0).fileName());
                try (InputStream in = msg.openContent(images.get(0), true)) {
                    assertEquals(TestMail.LOGO[0] & 0xFF, in.read());
                    byte[] rest = in.readAllBytes();
                    assertEquals(TestMail.LOGO.length - 1, rest.length);
                }
            }
        }
    }

    @Test
    public void tnefWithoutText() throws Exception {
        Path eml = TestMail.write(tmp.getRoot().toPath(), "tnef.eml", TestMail.crlf(
                "Subject: tnef", "Content-Type: multipart/mixed; boundary=\"t\"", "",
                "--t", "Content-Type: application/ms-tnef; name=\"winmail.dat\"",
                "Content-Transfer-Encoding: base64", "", "eJ8+IgAA", "--t--"));
        try (MailMessage msg = MailMessage.open(eml, "")) {
            assertTrue(msg.isTnef());
            assertNull(msg.text(false, ""));
            assertNull(msg.text(true, ""));
            assertEquals("winmail.dat", msg.attachments().get(0).fileName());
            assertTrue(msg.inlineImages().isEmpty());
        }
    }

    @Test
    public void streamsEndWhenAnotherBeginsOrTheMessageCloses() throws Exception {
        Path eml = mixed();
        MailMessage msg = MailMessage.open(eml, "");
        Attachment data = msg.attachments().get(0);
        InputStream first = msg.openContent(data, true);
        assertEquals(TestMail.DATA[0] & 0xFF, first.read());
        InputStream second = msg.openContent(data, true);
        assertThrows(IOException.class, first::read);
        assertEquals(TestMail.DATA.length, msg.contentSize(data, true));
        assertThrows(IOException.class, second::read);
        InputStream third = msg.openContent(data, true);
        try (MailMessage other = MailMessage.open(eml, "")) {
            assertThrows(IllegalArgumentException.class,
                    () -> other.openContent(data, true));
        }
        msg.close();
        msg.close();
        assertThrows(IOException.class, third::read);
        assertThrows(IllegalStateException.class, () -> msg.header("Subject"));
        assertThrows(IllegalStateException.class, msg::attachments);
    }

    @Test
    public void fileFailuresAreIOExceptions() throws Exception {
        Path dir = tmp.getRoot().toPath();
        Path missing = dir.resolve("missing.eml");
        assertThrows(NoSuchFileException.class, () -> MailMessage.open(missing, ""));
        assertThrows(NoSuchFileException.class, () -> MailMessage.format(missing));
        assertThrows(IOException.class, () -> MailMessage.open(dir, ""));

        Path eml = mixed();
        String format = MailMessage.format(eml);
        try (MailMessage msg = MailMessage.open(eml, format)) {
            Attachment data = msg.attachments().get(0);
            // A file cut short inside the attachment: the stream fails instead of ending.
            try (RandomAccessFile f = new RandomAccessFile(eml.toFile(), "rw")) {
                f.setLength(data.startPos() + 1000);
            }
            InputStream in = msg.openContent(data, true);
            IOException e = assertThrows(IOException.class, in::readAllBytes);
            assertTrue(e.getMessage(), e.getMessage().contains("attach is empty"));

            Files.delete(eml);
            e = assertThrows(IOException.class, () -> msg.contentSize(data, true));
            assertTrue(e.getMessage().startsWith("In CQLMimeMsgInfo::GetAttachContentSize, "));
            assertThrows(IOException.class, () -> msg.openContent(data, true));
            assertThrows(IOException.class, msg::rawHeader);
        }
    }
}
