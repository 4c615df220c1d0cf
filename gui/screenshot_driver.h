#pragma once
// ScreenshotDriver: for scripts/screenshots.sh, drives the real window through its controls
// and saves it as PNG in each state: empty, repairing at about half, done or failed.

#include <QObject>
#include <QStringList>

class MainWindow;

class ScreenshotDriver : public QObject {
    Q_OBJECT
  public:
    // Saves into `folder`; queues `files` and presses Repair once the empty window is saved.
    ScreenshotDriver(MainWindow* window, const QString& folder, const QStringList& files);
    void start();

  private:
    void shoot(const QString& name);

    MainWindow* window_;
    QString folder_;
    QStringList files_;
    bool half_shot_ = false;
    bool failed_ = false;
};
