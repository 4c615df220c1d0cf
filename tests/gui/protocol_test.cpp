// The front end's logic without a window: the stdout contract as the programs write it, the
// sentences made of it, the proposals for a damaged file, and a job's steps on the rescue
// path with a scripted kinefix-index in front of the real kinefix.
#include <QCoreApplication>
#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include "child_line_parser.h"
#include "gui_test_support.h"
#include "human_text.h"
#include "progress_estimate.h"
#include "repair_job.h"
#include "rescue_probe.h"

using namespace kinefix_gui_test;
using Kind = ChildEvent::Kind;

class ProtocolTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase();
    void linesSplitAnywhereInTheStream();
    void malformedLinesAreText();
    void errorsInWords_data();
    void errorsInWords();
    void numbersInWords();
    void estimateOfTimeLeft();
    void proposalsAndChecksForADamagedFile();
    void rescuePathRebuildsTheIndexFirst();
    void rescueFailureAndMissingProgram();

  private:
    TempDir home_;
};

void ProtocolTest::initTestCase() {
    for (const auto& [name, value] : kinefix_test::isolated_env(home_))
        qputenv(name.c_str(), QByteArray::fromStdString(value));
}

void ProtocolTest::linesSplitAnywhereInTheStream() {
    const QByteArray stream =
        "==============================\nKinefix (x)\nprogress:0.100000\nprogress:0.2\n"
        "pts:10 pts_time:0.4 dts:10 dts_time:0.4 duration:1 duration_time:0.04 stream_index:0\n"
        "error:ret=-22,msg=Invalid argument\r\nprogress:1.0\n"
        "summary:packets=120,ignored=3,duration=4.800,bytes=654321\nEnd\n";
    // Every split point of the stream gives the same events.
    for (int cut = 0; cut <= stream.size(); cut += 7) {
        ChildLineParser parser;
        QList<ChildEvent> events = parser.feed(stream.left(cut));
        events += parser.feed(stream.mid(cut));
        events += parser.finish();
        QCOMPARE(events.size(), 9);
        QCOMPARE(events[1].kind, Kind::Text);
        QCOMPARE(events[2].kind, Kind::Progress);
        QCOMPARE(events[2].value, 0.1);
        QCOMPARE(events[3].value, 0.2);
        QCOMPARE(events[4].kind, Kind::WriteError);
        QCOMPARE(events[5].kind, Kind::Error);
        QCOMPARE(events[5].code, -22);
        QCOMPARE(events[5].text, QStringLiteral("Invalid argument"));
        QCOMPARE(events[6].value, 1.0);
        QCOMPARE(events[7].kind, Kind::Summary);
        QCOMPARE(events[7].summary.packets, 120);
        QCOMPARE(events[7].summary.ignored, 3);
        QCOMPARE(events[7].summary.duration, 4.8);
        QCOMPARE(events[7].summary.bytes, 654321);
        QCOMPARE(events[8].kind, Kind::End);
    }
    // A last line without its end arrives when the child has gone.
    ChildLineParser parser;
    QVERIFY(parser.feed("[ERROR] version=7, parse failed").isEmpty());
    const QList<ChildEvent> last = parser.finish();
    QCOMPARE(last.size(), 1);
    QCOMPARE(last[0].kind, Kind::VersionError);
    QCOMPARE(last[0].code, 7);
    QVERIFY(parser.finish().isEmpty());
}

void ProtocolTest::malformedLinesAreText() {
    for (const char* line :
         {"progress:", "progress:abc", "progress:1.5", "progress:-0.1", "error:ret=x,msg=a",
          "error:ret=-5", "summary:packets=1", "summary:packets=1,ignored=2,duration=x,bytes=3",
          "[ERROR] version=, parse failed", "End ", "Progress:0.5"})
        QCOMPARE(ChildLineParser::parseLine(QString::fromLatin1(line)).kind, Kind::Text);
    const ChildEvent event = ChildLineParser::parseLine(
        QStringLiteral("error:ret=-1414092869,msg=interrupted by signal 2 at index line 40; "
                       "the packets copied so far were kept"));
    QCOMPARE(event.kind, Kind::Error);
    QCOMPARE(event.code, -1414092869);
}

// The messages kinefix writes (repair engine) and what a person reads instead.
void ProtocolTest::errorsInWords_data() {
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("stderr");
    QTest::addColumn<QString>("sentence");
    QTest::newRow("disk full") << "No space left on device" << false
                               << "The disk is full. Free some space and repair again.";
    QTest::newRow("too large") << "File too large" << false << "larger than its disk allows";
    QTest::newRow("timestamps") << "Invalid argument" << false << "timestamps out of order";
    QTest::newRow("same file") << "the output file is one of the input files" << false
                               << "would overwrite one of the inputs";
    QTest::newRow("pipe") << "input is not a regular file: /tmp/p" << false
                          << "/tmp/p is not an ordinary file";
    QTest::newRow("trailer") << "could not finish the output file: I/O error" << false
                             << "could not be completed (I/O error)";
    QTest::newRow("unknown") << "Something new" << false << "The repair reported: Something new";
    QTest::newRow("container") << "Could not create output context" << true
                               << "end the output's name with .mp4, .mov or .mkv";
    QTest::newRow("open") << "Error occurred: Permission denied" << true
                          << "could not be written: Permission denied";
    QTest::newRow("header") << "Error occurred when opening output file" << true
                            << "refused the streams";
    QTest::newRow("tool") << "kinefix-crypt: a path may not contain '\"': a\"b" << true
                          << "a path may not contain";
    QTest::newRow("muxer listing") << "Output #0, mp4, to 'x.mp4':" << true << "";
}

void ProtocolTest::errorsInWords() {
    QFETCH(QString, line);
    QFETCH(bool, stderr);
    QFETCH(QString, sentence);
    const QString said = stderr ? HumanText::stderrSentence(line) : HumanText::errorSentence(line);
    if (sentence.isEmpty())
        QCOMPARE(said, QString());
    else
        QVERIFY2(said.contains(sentence), qPrintable(said));
}

void ProtocolTest::numbersInWords() {
    QCOMPARE(HumanText::duration(1.64), QStringLiteral("1.6 s"));
    QCOMPARE(HumanText::duration(59.96), QStringLiteral("1 min 00 s"));
    QCOMPARE(HumanText::duration(125), QStringLiteral("2 min 05 s"));
    QCOMPARE(HumanText::duration(3 * 3600 + 7 * 60 + 59), QStringLiteral("3 h 07 min"));
    QCOMPARE(HumanText::size(999), QStringLiteral("999 bytes"));
    QCOMPARE(HumanText::size(12345), QStringLiteral("12.3 kB"));
    QCOMPARE(HumanText::size(1400000), QStringLiteral("1.40 MB"));
    QCOMPARE(HumanText::size(5368709120LL), QStringLiteral("5.37 GB"));
}

void ProtocolTest::estimateOfTimeLeft() {
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
    const QString a = QString::fromStdString(dir / "a.b.MP4");
    kinefix_test::write_file(dir / "a.b.MP4", "x");
    kinefix_test::write_file(dir / "a.b.idx", "x");
    kinefix_test::write_file(dir / "c", "x");
    RepairRequest request = RepairRequest::forDamaged(a);
    QCOMPARE(request.index, QString::fromStdString(dir / "a.b.idx"));
    QCOMPARE(request.output, QString::fromStdString(dir / "a.b-repaired.MP4"));
    QCOMPARE(request.problem(false), QString());

    RepairRequest bare = RepairRequest::forDamaged(QString::fromStdString(dir / "c"));
    QCOMPARE(bare.index, QString());
    QCOMPARE(bare.output, QString::fromStdString(dir / "c-repaired.mp4"));
    QCOMPARE(bare.problem(false), QStringLiteral("Choose the index file of c."));
    QVERIFY(bare.problem(true).contains("or a healthy recording"));
    bare.reference = a;
    QVERIFY(bare.rescue());
    QCOMPARE(bare.problem(true), QString());

    request.output = QString::fromStdString(dir / "sub/../a.b.idx");
    QVERIFY(request.problem(false).contains("would overwrite an input"));
    request.output = QString::fromStdString(dir / "say \"hi\".mp4");
    QVERIFY(request.problem(false).contains("double quote"));
    request.index = QString::fromStdString(dir / "missing.idx");
    QVERIFY(request.problem(false).contains("missing.idx is not a file"));
}

// kinefix-index stands in as a script (the rescue option is not the front end's to build): it
// must get the reference, the damaged file and where to write, then kinefix repairs with it.
void ProtocolTest::rescuePathRebuildsTheIndexFirst() {
    TempDir dir;
    const QString error = makeDamaged(dir, "clip", {}, dir / "prepared.idx");
    QVERIFY2(error.isEmpty(), qPrintable(error));
    const QString tools = QString::fromStdString(dir / "tools");
    QDir().mkpath(tools);
    for (const char* name : {"kinefix", "kinefix-crypt"})
        QFile::link(QString::fromStdString(kinefix_test::bin_dir()) + "/" + name,
                    tools + "/" + name);
    QVERIFY(writeScript(tools + "/kinefix-index",
                        QStringLiteral("[ \"$1\" = --help ] && { echo '  --reference HEALTHY'; "
                                       "exit 0; }\n"
                                       "printf '%s\\n' \"$@\" > '%1/args'\n"
                                       "echo progress:0.500000\n"
                                       "cp '%1/prepared.idx' \"$4\"\n"
                                       "echo progress:1.0\n")
                            .arg(QString::fromStdString(dir.str()))));
    RescueProbe probe;
    QSignalSpy answered(&probe, &RescueProbe::answered);
    probe.start(ToolLocator(tools));
    QVERIFY(answered.wait(10000));
    QCOMPARE(answered.at(0).at(0).toBool(), true);

    RepairJob job{ToolLocator(tools)};
    QSignalSpy steps(&job, &RepairJob::stepStarted);
    QSignalSpy progress(&job, &RepairJob::progressed);
    QSignalSpy finished(&job, &RepairJob::finished);
    RepairRequest request;
    request.damaged = QString::fromStdString(dir / "clip.mp4");
    request.reference = QString::fromStdString(dir / "clip.orig.mp4");
    request.output = QString::fromStdString(dir / "out.mkv");
    job.start(request);
    QVERIFY(finished.wait(30000));
    const auto outcome = finished.at(0).at(0).value<RepairOutcome>();
    QCOMPARE(outcome.status, RepairOutcome::Status::Repaired);
    QCOMPARE(steps.size(), 2);
    QVERIFY(steps.at(0).at(0).toString().contains("Rebuilding the index"));
    QVERIFY(steps.at(1).at(0).toString().contains("Copying the packets into out.mkv"));
    // The index step fills the first half of the bar, the copy the second.
    QCOMPARE(progress.at(0).at(0).toDouble(), 0.25);
    QCOMPARE(progress.at(1).at(0).toDouble(), 0.5);
    QVERIFY(progress.at(2).at(0).toDouble() > 0.5);
    QCOMPARE(progress.last().at(0).toDouble(), 1.0);
    const QStringList args = QString::fromStdString(kinefix_test::read_file(dir / "args"))
                                 .split('\n', Qt::SkipEmptyParts);
    QCOMPARE(args.size(), 5);
    QCOMPARE(args.mid(0, 3), QStringList({"--reference", request.reference, request.damaged}));
    QCOMPARE(args.at(4), QStringLiteral("--progress"));
    // The rebuilt index lived in a scratch folder of the job's and is gone with it.
    QVERIFY(!QFile::exists(args.at(3)));
    QCOMPARE(packetDifference(kinefix_test::frame_report(dir / "clip.orig.mp4", dir),
                              kinefix_test::frame_report(dir / "out.mkv", dir)),
             QString());
}

void ProtocolTest::rescueFailureAndMissingProgram() {
    TempDir dir;
    kinefix_test::write_file(dir / "d.mp4", "x");
    const QString tools = QString::fromStdString(dir.str());
    QVERIFY(writeScript(tools + "/kinefix-index",
                        "echo 'kinefix-index: the reference does not fit' >&2; exit 3\n"));
    RepairRequest request;
    request.damaged = QString::fromStdString(dir / "d.mp4");
    request.reference = request.damaged;
    request.output = QString::fromStdString(dir / "o.mp4");
    RepairJob job{ToolLocator(tools)};
    QSignalSpy finished(&job, &RepairJob::finished);
    job.start(request);
    QVERIFY(finished.wait(10000));
    auto outcome = finished.at(0).at(0).value<RepairOutcome>();
    QCOMPARE(outcome.status, RepairOutcome::Status::Failed);
    QVERIFY2(outcome.message.contains("does not fit this damaged one"),
             qPrintable(outcome.message));
    QCOMPARE(outcome.details, QStringList{"the reference does not fit"});
    QVERIFY(!job.running());

    // Found neither in the folder given nor on the PATH.
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", tools.toUtf8());
    request.reference.clear();
    request.index = request.damaged;
    job.start(request);
    QVERIFY(finished.wait(10000));
    qputenv("PATH", path);
    outcome = finished.at(1).at(0).value<RepairOutcome>();
    QCOMPARE(outcome.status, RepairOutcome::Status::Failed);
    QVERIFY2(outcome.message.startsWith("kinefix-crypt could not be started"),
             qPrintable(outcome.message));
}

QTEST_GUILESS_MAIN(ProtocolTest)
#include "protocol_test.moc"
