// The window driven through its own controls on the offscreen platform, with the real
// kinefix programs repairing real recordings (and a scripted stand-in where timing matters).
#include <QApplication>
#include <QDir>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include "gui_test_support.h"
#include "main_window.h"
#include "path_field.h"

using namespace kinefix_gui_test;

class MainWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase();
    void repairsARecordingTypedIntoTheFields();
    void progressBarFollowsTheChildsLines();
    void badIndexShowsItsError();
    void cancelKeepsAPlayablePartial();
    void droppedFilesFormAQueue();
    void referenceChoiceFollowsKinefixIndex();
    void closingDuringARepairAsksFirst();
    void remembersFoldersAndGeometry();
    void keyboardReachesEveryControl();

  private:
    template <typename T>
    static T* control(MainWindow& w, const char* name) {
        T* found = w.findChild<T*>(QLatin1String(name));
        if (!found) qFatal("no control %s", name);
        return found;
    }
    static void type(MainWindow& w, const char* field, const QString& text) {
        QLineEdit* edit = control<PathField>(w, field)->edit();
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Delete);
        QTest::keyClicks(edit, text);
    }
    // The message as a screen reader gets it: plain text.
    static QString result(MainWindow& w) {
        return control<QLabel>(w, "result")->accessibleDescription();
    }
    // Runs the queue as the Repair button starts it, up to its end.
    static bool repair(MainWindow& w, int timeout_ms = 60000) {
        QSignalSpy finished(&w, &MainWindow::allFinished);
        QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
        return finished.wait(timeout_ms);
    }
    // Tools directory with kinefix replaced by `script`; the others are the built ones.
    static QString fakeTools(const TempDir& dir, const QString& script) {
        const QString tools = QString::fromStdString(dir / "tools");
        QDir().mkpath(tools);
        for (const char* name : {"kinefix-index", "kinefix-crypt"})
            QFile::link(QString::fromStdString(kinefix_test::bin_dir()) + "/" + name,
                        tools + "/" + name);
        writeScript(tools + "/kinefix", script);
        return tools;
    }

    TempDir home_;
    ToolLocator tools_{QString::fromStdString(kinefix_test::bin_dir())};
};

// Children and settings write into a home of the test's own.
void MainWindowTest::initTestCase() {
    for (const auto& [name, value] : kinefix_test::isolated_env(home_))
        qputenv(name.c_str(), QByteArray::fromStdString(value));
    QStandardPaths::setTestModeEnabled(true);
}

void MainWindowTest::repairsARecordingTypedIntoTheFields() {
    TempDir dir;
    const QString error = makeDamaged(dir, "clip", {}, dir / "kept index.txt");
    QVERIFY2(error.isEmpty(), qPrintable(error));
    MainWindow w(tools_);
    w.show();
    type(w, "damaged", QString::fromStdString(dir / "clip.mp4"));
    // No clip.idx beside it: the index field stays for the person to fill.
    QCOMPARE(control<PathField>(w, "index")->path(), QString());
    QCOMPARE(control<PathField>(w, "output")->path(),
             QString::fromStdString(dir / "clip-repaired.mp4"));
    type(w, "index", QString::fromStdString(dir / "kept index.txt"));
    type(w, "output", QString::fromStdString(dir / "out.mov"));
    QVERIFY(repair(w));

    QVERIFY2(result(w).contains("Repaired: "), qPrintable(result(w)));
    QVERIFY2(result(w).contains(" 0 index lines ignored"), qPrintable(result(w)));
    QCOMPARE(control<QProgressBar>(w, "progress")->value(), 1000);
    QVERIFY(control<QPushButton>(w, "openResult")->isEnabled());
    QVERIFY(control<QPushButton>(w, "showInFolder")->isEnabled());
    QVERIFY(control<QPushButton>(w, "repair")->isEnabled());
    QVERIFY(!control<QPushButton>(w, "cancel")->isEnabled());
    const FrameReport original = kinefix_test::frame_report(dir / "clip.orig.mp4", dir);
    const FrameReport repaired = kinefix_test::frame_report(dir / "out.mov", dir);
    QCOMPARE(packetDifference(original, repaired), QString());
    // The summary's counts are the file's.
    QVERIFY2(result(w).contains(QStringLiteral("%1 packets written").arg(packetCount(original))),
             qPrintable(result(w)));
}

// The stand-in speaks only when told to, so each state of the bar can be looked at.
void MainWindowTest::progressBarFollowsTheChildsLines() {
    TempDir dir;
    const QString tools = fakeTools(dir,
                                    "d=$(dirname \"$0\")\n"
                                    "echo progress:0.250000\n"
                                    "while [ ! -e \"$d/go\" ]; do sleep 0.02; done\n"
                                    "printf 'progress:0.75'\n"
                                    "sleep 0.2; echo 0000\n"
                                    "while [ ! -e \"$d/go2\" ]; do sleep 0.02; done\n"
                                    "echo progress:1.0\n"
                                    "echo summary:packets=40,ignored=2,duration=1.600,bytes=12345\n"
                                    "echo End\n");
    kinefix_test::write_file(dir / "a.mp4", "media");
    kinefix_test::write_file(dir / "a.idx", "#version=2\n");
    MainWindow w{ToolLocator(tools)};
    w.show();
    w.addFiles({QString::fromStdString(dir / "a.mp4")});
    QCOMPARE(control<PathField>(w, "index")->path(), QString::fromStdString(dir / "a.idx"));
    QSignalSpy finished(&w, &MainWindow::allFinished);
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    auto* bar = control<QProgressBar>(w, "progress");
    auto* list = control<QListWidget>(w, "queue");
    QTRY_COMPARE(bar->value(), 250);
    QCOMPARE(list->item(0)->text(), QStringLiteral("a.mp4 — repairing, 25 %"));
    QVERIFY2(control<QLabel>(w, "status")
                 ->text()
                 .startsWith("25 % — Copying the packets into "
                             "a-repaired.mp4 — 0:0"),
             qPrintable(control<QLabel>(w, "status")->text()));
    QVERIFY(!control<QPushButton>(w, "repair")->isEnabled());
    QVERIFY(control<QPushButton>(w, "cancel")->isEnabled());
    QVERIFY(!control<PathField>(w, "output")->isEnabled());
    kinefix_test::write_file(dir / "tools/go", "");
    // Half a line is not a line: the bar waits for its end.
    QTest::qWait(100);
    QCOMPARE(bar->value(), 250);
    QTRY_COMPARE(bar->value(), 750);
    kinefix_test::write_file(dir / "tools/go2", "");
    QVERIFY(finished.wait(10000));
    QCOMPARE(bar->value(), 1000);
    QCOMPARE(list->item(0)->text(), QStringLiteral("a.mp4 — repaired"));
    QCOMPARE(result(w), QStringLiteral("Repaired: 40 packets written, 2 index lines ignored; "
                                       "1.6 s of video, 12.3 kB."));
}

void MainWindowTest::badIndexShowsItsError() {
    TempDir dir;
    const QString error = makeDamaged(dir, "clip", {}, dir / "clip.idx");
    QVERIFY2(error.isEmpty(), qPrintable(error));
    MainWindow w(tools_);
    w.show();
    w.addFiles({QString::fromStdString(dir / "clip.mp4")});

    // An index of a format version kinefix does not know.
    std::string text = kinefix_test::read_file(dir / "clip.idx");
    kinefix_test::write_file(dir / "clip.idx", "#version=7" + text.substr(text.find('\n')));
    QVERIFY(repair(w));
    QVERIFY2(result(w).contains("not one Kinefix reads (format version 7)"), qPrintable(result(w)));
    QCOMPARE(control<QListWidget>(w, "queue")->item(0)->text(),
             QStringLiteral("clip.mp4 — failed"));
    QVERIFY(!control<QPushButton>(w, "openResult")->isEnabled());

    // An index without stream lines: kinefix writes nothing and says so only in its log.
    kinefix_test::write_file(dir / "clip.idx", "#version=2\n,48,6760,,-1024,512,1;\n");
    QVERIFY(repair(w));
    QVERIFY2(result(w).contains("No video could be rebuilt"), qPrintable(result(w)));
    QVERIFY(!QFile::exists(QString::fromStdString(dir / "clip-repaired.mp4")));

    // The output's name chooses no container: kinefix's standard error, in words.
    kinefix_test::write_file(dir / "clip.idx", text);
    type(w, "output", QString::fromStdString(dir / "clip.fixed"));
    QVERIFY(repair(w));
    QVERIFY2(result(w).contains("end the output's name with .mp4"), qPrintable(result(w)));

    // Checks before any program runs.
    type(w, "output", QString::fromStdString(dir / "clip.mp4"));
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    QVERIFY(!w.repairing());
    QVERIFY2(result(w).contains("would overwrite an input"), qPrintable(result(w)));
}

// A long index (the recording listed many times over) keeps kinefix copying for a while;
// Cancel is pressed as soon as the first progress line has moved the bar.
void MainWindowTest::cancelKeepsAPlayablePartial() {
    // About a second of copying on an idle machine, so the interruption always finds it running.
    constexpr int kRepeats = 1500;
    TempDir dir;
    kinefix_test::RecordingPlan plan;
    plan.video = false;
    plan.seconds = 8.0;
    const QString error = makeDamaged(dir, "long", plan, dir / "once.idx");
    QVERIFY2(error.isEmpty(), qPrintable(error));
    std::string header;
    std::string body;
    for (const std::string& line :
         kinefix_test::lines_of(kinefix_test::read_file(dir / "once.idx")))
        (line[0] == '#' || line[0] == '{' ? header : body) += line + "\n";
    std::string text = header;
    for (int i = 0; i < kRepeats; ++i) text += body;
    kinefix_test::write_file(dir / "long.idx", text);

    MainWindow w(tools_);
    w.show();
    w.addFiles({QString::fromStdString(dir / "long.mp4")});
    auto* cancel = control<QPushButton>(w, "cancel");
    connect(control<QProgressBar>(w, "progress"), &QProgressBar::valueChanged, cancel,
            [cancel](int value) {
                if (value > 0 && cancel->isEnabled()) cancel->click();
            });
    QVERIFY(repair(w));

    QVERIFY2(result(w).startsWith("Repair cancelled. The first "), qPrintable(result(w)));
    QVERIFY2(result(w).contains("were kept in long-repaired.mp4; that part plays."),
             qPrintable(result(w)));
    QCOMPARE(control<QListWidget>(w, "queue")->item(0)->text(),
             QStringLiteral("long.mp4 — cancelled"));
    QVERIFY(control<QPushButton>(w, "openResult")->isEnabled());
    const std::string out = dir / "long-repaired.mp4";
    QCOMPARE(QString::fromStdString(kinefix_test::decode_errors(out, dir)), QString());
    const FrameReport partial = kinefix_test::frame_report(out, dir);
    const FrameReport once = kinefix_test::frame_report(dir / "long.orig.mp4", dir);
    QVERIFY(partial.ok);
    QVERIFY2(packetCount(partial) < packetCount(once) * kRepeats, "the copy was not stopped");
    // What was kept is the recording's beginning, packet for packet.
    FrameReport head = partial;
    for (auto& [index, packets] : head.streams)
        if (packets.size() > once.streams.at(index).size())
            packets.resize(once.streams.at(index).size());
    QCOMPARE(packetDifference(once, head, true), QString());
}

void MainWindowTest::droppedFilesFormAQueue() {
    TempDir dir;
    kinefix_test::RecordingPlan plan;
    for (const char* name : {"first", "second"}) {
        const QString error = makeDamaged(dir, name, plan, dir / (std::string(name) + ".idx"));
        QVERIFY2(error.isEmpty(), qPrintable(error));
        plan.bframes = false;
    }
    MainWindow w(tools_);
    w.show();
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromStdString(dir / "first.mp4")),
                  QUrl::fromLocalFile(QString::fromStdString(dir / "second.mp4"))});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&w, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&w, &drop);

    auto* list = control<QListWidget>(w, "queue");
    QCOMPARE(list->count(), 2);
    QCOMPARE(control<PathField>(w, "damaged")->path(), QString::fromStdString(dir / "first.mp4"));
    QCOMPARE(control<PathField>(w, "index")->path(), QString::fromStdString(dir / "first.idx"));
    list->setCurrentRow(1);
    QCOMPARE(control<PathField>(w, "output")->path(),
             QString::fromStdString(dir / "second-repaired.mp4"));

    QVERIFY(repair(w));
    QCOMPARE(list->item(0)->text(), QStringLiteral("first.mp4 — repaired"));
    QCOMPARE(list->item(1)->text(), QStringLiteral("second.mp4 — repaired"));
    QVERIFY2(control<QLabel>(w, "status")
                 ->text()
                 .startsWith("2 of 2 recordings repaired, 0 failed; 0:0"),
             qPrintable(control<QLabel>(w, "status")->text()));
    for (const std::string name : {"first", "second"}) {
        const FrameReport original = kinefix_test::frame_report(dir / (name + ".orig.mp4"), dir);
        const FrameReport repaired =
            kinefix_test::frame_report(dir / (name + "-repaired.mp4"), dir);
        QCOMPARE(packetDifference(original, repaired), QString());
    }
    // Pressing Repair again has nothing left to do.
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    QVERIFY(!w.repairing());
    QVERIFY(result(w).contains("already repaired"));
}

// The built kinefix-index decides whether the choice is offered; a stand-in that knows
// --reference (it hands over an index made beforehand) takes the rescue path to its end.
void MainWindowTest::referenceChoiceFollowsKinefixIndex() {
    TempDir dir;
    const QString error = makeDamaged(dir, "clip", {}, dir / "prepared.idx");
    QVERIFY2(error.isEmpty(), qPrintable(error));
    const kinefix_test::RunResult help =
        kinefix_test::run(kinefix_test::bin_dir() + "/kinefix-index", {"--help"}, {}, dir);
    const bool built_has_it = (help.out + help.err).find("--reference") != std::string::npos;
    {
        MainWindow w(tools_);
        w.show();
        QSignalSpy answered(&w, &MainWindow::rescueAnswered);
        QVERIFY(answered.wait(10000));
        QCOMPARE(control<QRadioButton>(w, "useReference")->isVisible(), built_has_it);
    }
    const QString tools = QString::fromStdString(dir / "tools");
    QDir().mkpath(tools);
    for (const char* name : {"kinefix", "kinefix-crypt"})
        QFile::link(QString::fromStdString(kinefix_test::bin_dir()) + "/" + name,
                    tools + "/" + name);
    QVERIFY(writeScript(tools + "/kinefix-index",
                        QStringLiteral("[ \"$1\" = --help ] && { echo '--reference HEALTHY'; "
                                       "exit 0; }\n"
                                       "[ \"$2\" = '%1/clip.orig.mp4' ] || exit 1\n"
                                       "cp '%1/prepared.idx' \"$4\"\n")
                            .arg(QString::fromStdString(dir.str()))));
    MainWindow w{ToolLocator(tools)};
    w.show();
    QSignalSpy answered(&w, &MainWindow::rescueAnswered);
    QVERIFY(answered.wait(10000));
    auto* use_reference = control<QRadioButton>(w, "useReference");
    QVERIFY(use_reference->isVisible());
    w.addFiles({QString::fromStdString(dir / "clip.mp4")});
    QVERIFY(control<PathField>(w, "index")->isVisible());
    QVERIFY(!control<PathField>(w, "reference")->isVisible());
    QTest::mouseClick(use_reference, Qt::LeftButton);
    QVERIFY(!control<PathField>(w, "index")->isVisible());
    QVERIFY(control<PathField>(w, "reference")->isVisible());
    type(w, "reference", QString::fromStdString(dir / "clip.orig.mp4"));
    QVERIFY(repair(w));
    QVERIFY2(result(w).startsWith("Repaired: "), qPrintable(result(w)));
    QCOMPARE(packetDifference(kinefix_test::frame_report(dir / "clip.orig.mp4", dir),
                              kinefix_test::frame_report(dir / "clip-repaired.mp4", dir)),
             QString());
}

// The stand-in copies until interrupted and then reports what it kept, as kinefix does.
void MainWindowTest::closingDuringARepairAsksFirst() {
    TempDir dir;
    const QString tools = fakeTools(dir,
                                    "trap 'echo summary:packets=3,ignored=0,duration=0.120,"
                                    "bytes=900; exit 130' INT\n"
                                    "echo progress:0.100000\n"
                                    "while true; do sleep 0.02; done\n");
    kinefix_test::write_file(dir / "a.mp4", "media");
    kinefix_test::write_file(dir / "a.idx", "#version=2\n");
    MainWindow w{ToolLocator(tools)};
    w.show();
    w.addFiles({QString::fromStdString(dir / "a.mp4")});
    QSignalSpy finished(&w, &MainWindow::allFinished);
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    QTRY_COMPARE(control<QProgressBar>(w, "progress")->value(), 100);

    QString asked;
    auto answer = [&asked](QMessageBox::StandardButton button) {
        QTimer::singleShot(50, [&asked, button] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) return;
            asked = box->text();
            box->button(button)->click();
        });
    };
    answer(QMessageBox::No);
    QVERIFY(!w.close());
    QVERIFY(asked.contains("A repair is running"));
    QVERIFY(w.repairing());
    QVERIFY(w.isVisible());

    answer(QMessageBox::Yes);
    w.close();
    QVERIFY(finished.wait(10000));
    QTRY_VERIFY(!w.isVisible());
    QVERIFY2(result(w).contains("Repair cancelled. The first 3 packets (0.1 s, 900 bytes)"),
             qPrintable(result(w)));
}

void MainWindowTest::remembersFoldersAndGeometry() {
    TempDir dir;
    kinefix_test::write_file(dir / "a.mp4", "media");
    kinefix_test::write_file(home_ / "a.idx", "not an index");
    {
        MainWindow w(tools_);
        w.show();
        w.resize(777, 555);
        w.addFiles({QString::fromStdString(dir / "a.mp4")});
        type(w, "index", QString::fromStdString(home_ / "a.idx"));
        QVERIFY(repair(w));
        QVERIFY(w.close());
    }
    QSettings settings;
    QCOMPARE(settings.value("folders/damaged").toString(), QString::fromStdString(dir.str()));
    QCOMPARE(settings.value("folders/index").toString(), QString::fromStdString(home_.str()));
    MainWindow again(tools_);
    QCOMPARE(again.size(), QSize(777, 555));
}

// Mnemonics move to the fields, Tab visits every enabled control, each one has a name.
void MainWindowTest::keyboardReachesEveryControl() {
    MainWindow w(tools_);
    w.show();
    w.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    QTest::keyClick(&w, Qt::Key_O, Qt::AltModifier);
    QCOMPARE(QApplication::focusWidget(), control<PathField>(w, "output")->edit());
    QTest::keyClick(&w, Qt::Key_D, Qt::AltModifier);
    QCOMPARE(QApplication::focusWidget(), control<PathField>(w, "damaged")->edit());

    QList<QWidget*> visited;
    for (int i = 0; i < 40 && !visited.contains(QApplication::focusWidget()); ++i) {
        visited.append(QApplication::focusWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    QList<QWidget*> expected;
    for (const char* name : {"damaged", "index", "output"})
        expected << control<PathField>(w, name)->edit()
                 << control<PathField>(w, name)->browseButton();
    expected << control<QPushButton>(w, "repair");
    for (QWidget* widget : expected) {
        QVERIFY2(visited.contains(widget), qPrintable(widget->accessibleName()));
        const auto* button = qobject_cast<QPushButton*>(widget);
        QVERIFY(!widget->accessibleName().isEmpty() || (button && !button->text().isEmpty()));
    }
    // Enter in a field presses the default button: Repair.
    QTest::keyClick(control<PathField>(w, "damaged")->edit(), Qt::Key_Return);
    QVERIFY(result(w).contains("Choose the damaged recording."));
}

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
