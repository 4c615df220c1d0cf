// The front end's logic without a window: the stdout contract as the programs write it, the
// sentences made of it, the proposals for a damaged file, and a job whose program is missing.
// The rescue path is driven through the window.
#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <tuple>

#include "child_line_parser.h"
#include "gui_test_support.h"
#include "human_text.h"
#include "progress_estimate.h"
#include "repair_job.h"

using namespace kinefix_gui_test;
using Kind = ChildEvent::Kind;

class ProtocolTest : public QObject {
    Q_OBJECT

  private slots:
    void linesOfTheStdoutContract();
    void wordsForAPerson();
    void proposalsAndChecksForADamagedFile();
    void missingProgramIsNamed();
};

// Each event as a line of the fields its kind fills, so that runs of events compare as lists.
static QStringList describe(const QList<ChildEvent>& events) {
    static const char* const kKinds[] = {"progress", "error", "write-error", "summary",
                                         "version",  "end",   "text"};
    QStringList lines;
    for (const ChildEvent& e : events) {
        const RepairSummary& s = e.summary;
        QString d = kKinds[static_cast<int>(e.kind)];
        if (e.kind == Kind::Progress) d += QString::asprintf(" %g", e.value);
        if (e.kind == Kind::Error || e.kind == Kind::VersionError)
            d += QString::asprintf(" %d", e.code);
        if (e.kind == Kind::Error || e.kind == Kind::Text) d += " " + e.text;
        if (e.kind == Kind::Summary)
            d += QString::asprintf(" %lld %lld %g %lld", s.packets, s.ignored, s.duration, s.bytes);
        lines << d;
    }
    return lines;
}

void ProtocolTest::linesOfTheStdoutContract() {
    const QByteArray stream =
        "==============================\nKinefix (x)\nprogress:0.100000\nprogress:0.2\n"
        "pts:10 pts_time:0.4 dts:10 dts_time:0.4 duration:1 duration_time:0.04 stream_index:0\n"
        "error:ret=-22,msg=Invalid argument\r\nprogress:1.0\n"
        "error:ret=-1414092869,msg=interrupted by signal 2 at index line 40\n"
        "summary:packets=120,ignored=3,duration=4.800,bytes=654321\nEnd\n"
        "[ERROR] version=7, parse failed";
    const QStringList expected =
        QStringLiteral(
            "text ==============================|text Kinefix (x)|progress 0.1|"
            "progress 0.2|write-error|error -22 Invalid argument|progress 1|"
            "error -1414092869 interrupted by signal 2 at index line 40|"
            "summary 120 3 4.8 654321|end|version 7")
            .split('|');
    // Every split point of the stream gives the same events; the last line, without its end,
    // arrives (once) when the child has gone.
    for (int cut = 0; cut <= stream.size(); ++cut) {
        ChildLineParser parser;
        QList<ChildEvent> events = parser.feed(stream.left(cut));
        events += parser.feed(stream.mid(cut));
        QCOMPARE(describe(events + parser.finish()), expected);
        QVERIFY(parser.finish().isEmpty());
    }

    for (const char* line :
         {"progress:", "progress:abc", "progress:1.5", "progress:-0.1", "error:ret=x,msg=a",
          "error:ret=-5", "summary:packets=1", "summary:packets=1,ignored=2,duration=x,bytes=3",
          "[ERROR] version=, parse failed", "End ", "Progress:0.5"})
        QCOMPARE(describe({ChildLineParser::parseLine(line)}),
                 QStringList{QStringLiteral("text ") + line});
}

// What the programs write (kinefix's standard output, or standard error where marked) and
// what a person reads instead; no sentence at all for lines that only the log needs.
void ProtocolTest::wordsForAPerson() {
    const std::initializer_list<std::tuple<bool, const char*, const char*>> said = {
        {false, "No space left on device", "The disk is full. Free some space and repair again."},
        {false, "File too large", "larger than its disk allows"},
        {false, "Invalid argument", "timestamps out of order"},
        {false, "the output file is one of the input files", "would overwrite one of the inputs"},
        {false, "input is not a regular file: /tmp/p", "/tmp/p is not an ordinary file"},
        {false, "could not finish the output file: I/O error", "not be completed (I/O error)"},
        {false, "Something new", "The repair reported: Something new"},
        {true, "Could not create output context", "end the output's name with .mp4, .mov or .mkv"},
        {true, "Error occurred: Permission denied", "could not be written: Permission denied"},
        {true, "Error occurred when opening output file", "refused the streams"},
        {true, "kinefix-crypt: a path may not contain '\"': a\"b", "a path may not contain"},
        {true, "Output #0, mp4, to 'x.mp4':", ""},
    };
    for (const auto& [on_stderr, line, sentence] : said) {
        const QString text =
            on_stderr ? HumanText::stderrSentence(line) : HumanText::errorSentence(line);
        QVERIFY2(*sentence ? text.contains(sentence) : text.isEmpty(),
                 qPrintable(line + QStringLiteral(" -> ") + text));
    }
    QCOMPARE(HumanText::duration(1.64), QStringLiteral("1.6 s"));
    QCOMPARE(HumanText::duration(59.96), QStringLiteral("1 min 00 s"));
    QCOMPARE(HumanText::duration(3 * 3600 + 7 * 60 + 59), QStringLiteral("3 h 07 min"));
    QCOMPARE(HumanText::size(999), QStringLiteral("999 bytes"));
    QCOMPARE(HumanText::size(12345), QStringLiteral("12.3 kB"));
    QCOMPARE(HumanText::size(1400000), QStringLiteral("1.40 MB"));
    QCOMPARE(HumanText::size(5368709120LL), QStringLiteral("5.37 GB"));
    QCOMPARE(ProgressEstimate::remainingSeconds(0.25, 4000), 12.0);
    QCOMPARE(ProgressEstimate::remainingSeconds(1.0, 4000), 0.0);
    QVERIFY(ProgressEstimate::remainingSeconds(0.005, 4000) < 0);  // too early to tell
    QVERIFY(ProgressEstimate::remainingSeconds(0.5, 100) < 0);
    ProgressEstimate estimate;
    estimate.start();
    QVERIFY(estimate.text().startsWith("0:00 elapsed"));
    QVERIFY(!estimate.text().contains("left"));
}

void ProtocolTest::proposalsAndChecksForADamagedFile() {
    TempDir dir;
    const QString a = at(dir, "a.b.MP4");
    for (const char* name : {"a.b.MP4", "a.b.idx", "c"}) kinefix_test::write_file(dir / name, "x");
    RepairRequest request = RepairRequest::forDamaged(a);
    QCOMPARE(request.index, at(dir, "a.b.idx"));
    QCOMPARE(request.output, at(dir, "a.b-repaired.MP4"));
    QCOMPARE(request.problem(false), QString());

    // No index beside it: main_window_test sees the index field left empty.
    RepairRequest bare = RepairRequest::forDamaged(at(dir, "c"));
    QCOMPARE(bare.output, at(dir, "c-repaired.mp4"));
    QCOMPARE(bare.problem(false), QStringLiteral("Choose the index file of c."));
    QVERIFY(bare.problem(true).contains("or a healthy recording"));
    bare.reference = a;
    QVERIFY(bare.rescue());
    QCOMPARE(bare.problem(true), QString());

    request.output = at(dir, "sub/../a.b.idx");
    QVERIFY(request.problem(false).contains("would overwrite an input"));
    request.output = at(dir, "say \"hi\".mp4");
    QVERIFY(request.problem(false).contains("double quote"));
    request.index = at(dir, "missing.idx");
    QVERIFY(request.problem(false).contains("missing.idx is not a file"));
}

// Found neither in the folder given nor on the PATH: the program is named.
void ProtocolTest::missingProgramIsNamed() {
    TempDir dir;
    RepairRequest request;
    request.damaged = request.index = at(dir, "d.mp4");
    request.output = at(dir, "o.mp4");
    RepairJob job{ToolLocator(QString::fromStdString(dir.str()))};
    QSignalSpy finished(&job, &RepairJob::finished);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QByteArray::fromStdString(dir.str()));
    job.start(request);
    qputenv("PATH", path);
    QVERIFY(finished.wait(10000));
    const auto outcome = finished.at(0).at(0).value<RepairOutcome>();
    QCOMPARE(outcome.status, RepairOutcome::Status::Failed);
    QVERIFY2(outcome.message.startsWith("kinefix-crypt could not be started"),
             qPrintable(outcome.message));
    QVERIFY(!job.running());
}

QTEST_GUILESS_MAIN(ProtocolTest)
#include "protocol_test.moc"
