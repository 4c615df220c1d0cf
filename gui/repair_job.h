#pragma once
// RepairJob: one repair run through the console programs as child processes: on the rescue
// path kinefix-index rebuilds the index first, then kinefix-crypt makes the protected option
// text and kinefix copies the packets.

#include <QObject>
#include <QProcess>
#include <QStringList>
#include <memory>

#include "child_line_parser.h"
#include "repair_request.h"
#include "tool_locator.h"

class QTemporaryDir;

struct RepairOutcome {
    enum class Status { Repaired, Failed, Cancelled };
    Status status = Status::Failed;
    QString message;      // the headline, a whole sentence
    QStringList details;  // what the programs said, in words, each once
    bool has_summary = false;
    RepairSummary summary;
    int refused_packets = 0;
};
Q_DECLARE_METATYPE(RepairOutcome)

class RepairJob : public QObject {
    Q_OBJECT
  public:
    explicit RepairJob(const ToolLocator& tools, QObject* parent = nullptr);
    ~RepairJob() override;

    void start(const RepairRequest& request);
    // Interrupts the running child as Ctrl-C would; finished() follows once it has ended.
    void cancel();
    bool running() const { return step_ != Step::None; }
    const RepairRequest& request() const { return request_; }

  signals:
    void stepStarted(const QString& description);
    void progressed(double fraction);  // of the whole job
    void finished(const RepairOutcome& outcome);

  private:
    enum class Step { None, Index, Protect, Repair };

    void runStep(Step step);
    void readOutput();
    void readErrors();
    void handle(const ChildEvent& event);
    void addDetail(const QString& sentence);
    void stepEnded(int exit_code, QProcess::ExitStatus status);
    void startFailed();
    void endIndexStep(int exit_code, bool crashed);
    void endRepairStep(int exit_code, bool crashed);
    void finish(RepairOutcome::Status status, const QString& message);
    QString indexPath() const;

    ToolLocator tools_;
    RepairRequest request_;
    Step step_ = Step::None;
    QProcess* process_ = nullptr;
    ChildLineParser out_parser_;
    ChildLineParser err_parser_;
    std::unique_ptr<QTemporaryDir> scratch_;
    QByteArray protect_output_;
    QString option_text_;  // protected, as kinefix-crypt options made it
    QString last_error_line_;
    bool cancelled_ = false;
    int version_error_ = 0;
    double step_base_ = 0.0;
    double step_weight_ = 1.0;
    RepairOutcome outcome_;
};
