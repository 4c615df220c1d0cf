// The window driven through its own controls on the offscreen platform, with the real
// kinefix programs repairing real recordings (and a scripted stand-in where timing matters).
#include <QApplication>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
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
    void progressFollowsTheChildAndClosingAsksFirst();
    void badIndexShowsItsError();
    void droppedFilesFormAQueue();
    void rescuePathFollowsKinefixIndex();
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

    TempDir home_;
    ToolLocator tools_{QString::fromStdString(kinefix_test::bin_dir())};
};

// Children and settings write into a home of the test's own.
void MainWindowTest::initTestCase() {
    for (const auto& [name, value] : kinefix_test::isolated_env(home_))
        qputenv(name.c_str(), QByteArray::fromStdString(value));
    QStandardPaths::setTestModeEnabled(true);
}

// The index lies in another folder, so that each field's folder is remembered on its own.
void MainWindowTest::repairsARecordingTypedIntoTheFields() {
    TempDir dir;
    QCOMPARE(makeDamaged(dir, "clip", {}, home_ / "kept index.txt"), QString());
    {
        MainWindow w(tools_);
        w.show();
        w.resize(777, 555);
        type(w, "damaged", at(dir, "clip.mp4"));
        // No clip.idx beside it: the index field stays for the person to fill.
        QCOMPARE(control<PathField>(w, "index")->path(), QString());
        QCOMPARE(control<PathField>(w, "output")->path(), at(dir, "clip-repaired.mp4"));
        type(w, "index", at(home_, "kept index.txt"));
        type(w, "output", at(dir, "out.mov"));
        QVERIFY(repair(w));

        QCOMPARE(packetDifference(dir, "clip.orig.mp4", "out.mov"), QString());
        // The summary's counts are the file's.
        const size_t packets =
            kinefix_test::packet_count(kinefix_test::frame_report(dir / "out.mov", dir));
        const QRegularExpression said(
            QStringLiteral("^Repaired: %1 packets written, 0 index lines ignored; "
                           "[0-9.]+ s of video, [0-9.]+ [kM]B\\.$")
                .arg(packets));
        QVERIFY2(said.match(result(w)).hasMatch(), qPrintable(result(w)));
        QCOMPARE(control<QProgressBar>(w, "progress")->value(), 1000);
        for (const char* enabled : {"openResult", "showInFolder", "repair"})
            QVERIFY2(control<QPushButton>(w, enabled)->isEnabled(), enabled);
        QVERIFY(!control<QPushButton>(w, "cancel")->isEnabled());
        QVERIFY(w.close());
    }
    QSettings settings;
    QCOMPARE(settings.value("folders/damaged").toString(), QString::fromStdString(dir.str()));
    QCOMPARE(settings.value("folders/index").toString(), QString::fromStdString(home_.str()));
    MainWindow again(tools_);
    QCOMPARE(again.size(), QSize(777, 555));
}

// The stand-in speaks only when told to, so each state of the bar can be looked at; then it
// copies until interrupted and reports what it kept, as kinefix does.
void MainWindowTest::progressFollowsTheChildAndClosingAsksFirst() {
    TempDir dir;
    kinefix_test::write_file(dir / "a.mp4", "media");
    kinefix_test::write_file(dir / "a.idx", "#version=2\n");
    MainWindow w{ToolLocator(
        toolsWith(dir, "kinefix",
                  "trap 'echo summary:packets=3,ignored=0,duration=0.120,bytes=900; exit 130' INT\n"
                  "echo progress:0.250000\n"
                  "while [ ! -e \"$(dirname \"$0\")/go\" ]; do sleep 0.02; done\n"
                  "printf 'progress:0.75'\n"
                  "sleep 0.2; echo 0000\n"
                  "while true; do sleep 0.02; done\n"))};
    w.show();
    w.addFiles({at(dir, "a.mp4")});
    QSignalSpy finished(&w, &MainWindow::allFinished);
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    auto* bar = control<QProgressBar>(w, "progress");
    QTRY_COMPARE(bar->value(), 250);
    QCOMPARE(control<QListWidget>(w, "queue")->item(0)->text(),
             QStringLiteral("a.mp4 — repairing, 25 %"));
    const QString status = control<QLabel>(w, "status")->text();
    QVERIFY2(status.startsWith("25 % — Copying the packets into a-repaired.mp4 — 0:0"),
             qPrintable(status));
    QVERIFY(!control<QPushButton>(w, "repair")->isEnabled());
    QVERIFY(control<QPushButton>(w, "cancel")->isEnabled());
    QVERIFY(!control<PathField>(w, "output")->isEnabled());
    kinefix_test::write_file(dir / "tools/go", "");
    // Half a line is not a line: the bar waits for its end.
    QTest::qWait(100);
    QCOMPARE(bar->value(), 250);
    QTRY_COMPARE(bar->value(), 750);

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
    QVERIFY(!finished.wait(300));  // the repair goes on
    QTest::mouseClick(control<QPushButton>(w, "cancel"), Qt::LeftButton);
    QVERIFY(finished.wait(10000));
    QCOMPARE(result(w), QStringLiteral("Repair cancelled. The first 3 packets (0.1 s, 900 bytes) "
                                       "were kept in a-repaired.mp4; that part plays."));
    QCOMPARE(control<QListWidget>(w, "queue")->item(0)->text(),
             QStringLiteral("a.mp4 — cancelled"));

    // A cancelled recording runs again; closing with Yes stops it and goes once it has.
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    QTRY_COMPARE(bar->value(), 750);
    answer(QMessageBox::Yes);
    w.close();
    QVERIFY(finished.wait(10000));
    QTRY_VERIFY(!w.isVisible());
}

void MainWindowTest::badIndexShowsItsError() {
    TempDir dir;
    QCOMPARE(makeDamaged(dir, "clip", {}, dir / "clip.idx"), QString());
    MainWindow w(tools_);
    w.show();
    w.addFiles({at(dir, "clip.mp4")});

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
    QVERIFY(!QFile::exists(at(dir, "clip-repaired.mp4")));

    // The output's name chooses no container: kinefix's standard error, in words.
    kinefix_test::write_file(dir / "clip.idx", text);
    type(w, "output", at(dir, "clip.fixed"));
    QVERIFY(repair(w));
    QVERIFY2(result(w).contains("end the output's name with .mp4"), qPrintable(result(w)));

    // Checks before any program runs.
    type(w, "output", at(dir, "clip.mp4"));
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    QVERIFY(!w.repairing());
    QVERIFY2(result(w).contains("would overwrite an input"), qPrintable(result(w)));
}

void MainWindowTest::droppedFilesFormAQueue() {
    TempDir dir;
    kinefix_test::RecordingPlan plan;
    for (const char* name : {"first", "second"}) {
        QCOMPARE(makeDamaged(dir, name, plan, dir / (std::string(name) + ".idx")), QString());
        plan.bframes = false;
    }
    MainWindow w(tools_);
    w.show();
    QMimeData data;
    data.setUrls(
        {QUrl::fromLocalFile(at(dir, "first.mp4")), QUrl::fromLocalFile(at(dir, "second.mp4"))});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&w, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&w, &drop);

    auto* list = control<QListWidget>(w, "queue");
    QCOMPARE(list->count(), 2);
    QCOMPARE(control<PathField>(w, "damaged")->path(), at(dir, "first.mp4"));
    QCOMPARE(control<PathField>(w, "index")->path(), at(dir, "first.idx"));
    list->setCurrentRow(1);
    QCOMPARE(control<PathField>(w, "output")->path(), at(dir, "second-repaired.mp4"));

    QVERIFY(repair(w));
    QCOMPARE(list->item(0)->text(), QStringLiteral("first.mp4 — repaired"));
    QCOMPARE(list->item(1)->text(), QStringLiteral("second.mp4 — repaired"));
    const QString status = control<QLabel>(w, "status")->text();
    QVERIFY2(status.startsWith("2 of 2 recordings repaired, 0 failed; 0:0"), qPrintable(status));
    for (const std::string name : {"first", "second"})
        QCOMPARE(packetDifference(dir, name + ".orig.mp4", name + "-repaired.mp4"), QString());
    // Pressing Repair again has nothing left to do.
    QTest::mouseClick(control<QPushButton>(w, "repair"), Qt::LeftButton);
    QVERIFY(!w.repairing());
    QVERIFY(result(w).contains("already repaired"));
}

// Whether the choice is offered is asked of kinefix-index. A stand-in that knows --reference
// refuses any reference but the healthy one, for which it hands over an index made beforehand,
// so the rescue path is seen failing and then going to its end.
void MainWindowTest::rescuePathFollowsKinefixIndex() {
    TempDir dir;
    QCOMPARE(makeDamaged(dir, "clip", {}, dir / "prepared.idx"), QString());
    const QString tools = toolsWith(
        dir, "kinefix-index",
        QStringLiteral("[ \"$1\" = --help ] && { echo '  --reference HEALTHY'; exit 0; }\n"
                       "[ \"$2\" = '%1/clip.orig.mp4' ] || "
                       "{ echo 'kinefix-index: the reference does not fit' >&2; exit 3; }\n"
                       "printf '%s\\n' \"$@\" > '%1/args'\n"
                       "echo progress:0.500000\n"
                       "cp '%1/prepared.idx' \"$4\"\n"
                       "echo progress:1.0\n")
            .arg(QString::fromStdString(dir.str())));
    MainWindow w{ToolLocator(tools)};
    w.show();
    QSignalSpy answered(&w, &MainWindow::rescueAnswered);
    QVERIFY(answered.wait(10000));
    auto* use_reference = control<QRadioButton>(w, "useReference");
    QVERIFY(use_reference->isVisible());
    w.addFiles({at(dir, "clip.mp4")});
    QVERIFY(control<PathField>(w, "index")->isVisible());
    QVERIFY(!control<PathField>(w, "reference")->isVisible());
    QTest::mouseClick(use_reference, Qt::LeftButton);
    QVERIFY(!control<PathField>(w, "index")->isVisible());
    QVERIFY(control<PathField>(w, "reference")->isVisible());
    type(w, "reference", at(dir, "clip.mp4"));
    QVERIFY(repair(w));
    QVERIFY2(result(w).endsWith("with the same settings. the reference does not fit"),
             qPrintable(result(w)));
    type(w, "reference", at(dir, "clip.orig.mp4"));
    QList<QPair<int, QString>> bar;  // each value the bar took, with the status line then
    connect(control<QProgressBar>(w, "progress"), &QProgressBar::valueChanged, &w, [&](int value) {
        bar.append({value, control<QLabel>(w, "status")->text()});
    });
    QVERIFY(repair(w));

    QVERIFY2(result(w).startsWith("Repaired: "), qPrintable(result(w)));
    QCOMPARE(packetDifference(dir, "clip.orig.mp4", "clip-repaired.mp4"), QString());
    const QStringList args = QString::fromStdString(kinefix_test::read_file(dir / "args"))
                                 .split('\n', Qt::SkipEmptyParts);
    QCOMPARE(args, QStringList({"--reference", at(dir, "clip.orig.mp4"), at(dir, "clip.mp4"),
                                args.value(3), "--progress"}));
    // The rebuilt index lived in a scratch folder of the job's and is gone with it.
    QVERIFY(!QFile::exists(args.at(3)));
    // The index step fills the first half of the bar, the copy the second.
    QVERIFY(bar.size() > 3);
    QCOMPARE(bar[0].first, 250);
    QVERIFY2(bar[0].second.contains("Rebuilding the index"), qPrintable(bar[0].second));
    QCOMPARE(bar[1].first, 500);
    QVERIFY(bar[2].first > 500);
    QVERIFY2(bar[2].second.contains("Copying the packets into clip-repaired.mp4"),
             qPrintable(bar[2].second));
    QCOMPARE(bar.last().first, 1000);
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
