// RepairQueue: sequencing of the queued repairs.
#include "repair_queue.h"

#include <QTimer>

RepairQueue::RepairQueue(const ToolLocator& tools, QObject* parent)
    : QObject(parent), job_(new RepairJob(tools, this)) {
    connect(job_, &RepairJob::stepStarted, this,
            [this](const QString& text) { emit jobStepStarted(position_, text); });
    connect(job_, &RepairJob::progressed, this,
            [this](double fraction) { emit jobProgressed(position_, fraction); });
    connect(job_, &RepairJob::finished, this, [this](const RepairOutcome& outcome) {
        if (outcome.status == RepairOutcome::Status::Repaired) ++repaired_;
        if (outcome.status == RepairOutcome::Status::Failed) ++failed_;
        if (outcome.status == RepairOutcome::Status::Cancelled) cancelled_ = true;
        emit jobFinished(position_, outcome);
        // Later, so that slots of jobFinished see the finished job, not the next one.
        QTimer::singleShot(0, this, &RepairQueue::next);
    });
}

void RepairQueue::start(const QList<RepairRequest>& requests) {
    if (running() || requests.isEmpty()) return;
    requests_ = requests;
    position_ = -1;
    repaired_ = 0;
    failed_ = 0;
    cancelled_ = false;
    active_ = true;
    next();
}

void RepairQueue::cancel() {
    if (!active_) return;
    cancelled_ = true;
    job_->cancel();
}

void RepairQueue::next() {
    if (cancelled_ || position_ + 1 >= size()) {
        active_ = false;
        emit allFinished(repaired_, failed_, cancelled_);
        return;
    }
    ++position_;
    emit jobStarted(position_);
    job_->start(requests_.at(position_));
}
