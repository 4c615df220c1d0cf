#pragma once
// RepairQueue: several repairs run one after another through one RepairJob.

#include <QList>
#include <QObject>

#include "repair_job.h"

class RepairQueue : public QObject {
    Q_OBJECT
  public:
    explicit RepairQueue(const ToolLocator& tools, QObject* parent = nullptr);

    // Runs the requests in order; one that fails does not stop the others, a cancel does.
    void start(const QList<RepairRequest>& requests);
    void cancel();
    bool running() const { return active_; }
    int position() const { return position_; }
    int size() const { return static_cast<int>(requests_.size()); }

  signals:
    void jobStarted(int position);
    void jobStepStarted(int position, const QString& description);
    void jobProgressed(int position, double fraction);
    void jobFinished(int position, const RepairOutcome& outcome);
    void allFinished(int repaired, int failed, bool cancelled);

  private:
    void next();

    RepairJob* job_;
    QList<RepairRequest> requests_;
    int position_ = -1;
    int repaired_ = 0;
    int failed_ = 0;
    bool cancelled_ = false;
    bool active_ = false;  // also between two jobs
};
