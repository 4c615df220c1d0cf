// RepairJob: the steps of a repair and how each child's output and exit become the outcome.
#include "repair_job.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTemporaryDir>

#include "human_text.h"
#include "process_interrupt.h"

namespace {

QString Tr(const char* text) {
    return QCoreApplication::translate("RepairJob", text);
}

// Exit codes of an interrupted kinefix: 128 + the signal.
constexpr int kSignalBase = 128;
constexpr int kVersionExit = 10;

}  // namespace

RepairJob::RepairJob(const ToolLocator& tools, QObject* parent) : QObject(parent), tools_(tools) {}

RepairJob::~RepairJob() {
    if (process_ && process_->state() != QProcess::NotRunning) {
        // Leaving a child behind would keep writing after the window is gone.
        process_->disconnect(this);
        ProcessInterrupt::send(process_->processId());
        process_->waitForFinished(5000);
    }
}

void RepairJob::start(const RepairRequest& request) {
    request_ = request;
    outcome_ = RepairOutcome();
    cancelled_ = false;
    version_error_ = 0;
    last_error_line_.clear();
    scratch_.reset();
    if (request_.rescue()) {
        scratch_ = std::make_unique<QTemporaryDir>();
        runStep(Step::Index);
    } else {
        runStep(Step::Protect);
    }
}

void RepairJob::cancel() {
    if (!running() || cancelled_) return;
    cancelled_ = true;
    if (process_) ProcessInterrupt::send(process_->processId());
}

QString RepairJob::indexPath() const {
    if (!request_.rescue()) return request_.index;
    return scratch_->filePath(QFileInfo(request_.damaged).completeBaseName() +
                              QStringLiteral(".idx"));
}

void RepairJob::runStep(Step step) {
    step_ = step;
    out_parser_ = ChildLineParser();
    err_parser_ = ChildLineParser();
    protect_output_.clear();
    if (process_) process_->deleteLater();
    process_ = new QProcess(this);
    connect(process_, &QProcess::readyReadStandardOutput, this, &RepairJob::readOutput);
    connect(process_, &QProcess::readyReadStandardError, this, &RepairJob::readErrors);
    connect(process_, &QProcess::finished, this, &RepairJob::stepEnded);
    connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) startFailed();
    });

    const bool rescue = request_.rescue();
    QString program;
    QStringList args;
    switch (step) {
        case Step::Index:
            step_base_ = 0.0;
            step_weight_ = 0.5;
            emit stepStarted(Tr("Rebuilding the index from the healthy recording"));
            program = QStringLiteral("kinefix-index");
            args = {QStringLiteral("--reference"), request_.reference, request_.damaged,
                    indexPath(), QStringLiteral("--progress")};
            break;
        case Step::Protect:
            program = QStringLiteral("kinefix-crypt");
            args = {QStringLiteral("options"), request_.damaged, indexPath(), request_.output};
            break;
        case Step::Repair:
            step_base_ = rescue ? 0.5 : 0.0;
            step_weight_ = rescue ? 0.5 : 1.0;
            emit stepStarted(
                Tr("Copying the packets into %1").arg(QFileInfo(request_.output).fileName()));
            program = QStringLiteral("kinefix");
            args = {option_text_};
            break;
        case Step::None:
            return;
    }
    process_->start(tools_.program(program), args);
}

void RepairJob::readOutput() {
    const QByteArray bytes = process_->readAllStandardOutput();
    if (step_ == Step::Protect) {
        protect_output_ += bytes;
        return;
    }
    for (const ChildEvent& event : out_parser_.feed(bytes)) handle(event);
}

void RepairJob::readErrors() {
    for (const ChildEvent& event : err_parser_.feed(process_->readAllStandardError())) {
        if (event.text.trimmed().isEmpty()) continue;
        last_error_line_ = event.text.trimmed();
        addDetail(HumanText::stderrSentence(event.text));
    }
}

void RepairJob::handle(const ChildEvent& event) {
    switch (event.kind) {
        case ChildEvent::Kind::Progress:
            emit progressed(step_base_ + step_weight_ * event.value);
            break;
        case ChildEvent::Kind::Error:
            // An interruption the user asked for is the headline, not a detail.
            if (!(cancelled_ && event.text.contains(QLatin1String("interrupted by signal"))))
                addDetail(HumanText::errorSentence(event.text));
            break;
        case ChildEvent::Kind::WriteError:
            ++outcome_.refused_packets;
            break;
        case ChildEvent::Kind::Summary:
            outcome_.has_summary = true;
            outcome_.summary = event.summary;
            break;
        case ChildEvent::Kind::VersionError:
            version_error_ = event.code;
            break;
        case ChildEvent::Kind::End:
        case ChildEvent::Kind::Text:
            break;
    }
}

void RepairJob::addDetail(const QString& sentence) {
    if (!sentence.isEmpty() && !outcome_.details.contains(sentence))
        outcome_.details.append(sentence);
}

void RepairJob::startFailed() {
    const QString program = process_->program();
    finish(RepairOutcome::Status::Failed,
           Tr("%1 could not be started: it was found neither beside kinefix-gui nor on the "
              "PATH. Reinstall Kinefix.")
               .arg(QFileInfo(program).fileName()));
}

void RepairJob::stepEnded(int exit_code, QProcess::ExitStatus status) {
    readOutput();
    readErrors();
    for (const ChildEvent& event : out_parser_.finish()) handle(event);
    const bool crashed = status == QProcess::CrashExit;
    switch (step_) {
        case Step::Index:
            endIndexStep(exit_code, crashed);
            break;
        case Step::Protect: {
            const QString text = QString::fromUtf8(protect_output_).trimmed();
            if (cancelled_) {
                finish(RepairOutcome::Status::Cancelled,
                       Tr("Stopped before the repair began; nothing was written."));
            } else if (crashed || exit_code != 0 || text.isEmpty()) {
                finish(RepairOutcome::Status::Failed,
                       Tr("The paths could not be handed to kinefix: %1").arg(last_error_line_));
            } else {
                option_text_ = text;
                runStep(Step::Repair);
            }
            break;
        }
        case Step::Repair:
            endRepairStep(exit_code, crashed);
            break;
        case Step::None:
            break;
    }
}

void RepairJob::endIndexStep(int exit_code, bool crashed) {
    if (cancelled_) {
        finish(RepairOutcome::Status::Cancelled,
               Tr("Stopped while the index was being rebuilt; nothing was written."));
    } else if (crashed || exit_code != 0 || !QFileInfo(indexPath()).isFile()) {
        finish(RepairOutcome::Status::Failed,
               Tr("The healthy recording does not fit this damaged one, so no index could be "
                  "rebuilt. Choose a recording made by the same camera with the same "
                  "settings."));
    } else {
        runStep(Step::Protect);
    }
}

void RepairJob::endRepairStep(int exit_code, bool crashed) {
    const RepairSummary& s = outcome_.summary;
    const QString output = QFileInfo(request_.output).fileName();
    if (crashed) {
        finish(RepairOutcome::Status::Failed,
               Tr("kinefix stopped unexpectedly; %1 may be incomplete.").arg(output));
    } else if (exit_code > kSignalBase) {
        const QString kept =
            outcome_.has_summary
                ? Tr("The first %1 packets (%2, %3) were kept in %4; that part plays.")
                      .arg(s.packets)
                      .arg(HumanText::duration(s.duration), HumanText::size(s.bytes), output)
                : Tr("Nothing was written.");
        const QString why = cancelled_ ? Tr("Repair cancelled.")
                                       : Tr("The repair was stopped from outside (signal %1).")
                                             .arg(exit_code - kSignalBase);
        finish(RepairOutcome::Status::Cancelled, why + QLatin1Char(' ') + kept);
    } else if (exit_code == kVersionExit || version_error_ != 0) {
        finish(RepairOutcome::Status::Failed,
               Tr("The index file is not one Kinefix reads (format version %1). Choose the "
                  "index written for this recording.")
                   .arg(version_error_));
    } else if (exit_code != 0 || !outcome_.has_summary) {
        finish(RepairOutcome::Status::Failed,
               outcome_.details.isEmpty()
                   ? Tr("No video could be rebuilt: the index does not describe this "
                        "recording, or one of the files cannot be read. Kinefix's log "
                        "(~/.local/state/kinefix/log) tells more.")
                   : outcome_.details.takeFirst());
    } else {
        finish(RepairOutcome::Status::Repaired,
               Tr("Repaired: %1 packets written, %2 index lines ignored; %3 of video, %4.")
                   .arg(s.packets)
                   .arg(s.ignored)
                   .arg(HumanText::duration(s.duration), HumanText::size(s.bytes)));
    }
}

void RepairJob::finish(RepairOutcome::Status status, const QString& message) {
    step_ = Step::None;
    outcome_.status = status;
    outcome_.message = message;
    if (outcome_.refused_packets > 0)
        addDetail(Tr("%1 packets were refused by the output format and left out.")
                      .arg(outcome_.refused_packets));
    scratch_.reset();
    emit finished(outcome_);
}
