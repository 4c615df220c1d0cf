// MainWindow: controls, their layout and the wiring to RepairQueue; no repair logic of its own.
#include "main_window.h"

#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

#include "path_field.h"
#include "queue_view.h"
#include "request_form.h"
#include "repair_queue.h"
#include "rescue_probe.h"

namespace {

constexpr int kProgressSteps = 1000;

}  // namespace

MainWindow::MainWindow(const ToolLocator& tools, QWidget* parent)
    : QMainWindow(parent),
      tools_(tools),
      queue_(new RepairQueue(tools, this)),
      clock_(new QTimer(this)),
      settings_(new QSettings(this)) {
    setWindowTitle(tr("Kinefix – repair a damaged recording"));
    setAcceptDrops(true);
    buildControls();

    clock_->setInterval(1000);
    connect(clock_, &QTimer::timeout, this, &MainWindow::tick);
    connect(queue_, &RepairQueue::jobStarted, this, [this](int position) {
        const int row = running_rows_.at(position);
        rows_[row].state = RowState::Running;
        rows_[row].progress = 0.0;
        refreshItem(row);
        selectRow(row);
        estimate_.start();
        progress_->setValue(0);
        tick();
    });
    connect(queue_, &RepairQueue::jobStepStarted, this, [this](int, const QString& text) {
        step_text_ = text;
        tick();
    });
    connect(queue_, &RepairQueue::jobProgressed, this, [this](int position, double fraction) {
        const int row = running_rows_.at(position);
        const int before = qRound(rows_[row].progress * 100);
        rows_[row].progress = fraction;
        estimate_.update(fraction);
        // kinefix reports every ten index lines: thousands of times a second on a fast disk.
        const int value = qRound(fraction * kProgressSteps);
        if (value == progress_->value()) return;
        progress_->setValue(value);
        if (qRound(fraction * 100) != before) refreshItem(row);
        tick();
    });
    connect(queue_, &RepairQueue::jobFinished, this,
            [this](int position, const RepairOutcome& outcome) {
                const int row = running_rows_.at(position);
                Row& r = rows_[row];
                r.outcome = outcome;
                r.state = outcome.status == RepairOutcome::Status::Repaired ? RowState::Repaired
                          : outcome.status == RepairOutcome::Status::Failed ? RowState::Failed
                                                                            : RowState::Cancelled;
                refreshItem(row);
                if (r.state == RowState::Repaired) progress_->setValue(kProgressSteps);
                showRow(row);
            });
    connect(queue_, &RepairQueue::allFinished, this, [this](int repaired, int failed, bool) {
        setRunning(false);
        const QString took = ProgressEstimate::clock(queue_clock_.elapsed() / 1000);
        status_->setText(running_rows_.size() > 1
                             ? tr("%1 of %2 recordings repaired, %3 failed; %4 in all.")
                                   .arg(repaired)
                                   .arg(running_rows_.size())
                                   .arg(failed)
                                   .arg(took)
                             : tr("Ended after %1.").arg(took));
        emit allFinished();
        if (close_when_done_) close();
    });

    auto* probe = new RescueProbe(this);
    connect(probe, &RescueProbe::answered, this, &MainWindow::setRescueAvailable);
    probe->start(tools_);

    if (!restoreGeometry(settings_->value(QStringLiteral("window/geometry")).toByteArray()))
        resize(fontMetrics().averageCharWidth() * 110, sizeHint().height());
    for (PathField* f : form_->fields())
        f->setStartFolder(folder(f->objectName().toLatin1().constData()));
    setRunning(false);
    showRow(-1);
}

MainWindow::~MainWindow() = default;

void MainWindow::buildControls() {
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);

    auto* list_label = new QLabel(tr("Recordings to repai&r (drop damaged files here):"));
    queue_view_ = new QueueView;
    list_ = queue_view_->list();
    list_label->setBuddy(list_);
    connect(list_, &QListWidget::currentRowChanged, this, &MainWindow::showRow);
    layout->addWidget(list_label);
    layout->addWidget(queue_view_, 1);

    form_ = new RequestForm;
    layout->addWidget(form_);
    connect(form_, &RequestForm::edited, this, &MainWindow::storeField);
    // Enter in a field does what a dialog's default button would.
    for (PathField* f : form_->fields())
        connect(f->edit(), &QLineEdit::returnPressed, this, &MainWindow::startRepair);
    connect(form_, &RequestForm::damagedChosen, this,
            [this](const QStringList& paths) { addFiles(paths.mid(1)); });

    progress_ = new QProgressBar;
    progress_->setObjectName(QStringLiteral("progress"));
    progress_->setAccessibleName(tr("Repair progress"));
    progress_->setRange(0, kProgressSteps);
    // The percentage is in the status line: drawn across the bar's edge it is hard to read.
    progress_->setTextVisible(false);
    status_ = new QLabel;
    status_->setObjectName(QStringLiteral("status"));
    result_ = new QLabel;
    result_->setObjectName(QStringLiteral("result"));
    result_->setWordWrap(true);
    result_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    result_->setMinimumHeight(result_->fontMetrics().height() * 3);
    result_->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    layout->addWidget(progress_);
    layout->addWidget(status_);
    layout->addWidget(result_);

    auto* buttons = new QHBoxLayout;
    open_ = new QPushButton(tr("Open res&ult"));
    show_folder_ = new QPushButton(tr("Show in &folder"));
    cancel_ = new QPushButton(tr("Cance&l"));
    repair_ = new QPushButton(tr("Re&pair"));
    open_->setObjectName(QStringLiteral("openResult"));
    show_folder_->setObjectName(QStringLiteral("showInFolder"));
    cancel_->setObjectName(QStringLiteral("cancel"));
    repair_->setObjectName(QStringLiteral("repair"));
    repair_->setDefault(true);
    buttons->addWidget(open_);
    buttons->addWidget(show_folder_);
    buttons->addStretch(1);
    buttons->addWidget(cancel_);
    buttons->addWidget(repair_);
    layout->addLayout(buttons);
    connect(repair_, &QPushButton::clicked, this, &MainWindow::startRepair);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        queue_->cancel();
        cancel_->setEnabled(false);
        step_text_ = tr("Stopping: finishing what was copied so far");
        tick();
    });
    connect(open_, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(QUrl::fromLocalFile(selectedOutput())); });
    connect(show_folder_, &QPushButton::clicked, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(selectedOutput()).absolutePath()));
    });

    setCentralWidget(central);
}

void MainWindow::addFiles(const QStringList& paths) {
    int first_new = -1;
    for (const QString& given : paths) {
        const QString path = QFileInfo(given).absoluteFilePath();
        if (path.endsWith(QLatin1String(".idx"), Qt::CaseInsensitive) && selected_ >= 0) {
            rows_[selected_].request.index = path;
            rows_[selected_].use_reference = false;
            continue;
        }
        bool known = false;
        for (const Row& row : rows_) known = known || row.request.damaged == path;
        if (known) continue;
        Row row;
        row.request = RepairRequest::forDamaged(path);
        rows_.append(row);
        list_->addItem(QString());
        refreshItem(static_cast<int>(rows_.size()) - 1);
        if (first_new < 0) first_new = static_cast<int>(rows_.size()) - 1;
        rememberFolder("damaged", path);
    }
    if (first_new >= 0)
        selectRow(first_new);
    else
        showRow(selected_);
}

bool MainWindow::repairing() const {
    return queue_->running();
}

void MainWindow::selectRow(int row) {
    if (list_->currentRow() != row)
        list_->setCurrentRow(row);
    else
        showRow(row);
}

// Fills the fields and the message area from one queued recording.
void MainWindow::showRow(int row) {
    selected_ = row;
    const Row empty;
    const Row& r = row >= 0 && row < rows_.size() ? rows_.at(row) : empty;
    form_->setRequest(r.request, r.use_reference);
    if (r.state == RowState::Waiting || r.state == RowState::Running) {
        // A guide, not a message: in the status line, in plain type.
        if (!repairing()) {
            showMessage(QString());
            status_->setText(row >= 0 ? QString()
                                      : tr("Choose the damaged recording, its index file and "
                                           "where to write the repaired video, then press "
                                           "Repair."));
        }
        if (r.state == RowState::Waiting) progress_->setValue(0);
    } else {
        showOutcome(r.outcome);
        progress_->setValue(qRound(r.progress * kProgressSteps));
    }
    const bool has_output = (r.state == RowState::Repaired ||
                             (r.state == RowState::Cancelled && r.outcome.has_summary)) &&
                            QFileInfo::exists(r.request.output);
    open_->setEnabled(has_output);
    show_folder_->setEnabled(has_output);
}

void MainWindow::refreshItem(int row) {
    const Row& r = rows_.at(row);
    // In RowState's order; a running row shows its percentage instead.
    static const char* const kStates[] = {QT_TR_NOOP("waiting"), "", QT_TR_NOOP("repaired"),
                                          QT_TR_NOOP("failed"), QT_TR_NOOP("cancelled")};
    const QString state = r.state == RowState::Running
                              ? tr("repairing, %1 %").arg(qRound(r.progress * 100))
                              : tr(kStates[static_cast<int>(r.state)]);
    queue_view_->setEntry(row, r.request.damaged, state);
}

// The fields describe the selected recording; typing into the damaged field with nothing
// queued queues what is typed.
void MainWindow::storeField() {
    const RepairRequest request = form_->request();
    if (selected_ < 0) {
        if (request.damaged.isEmpty()) return;
        rows_.append(Row());
        list_->addItem(QString());
        selected_ = static_cast<int>(rows_.size()) - 1;
        const QSignalBlocker block(list_);
        list_->setCurrentRow(selected_);
    }
    Row& r = rows_[selected_];
    const bool changed = request.damaged != r.request.damaged || request.index != r.request.index ||
                         request.reference != r.request.reference ||
                         request.output != r.request.output ||
                         form_->useReference() != r.use_reference;
    r.request = request;
    r.use_reference = form_->useReference();
    if (changed && r.state != RowState::Running) r.state = RowState::Waiting;
    refreshItem(selected_);
}

void MainWindow::setRescueAvailable(bool available) {
    rescue_available_ = available;
    form_->setRescueAvailable(available);
    emit rescueAnswered(available);
}

void MainWindow::startRepair() {
    if (repairing()) return;
    storeField();
    QList<RepairRequest> requests;
    running_rows_.clear();
    for (int i = 0; i < rows_.size(); ++i) {
        if (rows_[i].state == RowState::Repaired) continue;
        RepairRequest request = rows_[i].request;
        if (rows_[i].use_reference && rescue_available_)
            request.index.clear();
        else
            request.reference.clear();
        const QString problem = request.problem(rescue_available_);
        if (!problem.isEmpty()) {
            selectRow(i);
            showMessage(problem, {});
            return;
        }
        requests.append(request);
        running_rows_.append(i);
    }
    if (requests.isEmpty()) {
        showMessage(rows_.isEmpty() ? tr("Choose the damaged recording.")
                                    : tr("Every recording in the list is already repaired."),
                    {});
        return;
    }
    for (int row : running_rows_) {
        rows_[row].state = RowState::Waiting;
        refreshItem(row);
    }
    showMessage(QString(), {});
    for (PathField* f : form_->fields())
        if (!f->path().isEmpty()) rememberFolder(f->objectName().toLatin1().constData(), f->path());
    setRunning(true);
    queue_clock_.start();
    queue_->start(requests);
}

void MainWindow::setRunning(bool running) {
    form_->setEnabled(!running);
    repair_->setEnabled(!running);
    cancel_->setEnabled(running);
    list_->setEnabled(!running || rows_.size() > 1);
    if (running) {
        open_->setEnabled(false);
        show_folder_->setEnabled(false);
        clock_->start();
    } else {
        clock_->stop();
        step_text_.clear();
    }
}

void MainWindow::showOutcome(const RepairOutcome& outcome) {
    showMessage(outcome.message, outcome.details);
}

void MainWindow::showMessage(const QString& headline, const QStringList& details) {
    QString html;
    if (!headline.isEmpty()) html = QStringLiteral("<b>%1</b>").arg(headline.toHtmlEscaped());
    for (const QString& d : details) html += QStringLiteral("<br>") + d.toHtmlEscaped();
    result_->setText(html);
    result_->setAccessibleDescription((QStringList(headline) + details).join(QLatin1Char(' ')));
}

// The status line: the step, then elapsed time and what is left, refreshed every second.
void MainWindow::tick() {
    if (!repairing()) return;
    QString text = step_text_;
    if (queue_->size() > 1)
        text =
            tr("Recording %1 of %2: %3").arg(queue_->position() + 1).arg(queue_->size()).arg(text);
    const QString percent = QStringLiteral("%1 %").arg(qRound(progress_->value() / 10.0));
    status_->setText(text.isEmpty()
                         ? QStringLiteral("%1 — %2").arg(percent, estimate_.text())
                         : QStringLiteral("%1 — %2 — %3").arg(percent, text, estimate_.text()));
}

QString MainWindow::selectedOutput() const {
    return selected_ >= 0 && selected_ < rows_.size() ? rows_.at(selected_).request.output
                                                      : QString();
}

void MainWindow::rememberFolder(const char* key, const QString& path) {
    const QString dir = QFileInfo(path).absolutePath();
    settings_->setValue(QStringLiteral("folders/") + QLatin1String(key), dir);
    for (PathField* f : form_->fields())
        if (f->objectName() == QLatin1String(key)) f->setStartFolder(dir);
}

QString MainWindow::folder(const char* key) const {
    return settings_->value(QStringLiteral("folders/") + QLatin1String(key), QDir::homePath())
        .toString();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    settings_->setValue(QStringLiteral("window/geometry"), saveGeometry());
    if (!repairing()) {
        event->accept();
        return;
    }
    event->ignore();
    if (close_when_done_) return;
    const auto answer = QMessageBox::question(
        this, tr("Stop the repair?"),
        tr("A repair is running. Stop it and close Kinefix? What was copied so far is kept and "
           "plays."),
        QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    if (answer != QMessageBox::Yes) return;
    close_when_done_ = true;
    queue_->cancel();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (!repairing() && event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) paths.append(url.toLocalFile());
    addFiles(paths);
    event->acceptProposedAction();
}
