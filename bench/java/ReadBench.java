import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Base64;
import java.util.Random;
import org.quillon.util.AttachInfo;
import org.quillon.util.JNIJavaMail;

/**
 * Speed of the natives from Java: GetHeaderValue on an open handle, and streaming a 10 MiB
 * base64 attachment through GetAttachContentNext, against the same stream in C++ (the
 * program given as argument), measured in turns in the same run. Medians of five rounds.
 */
public final class ReadBench {
    private static final int ROUNDS = 5;
    private static final int HEADER_CALLS = 1_000_000;
    private static final int STREAMS = 10;

    public static void main(String[] args) throws Exception {
        if (args.length != 1) {
            System.err.println("usage: ReadBench PATH_OF_bench_java_stream_cpp");
            System.exit(2);
        }
        Path dir = Files.createTempDirectory("qlmail-bench");
        Path eml = dir.resolve("big.eml");
        try {
            Files.write(eml, message().getBytes(StandardCharsets.ISO_8859_1));
            String format = JNIJavaMail.GetMsgFormat(eml.toString());
            long h = JNIJavaMail.Open(0, eml.toString(), format);
            AttachInfo a = new AttachInfo();
            JNIJavaMail.InitAttachCursor(h);
            if (h == -1 || !JNIJavaMail.GetNextAttach(h, a, "", "UTF-8", "")) {
                throw new IllegalStateException("no attachment");
            }
            headerValues(h, HEADER_CALLS, true); // warm-up, the JIT included
            headerValues(h, HEADER_CALLS, false);
            stream(h, a, 3);
            double[] micros = new double[ROUNDS];
            double[] rawMicros = new double[ROUNDS];
            double[] java = new double[ROUNDS];
            double[] cpp = new double[ROUNDS];
            for (int r = 0; r < ROUNDS; r++) {
                micros[r] = headerValues(h, HEADER_CALLS, true);
                rawMicros[r] = headerValues(h, HEADER_CALLS, false);
                java[r] = stream(h, a, STREAMS);
                cpp[r] = streamCpp(args[0], eml);
            }
            JNIJavaMail.Close(h);
            System.out.printf("GetHeaderValue of an encoded Subject, CPU time: %.2f us a call"
                    + " decoded to UTF-8, %.2f us as it stands%n", median(micros),
                    median(rawMicros));
            System.out.printf("10 MiB base64 attachment, decoded: Java %.0f MB/s, C++ %.0f MB/s,"
                    + " ratio %.2f%n", median(java), median(cpp), median(java) / median(cpp));
        } finally {
            Files.deleteIfExists(eml);
            Files.deleteIfExists(dir);
        }
    }

    private static String message() {
        byte[] data = new byte[10 << 20];
        new Random(1).nextBytes(data);
        StringBuilder sb = new StringBuilder();
        for (String field : new String[] {"Return-Path: <a@example.com>",
                "Received: from mx.example.com by mail.example.net; Tue, 5 Mar 2024 14:07:09 +0900",
                "From: =?UTF-8?B?6rmA7JiB7Z2s?= <a@example.com>", "To: b@example.net",
                "Subject: =?UTF-8?B?7JqU7JW9IOuztOqzoOyEnA==?=",
                "Date: Tue, 05 Mar 2024 14:07:09 +0900", "Message-ID: <1@example.com>",
                "MIME-Version: 1.0", "Content-Type: multipart/mixed; boundary=\"b\"", "",
                "--b", "Content-Type: text/plain; charset=utf-8", "", "see attached", "--b",
                "Content-Type: application/octet-stream",
                "Content-Disposition: attachment; filename=\"big.bin\"",
                "Content-Transfer-Encoding: base64", ""}) {
            sb.append(field).append("\r\n");
        }
        sb.append(Base64.getMimeEncoder().encodeToString(data)).append("\r\n--b--\r\n");
        return sb.toString();
    }

    // CPU time of this thread per call, in microseconds: on a shared machine the wall clock
    // also counts the time other processes held the core.
    private static double headerValues(long h, int calls, boolean decode) {
        ThreadMXBean cpu = ManagementFactory.getThreadMXBean();
        StringBuffer sb = new StringBuffer();
        long start = cpu.getCurrentThreadCpuTime();
        for (int i = 0; i < calls; i++) {
            sb.setLength(0);
            JNIJavaMail.GetHeaderValue(h, "Subject", sb, decode, "", "UTF-8", "");
        }
        return (cpu.getCurrentThreadCpuTime() - start) / 1e3 / calls;
    }

    private static double stream(long h, AttachInfo a, int times) {
        StringBuffer state = new StringBuffer();
        long bytes = 0;
        long start = System.nanoTime();
        for (int i = 0; i < times; i++) {
            JNIJavaMail.OpenAttach(h, a);
            byte[] block;
            while (true) {
                state.setLength(0);
                if ((block = JNIJavaMail.GetAttachContentNext(h, state, true)) == null) break;
                bytes += block.length;
            }
            JNIJavaMail.CloseAttach(h);
        }
        return bytes / ((System.nanoTime() - start) / 1e9) / 1e6;
    }

    private static double streamCpp(String program, Path eml) throws Exception {
        Process p = new ProcessBuilder(program, eml.toString(), String.valueOf(STREAMS))
                .redirectError(ProcessBuilder.Redirect.INHERIT).start();
        String out = new String(p.getInputStream().readAllBytes(), StandardCharsets.US_ASCII);
        if (p.waitFor() != 0) throw new IllegalStateException(program + " failed");
        return Double.parseDouble(out.trim());
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }
}
