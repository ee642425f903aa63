// Compiled against the installed qlmail.jar only, run on the installed library.
import java.nio.file.Path;
import org.quillon.util.JNIJavaMail;
import org.quillon.util.MailMessage;

public class JavaConsumer {
    public static void main(String[] args) throws Exception {
        Path eml = Path.of(args[0]);
        String format = JNIJavaMail.GetMsgFormat(eml.toString());
        try (MailMessage msg = MailMessage.open(eml, format)) {
            String subject = msg.header("Subject");
            String text = msg.text(false, "");
            if (!"Lunch on Friday".equals(subject) || text == null || !text.startsWith("Hi Bob,")) {
                System.out.println("java consumer: unexpected message");
                System.exit(1);
            }
            System.out.println("java consumer: " + subject);
        }
    }
}
