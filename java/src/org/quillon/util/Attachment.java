package org.quillon.util;

/**
 * An attachment or an inline image of a {@link MailMessage}, as its lists give them. Its bytes
 * come from {@link MailMessage#openContent} of the message it belongs to.
 */
public final class Attachment {
    final MailMessage owner;
    final AttachInfo info;
    private final boolean inline;

    Attachment(MailMessage owner, AttachInfo info, boolean inline) {
        this.owner = owner;
        this.info = info;
        this.inline = inline;
    }

    /** Part number such as "2." or "1.3.". */
    public String partNumber() {
        return info.attachId;
    }

    /** Decoded file name of an attachment; null for an inline image. */
    public String fileName() {
        return inline ? null : info.fileName;
    }

    /** Content-ID of an inline image, angle brackets included; null for an attachment. */
    public String contentId() {
        return inline ? info.fileName : null;
    }

    /** Content type as the library numbers it: 0 text, 1 image, 4 application, 6 message. */
    public int contentType() {
        return info.contentType;
    }

    /** Subtype as the library numbers it, such as 6 octet-stream or 9 jpeg. */
    public int subContentType() {
        return info.subContentType;
    }

    /** Transfer encoding: "B" base64, "Q" quoted-printable, "7", "8", or "" for none known. */
    public String encoding() {
        return info.encoding;
    }

    /** Byte offsets of the body in the message file. */
    public long startPos() {
        return info.startPos;
    }

    public long endPos() {
        return info.endPos;
    }

    /** Lines of the body. */
    public long lineCount() {
        return info.lineCnt;
    }

    @Override
    public String toString() {
        return partNumber() + " " + (inline ? contentId() : fileName());
    }
}
