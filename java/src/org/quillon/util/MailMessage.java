package org.quillon.util;

import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;

/**
 * A stored message opened for reading, over {@link JNIJavaMail}:
 *
 * <pre>
 * String format = MailMessage.format(path); // once, kept beside the message
 * try (MailMessage msg = MailMessage.open(path, format)) {
 *     String subject = msg.header("Subject");
 *     String body = msg.text(false, "EUC-KR");
 *     for (Attachment a : msg.attachments()) {
 *         try (InputStream in = msg.openContent(a, true)) { ... }
 *     }
 * }
 * </pre>
 *
 * Text comes out in UTF-8 and arrives as Java strings. One object serves one thread at a
 * time, and one content stream at a time: opening another, or asking a size, ends the last.
 */
public final class MailMessage implements AutoCloseable {
    private static final String TO_CHARSET = "UTF-8";
    private static final String LEVEL = "";

    private long handle;
    private ContentStream stream;

    private MailMessage(long handle) {
        this.handle = handle;
    }

    /** The format string of a message file, to keep beside it. */
    public static String format(Path eml) throws IOException {
        String format = JNIJavaMail.GetMsgFormat(eml.toString());
        if (format == null) {
            checkReadable(eml);
            throw new IOException("cannot parse " + eml);
        }
        return format;
    }

    /**
     * Opens a message file with the format string that {@link #format} gave for it; null or ""
     * parses the message now.
     */
    public static MailMessage open(Path eml, String format) throws IOException {
        if (Files.isDirectory(eml)) throw new IOException(eml + " is a directory");
        long handle = JNIJavaMail.Open(0, eml.toString(), format == null ? "" : format);
        if (handle == -1) {
            checkReadable(eml);
            throw new IOException("cannot open " + eml);
        }
        return new MailMessage(handle);
    }

    // The file's own reason, when it has one.
    private static void checkReadable(Path eml) throws IOException {
        if (!Files.exists(eml)) throw new NoSuchFileException(eml.toString());
        Files.newByteChannel(eml).close();
    }

    /** The first value of a header field of the message, decoded; null if there is none. */
    public String header(String name) throws IOException {
        Objects.requireNonNull(name, "name");
        StringBuffer sb = new StringBuffer();
        if (JNIJavaMail.GetHeaderValue(handle(), name, sb, true, "", TO_CHARSET, LEVEL)) {
            return sb.toString();
        }
        String error = JNIJavaMail.GetLastError(handle);
        if ("No Such Header Item".equals(error)) return null;
        throw new IOException(error);
    }

    /** The header block of the message as it stands in the file. */
    public String rawHeader() throws IOException {
        StringBuffer sb = new StringBuffer();
        if (!JNIJavaMail.GetHeader(handle(), sb, LEVEL)) failed();
        return sb.toString();
    }

    /**
     * The text parts of one kind, html or plain, joined; null when the message has none.
     * defaultCharset is taken for parts that do not say theirs.
     */
    public String text(boolean html, String defaultCharset) {
        Objects.requireNonNull(defaultCharset, "defaultCharset");
        StringBuffer sb = new StringBuffer();
        boolean found = JNIJavaMail.GetText(handle(), sb, html, defaultCharset, "", TO_CHARSET,
                true, LEVEL);
        return found ? sb.toString() : null;
    }

    /** The attachments, in the order of the message. */
    public List<Attachment> attachments() {
        return list(false);
    }

    /** The inline images that the html text refers to by Content-ID. */
    public List<Attachment> inlineImages() {
        return list(true);
    }

    private List<Attachment> list(boolean inline) {
        List<Attachment> list = new ArrayList<>();
        JNIJavaMail.InitAttachCursor(handle());
        while (true) {
            AttachInfo info = new AttachInfo();
            boolean found = inline
                    ? JNIJavaMail.GetNextCID(handle, info, "", TO_CHARSET, LEVEL)
                    : JNIJavaMail.GetNextAttach(handle, info, "", TO_CHARSET, LEVEL);
            if (!found) return list;
            list.add(new Attachment(this, info, inline));
        }
    }

    /** Size in bytes of what {@link #openContent} gives for the part. */
    public long contentSize(Attachment part, boolean decode) throws IOException {
        endStream();
        long size = JNIJavaMail.GetAttachContentSize(handle(), own(part).info, decode);
        if (size == 0xFFFFFFFFL) failed();
        return size;
    }

    /**
     * The bytes of a part, decoded from base64 or quoted-printable if asked. Closing the stream
     * ends the reading; so does opening another.
     */
    public InputStream openContent(Attachment part, boolean decode) throws IOException {
        endStream();
        if (!JNIJavaMail.OpenAttach(handle(), own(part).info)) failed();
        stream = new ContentStream(decode);
        return stream;
    }

    /** True when a part is a Microsoft TNEF (winmail.dat) part. */
    public boolean isTnef() {
        return JNIJavaMail.IsTNEF(handle());
    }

    @Override
    public void close() {
        if (handle == 0) return;
        endStream();
        JNIJavaMail.Close(handle);
        handle = 0;
    }

    private long handle() {
        if (handle == 0) throw new IllegalStateException("message is closed");
        return handle;
    }

    private Attachment own(Attachment part) {
        if (part.owner != this) throw new IllegalArgumentException("part of another message");
        return part;
    }

    private void failed() throws IOException {
        throw new IOException(JNIJavaMail.GetLastError(handle));
    }

    private void endStream() {
        if (stream != null) stream.close();
    }

    private final class ContentStream extends InputStream {
        private final boolean decode;
        private final String errorBefore = JNIJavaMail.GetLastError(handle);
        private byte[] block = new byte[0];
        private int pos;
        private boolean atEnd;
        private boolean closed;

        ContentStream(boolean decode) {
            this.decode = decode;
        }

        // Bytes in the block, fetching the next one when it is used up; false at the end.
        private boolean fill() throws IOException {
            if (closed) throw new IOException("stream closed");
            while (pos == block.length) {
                if (atEnd) return false;
                byte[] next = JNIJavaMail.GetAttachContentNext(handle, new StringBuffer(), decode);
                if (next == null) {
                    atEnd = true;
                    release();
                    // The normal end leaves the last error as it was.
                    String error = JNIJavaMail.GetLastError(handle);
                    if (!error.equals(errorBefore)) throw new IOException(error);
                    return false;
                }
                block = next;
                pos = 0;
            }
            return true;
        }

        @Override
        public int read() throws IOException {
            return fill() ? block[pos++] & 0xFF : -1;
        }

        @Override
        public int read(byte[] b, int off, int len) throws IOException {
            if (off < 0 || len < 0 || len > b.length - off) throw new IndexOutOfBoundsException();
            if (len == 0) return 0;
            if (!fill()) return -1;
            int n = Math.min(len, block.length - pos);
            System.arraycopy(block, pos, b, off, n);
            pos += n;
            return n;
        }

        @Override
        public int available() {
            return closed ? 0 : block.length - pos;
        }

        @Override
        public void close() {
            closed = true;
            release();
        }

        private void release() {
            if (stream != this) return;
            stream = null;
            JNIJavaMail.CloseAttach(handle);
        }
    }
}
