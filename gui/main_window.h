#pragma once
// MainWindow: kinefix-gui's one window; it wires the controls to the repair queue.

#include <QElapsedTimer>
#include <QList>
#include <QMainWindow>

#include "progress_estimate.h"
#include "repair_job.h"
#include "tool_locator.h"

class RequestForm;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QSettings;
class QTimer;
class QueueView;
class RepairQueue;

class MainWindow : public QMainWindow {
    Q_OBJECT
  public:
    explicit MainWindow(const ToolLocator& tools, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Queues damaged recordings, as a drop or the file dialog does; an .idx file becomes the
    // index of the selected recording.
    void addFiles(const QStringList& paths);
    bool repairing() const;
    bool rescueAvailable() const { return rescue_available_; }

  signals:
    void rescueAnswered(bool available);
    void allFinished();  // the queue has ended and the window is idle again

  protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    enum class RowState { Waiting, Running, Repaired, Failed, Cancelled };
    struct Row {
        RepairRequest request;
        bool use_reference = false;
        RowState state = RowState::Waiting;
        RepairOutcome outcome;
        double progress = 0.0;
    };

    void buildControls();
    void selectRow(int row);
    void showRow(int row);
    void refreshItem(int row);
    void storeField();
    void setRescueAvailable(bool available);
    void startRepair();
    void setRunning(bool running);
    void showOutcome(const RepairOutcome& outcome);
    void showMessage(const QString& headline, const QStringList& details = {});
    void tick();
    QString selectedOutput() const;
    void rememberFolder(const char* key, const QString& path);
    QString folder(const char* key) const;

    ToolLocator tools_;
    RepairQueue* queue_;
    QList<Row> rows_;
    QList<int> running_rows_;  // queue position -> row
    int selected_ = -1;
    bool rescue_available_ = false;
    bool close_when_done_ = false;
    ProgressEstimate estimate_;  // of the running job
    QElapsedTimer queue_clock_;
    QString step_text_;
    QTimer* clock_;
    QSettings* settings_;  // written back when the window goes

    QueueView* queue_view_ = nullptr;
    QListWidget* list_ = nullptr;
    RequestForm* form_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* status_ = nullptr;
    QLabel* result_ = nullptr;
    QPushButton* open_ = nullptr;
    QPushButton* show_folder_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QPushButton* repair_ = nullptr;
};
